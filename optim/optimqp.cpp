// SPDX-License-Identifier: LicenseRef-qxkernel
#include "optimqp.hpp"

#include "optim/driver_detail.hpp"
#include "optim/relay_detail.hpp"
#include "qxexception.hpp"
#include "qxparallel.hpp"

#include <limits>
#include <new>
#include <vector>

using namespace qxoptim;

namespace {

constexpr const char* kOutOfMemory = "Out_of_memory_in_optimization";

using QPRelay = Relay<OptimQPCallback>;

extern "C" {
/// The product with H as the optimizer calls it.
static void multiplyForOptimizer(const int* ncolH, const double* x, double* Hx, int* status, char* cu, const int*, int*,
                                 const int*, double*, const int*, HiddenLength)
{
    QPRelay::of(cu).run(status,
                        [&](OptimQPCallback& callback, int& state) { callback.hessMult(state, *ncolH, x, Hx); });
}
}

/// A by compressed columns with indices from 1; at least one row and one entry, which the optimizer wants to see.
struct Columns
{
    int m = 1;
    int entries = 0;
    std::vector<double> value;
    std::vector<int> row;
    std::vector<int> start; ///< n + 1
};

constexpr unsigned long kMostEntries = std::numeric_limits<int>::max() - 1;

Columns copyColumns(const Sparse& given)
{
    if (!given.isReal() || given.getSymm() == Symmetric || given.getSymm() == Hermitian)
        QX_RAISE("optimqp", "Internal_error_optim");
    const Sparse A = convertToCol(given);
    const unsigned long m = A.getM(), n = A.getN();
    if (A.getNnz() > kMostEntries || m > kMostEntries || n > kMostEntries)
        throw std::bad_alloc();
    Columns out;
    out.m = std::max(static_cast<int>(m), 1);
    out.value.reserve(A.getNnz() + 1);
    out.row.reserve(A.getNnz() + 1);
    out.start.reserve(n + 1);
    std::vector<int> place(m, -1); // of a row's entry in this column
    out.start.push_back(1);
    for (unsigned long j = 0; j < n; ++j) {
        const int first = out.entries;
        for (unsigned long k = A.getColPtr()[j]; k < A.getColPtr()[j + 1]; ++k) {
            const unsigned long i = A.getRow()[k];
            if (place[i] >= first) {
                out.value[static_cast<std::size_t>(place[i])] += A.getDoubleVal()[k];
                continue;
            }
            place[i] = out.entries++;
            out.value.push_back(A.getDoubleVal()[k]);
            out.row.push_back(static_cast<int>(i) + 1);
        }
        out.start.push_back(out.entries + 1);
    }
    if (out.entries == 0) { // a zero in the last column
        out.entries = 1;
        out.value.push_back(0.0);
        out.row.push_back(1);
        ++out.start.back();
    }
    return out;
}

template <class T>
void requireSize(const Array<T, 1>& array, unsigned long size, const char* id)
{
    if (array.size() != size)
        QX_RAISE("optimqp", id);
}

/// The elements, and one more for the free row that a problem without rows gets.
template <class T>
Array<T, 1> padded(const Array<T, 1>& from, unsigned long size, T last)
{
    Array<T, 1> to(size);
    std::copy_n(from.data(), from.size(), to.data());
    std::fill(to.data() + from.size(), to.data() + size, last);
    return to;
}

/// What the optimizer works on, a copy until it has returned.
struct Work
{
    Array<double, 1> x, rc;
    Array<int, 1> hs;
};

} // namespace

OptimQPCallback::~OptimQPCallback() = default;

void OptimQP::solve(const Callback& callback, const StatePtr& state, const qxbase::Prop& prop, int n, bool coldStart,
                    const Sparse& A, int ncolH, const Doubles& cObj, Doubles& x, const Doubles& bl, const Doubles& bu,
                    const Ints& eType, Ints& hs, Doubles& rc, int& inform, int& nInf, double& sInf, int& iterations,
                    double& objective, std::string& message)
