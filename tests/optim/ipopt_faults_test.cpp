// SPDX-License-Identifier: LicenseRef-qxkernel
// The free optimizer without memory: each allocation of its own code fails once. IPOPT's own are left alone.

#include "optimnp.hpp"
#include "optimqp.hpp"

#include "arrays.hpp"
#include "sparse.hpp"
#include "support/alloc_fault.hpp"

#include <boost/make_shared.hpp>
#include <cmath>
#include <gmock/gmock.h>
#include <link.h>
#include <string>

namespace {

using qxtest::doubles;
using qxtest::FaultRun;
using qxtest::ints;

/// The addresses of a loaded library's code.
struct Code
{
    std::string name;
    const char *from = nullptr, *to = nullptr;
};

int noteCode(dl_phdr_info* info, std::size_t, void* data)
{
    Code& code = *static_cast<Code*>(data);
    if (std::string(info->dlpi_name).find(code.name) == std::string::npos)
        return 0;
    for (int k = 0; k < info->dlpi_phnum; ++k)
        if (const ElfW(Phdr)& part = info->dlpi_phdr[k]; part.p_type == PT_LOAD && (part.p_flags & PF_X) != 0) {
            code.from = reinterpret_cast<const char*>(info->dlpi_addr + part.p_vaddr);
            code.to = code.from + part.p_memsz;
        }
    return 1;
}

/// (x_1 - 2)^2 + (x_2 - 1)^2 with x_1 + x_2 <= 2: (1.5, 0.5) by hand.
class Circle : public OptimNPCallback
{
public:
    void eval(int&, int, const double* x, bool needF, int, double* F, bool needG, int, double* G) override
    {
        if (needF) {
            F[0] = (x[0] - 2) * (x[0] - 2) + (x[1] - 1) * (x[1] - 1);
            F[1] = x[0] + x[1];
        }
        if (needG) {
            G[0] = 2 * (x[0] - 2);
            G[1] = 2 * (x[1] - 1);
            G[2] = G[3] = 1;
        }
    }
};

/// H = 2 I.
class Twice : public OptimQPCallback
{
public:
    void hessMult(int&, int ncolH, const double* x, double* Hx) override
    {
        for (int j = 0; j < ncolH; ++j)
            Hx[j] = 2 * x[j];
    }
};

class FreeOptimizerFaults : public testing::Test
{
protected:
    FreeOptimizerFaults()
    {
        qxoptim::initializeOptim();
        OptimState::setLibraryPath(QX_OPTIMIZER_FOLDER);
        OptimState::loadLib();
        Code code{"qxsnopt"};
        dl_iterate_phdr(&noteCode, &code);
        EXPECT_NE(code.from, nullptr);
        qxtest::failOnlyIn(code.from, code.to);
    }
    ~FreeOptimizerFaults() override { qxtest::failOnlyIn(nullptr, nullptr); }

    /// Runs `solve`, which tells whether it found the answer, with each allocation failing, and again without.
    template <class Solve>
    void expectNamedFailures(const Solve& solve, long least)
    {
        bool right = false;
        ASSERT_TRUE(solve());
        const long runs = qxtest::failEveryAllocation(
            [&] {
                right = false;
                right = solve();
            },
            [&](const FaultRun& run) {
                EXPECT_FALSE(run.badAlloc) << run.n << ": it would have to pass through the optimizer's entry point";
                if (run.faulted && !right) {
                    EXPECT_THAT(run.id, testing::AnyOf("Resource_limit_error.", "Resource limit error.", "System_error.",
                                                       "System error", "Out of memory in optimization",
                                                       "Out_of_memory_in_optimization",
                                                       "Unknown_error_occurred_when_determining_sparsity_pattern"))
                        << run.n;
                } else {
                    EXPECT_TRUE(right) << run.n << ' ' << run.id;
                }
                EXPECT_TRUE(solve()) << "again, after allocation " << run.n << " failed";
            });
        EXPECT_GT(runs, least);
    }
};

bool isNear(const Array<double, 1>& x, double a, double b)
{
    return std::fabs(x[0] - a) < 1e-5 && std::fabs(x[1] - b) < 1e-5;
}

} // namespace

TEST_F(FreeOptimizerFaults, OfANonlinearProblemHaveTheirExitAndLeaveEverythingUsable)
{
    expectNamedFailures(
        [] {
            const auto state = boost::make_shared<OptimState>(4000, 500, 500, true, 0, 0);
            Array<double, 1> x = doubles({0, 0}), xmul = doubles({0, 0}), F = doubles({0, 0}), Fmul = doubles({0, 0});
            Array<int, 1> xstate = ints({0, 0}), Fstate = ints({0, 0});
            int inform = 0, nInf = 0, iterations = 0, majors = 0;
            double sInf = 0;
            std::string message;
            OptimNP::solve(boost::make_shared<Circle>(), state, qxbase::Prop(), 2, 2, ints({}), ints({}), doubles({}),
                           ints({1, 1, 2, 2}), ints({1, 2, 1, 2}), x, doubles({-9, -9}), doubles({9, 9}), xmul, xstate, F,
                           doubles({-1e20, -1e20}), doubles({1e20, 2}), Fmul, Fstate, 1, inform, nInf, sInf, iterations,
                           majors, message);
            return inform == 1 && isNear(x, 1.5, 0.5);
        },
        30);
}

TEST_F(FreeOptimizerFaults, OfAQuadraticProblemHaveTheirExitAndLeaveEverythingUsable)
{
    // x_1^2 + x_2^2 - 4 x_1 - 2 x_2 with x_1 + x_2 <= 2: the same circle
    expectNamedFailures(
        [] {
            const auto state = boost::make_shared<OptimState>(4000, 500, 500, false, 0, 0);
            const std::vector<unsigned long> rows{0, 0}, columns{0, 1};
            const std::vector<double> ones{1, 1};
            Sparse A;
            A.triplet2sparse(rows, columns, ones, 1, 2);
            Array<double, 1> x = doubles({0, 0, 0}), rc = doubles({0, 0, 0});
            Array<int, 1> hs = ints({0, 0, 0});
            int inform = 0, nInf = 0, iterations = 0;
            double sInf = 0, objective = 0;
            std::string message;
            OptimQP::solve(boost::make_shared<Twice>(), state, qxbase::Prop(), 2, true, A, 2, doubles({-4, -2}), x,
                           doubles({-9, -9, -1e20}), doubles({9, 9, 2}), ints({0, 0, 0}), hs, rc, inform, nInf, sInf,
                           iterations, objective, message);
            return inform == 1 && isNear(x, 1.5, 0.5);
        },
        30);
}

TEST_F(FreeOptimizerFaults, OfThePatternHaveTheirExitAndLeaveEverythingUsable)
{
    expectNamedFailures(
        [] {
            const auto state = boost::make_shared<OptimState>(4000, 500, 500, true, 0, 0);
            Array<int, 1> iA, jA, iG, jG;
            Array<double, 1> A;
            int inform = 0;
            std::string message;
            OptimNP::pattern(boost::make_shared<Circle>(), state, qxbase::Prop(), 2, 2, doubles({0.3, 0.4}),
                             doubles({-9, -9}), doubles({9, 9}), 1, iA, jA, A, iG, jG, inform, message);
            return inform == 102 && iA.size() == 2 && iG.size() == 2; // one row is linear
        },
        5);
}