try {
    if (!callback || !state || state->isNP() || !OptimState::isLibLoaded())
        QX_RAISE("optimqp", "Internal_error_optim");
    const boost::shared_ptr<qxbase::QxLib> lib = OptimState::getOptlib();
    const auto optimizer = QX_OPTIM_ENTRY(lib, qxsqopt);
    const auto estimate = QX_OPTIM_ENTRY(lib, qxsqmem);
    if (n <= 0)
        QX_RAISE("optimqp", "The_number_of_optimization_variables_must_be_greater_than_0");
    const Columns columns = copyColumns(A);
    const unsigned long given = static_cast<unsigned long>(n) + A.getM();
    if (A.getN() != static_cast<unsigned long>(n))
        QX_RAISE("optimqp", "The_number_of_initial_values_does_not_match_size_of_constraint_matrix");
    requireSize(x, given, "The_number_of_initial_values_does_not_match_size_of_constraint_matrix");
    requireSize(bl, given, "The_number_of_lower_bounds_does_not_match_size_of_constraint_matrix");
    requireSize(bu, given, "The_number_of_upper_bounds_does_not_match_size_of_constraint_matrix");
    requireSize(eType, given, "Size_of_elastic_vector_does_not_match_size_of_constraint_matrix");
    requireSize(hs, given, "Size_of_state_vector_does_not_match_size_of_constraint_matrix");
    requireSize(rc, given, "The_number_of_initial_values_is_not_equal_to_the_number_of_lambda_values");
    if (ncolH < 0 || ncolH > n || (cObj.size() != 0 && cObj.size() != static_cast<unsigned long>(n)))
        QX_RAISE("optimqp", "Internal_error_optim");

    const unsigned long size = static_cast<unsigned long>(n) + static_cast<unsigned long>(columns.m);
    constexpr double none = std::numeric_limits<double>::max();
    const Doubles lower = padded(bl, size, -none), upper = padded(bu, size, none), linear = atLeastOne(cObj);
    const Ints elastic = padded(eType, size, 0);
    const Work start{padded(x, size, 0.0), padded(rc, size, 0.0), padded(hs, size, 0)};
    Work work(start);
    Doubles pi(static_cast<unsigned long>(columns.m));

    const PrintFileScope printFile(*state);
    if (!state->isInitialised())
        state->init();
    state->setQPOptions(prop);
    state->reserve(8 * kLeastWords, kLeastWords, kLeastWords);
    const int lencObj = static_cast<int>(cObj.size());
    CallArguments needed(*state);
    int info = 0;
    estimate(&info, &columns.m, &n, &columns.entries, &lencObj, &ncolH, &needed.mincw, &needed.miniw, &needed.minrw,
             state->getCw(), &needed.lencw, state->getIw(), &needed.leniw, state->getRw(), &needed.lenrw, kWordLength);
    const bool reserved = reserveEstimate(*state, needed.mincw, needed.miniw, needed.minrw);

    QPRelay relay(*callback, state->getRunInfo());
    const char* startWord = coldStart ? "Cold" : "Warm";
    const int iObj = 0;
    const double objAdd = 0.0;
    int infeasible = 0;
    double infeasibility = 0.0, value = 0.0;
    constexpr int storage = 82;
    const qxbase::BlasThreadScope oneThread(1); // same bits for any number: parallel BLAS divides sums
    const int code = !reserved ? storage : withGrowingWorkspaces(*state, [&] {
        work = start;
        pi = 0.0;
        CallArguments c(*state);
        int exit = 0;
        optimizer(startWord, &multiplyForOptimizer, &columns.m, &n, &columns.entries, &c.one, &lencObj, &ncolH, &iObj,
                  &objAdd, kBlankName, columns.value.data(), columns.row.data(), columns.start.data(), lower.data(),
                  upper.data(), linear.data(), kBlankName, elastic.data(), work.hs.data(), work.x.data(), pi.data(),
                  work.rc.data(), &exit, &c.mincw, &c.miniw, &c.minrw, &c.nS, &infeasible, &infeasibility, &value,
                  relay.word(), &c.one, &c.iu, &c.one, &c.ru, &c.one, state->getCw(), &c.lencw, state->getIw(), &c.leniw,
                  state->getRw(), &c.lenrw, 4, kWordLength, kWordLength, kWordLength, kWordLength);
        return exit;
    });

    Exit end = judgeExit(code, false);
    const bool known = !end.message.empty();
    if (!known)
        end.message = "Internal_error_optim";
    std::copy_n(work.x.data(), given, x.data());
    std::copy_n(work.rc.data(), given, rc.data());
    std::copy_n(work.hs.data(), given, hs.data());
    inform = code;
    nInf = infeasible;
    sInf = infeasibility;
    objective = value;
    iterations = state->getIw()[kMinorIterations];
    message.swap(end.message);

    relay.rethrow(kOutOfMemory, "Unknown_error_occurred_during_optimization");
    if (!known)
        QX_RAISE("optimqp", message);
    if (end.state == ExitState::Failed || (end.state == ExitState::Stopped && state->isStopOn()))
        QX_RAISE("optimqp", message);
} catch (const std::bad_alloc&) {
    QX_RAISE("optimqp", kOutOfMemory);
}
