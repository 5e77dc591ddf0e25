// SPDX-License-Identifier: LicenseRef-qxkernel
// Random sequences of calls of a nonlinear and a quadratic state against a model that knows only what the headers say.

#include "optimnp.hpp"
#include "optimqp.hpp"

#include "arrays.hpp"
#include "recorder.hpp"
#include "sparse.hpp"
#include "support/failure.hpp"

#include <boost/make_shared.hpp>
#include <new>
#include <random>
#include <stdexcept>

namespace {

using qxtest::doubles;
using qxtest::idOf;
using qxtest::ints;

/// What a callback does at its call.
enum class Deed { Values, Refuses, RunsOutOfMemory, ThrowsSomethingElse, IsCancelled };

void perform(Deed deed)
{
    switch (deed) {
    case Deed::Values: break;
    case Deed::Refuses: QX_RAISE("host", "No_value_here");
    case Deed::RunsOutOfMemory: throw std::bad_alloc();
    case Deed::ThrowsSomethingElse: throw 7;
    case Deed::IsCancelled: break; // says so by isCancelled
    }
}

class Nonlinear : public OptimNPCallback
{
public:
    void eval(int&, int, const double* x, bool needF, int nF, double* F, bool needG, int lenG, double* G) override
    {
        perform(deed);
        if (needF)
            std::fill_n(F, nF, x[0]);
        if (needG)
            std::fill_n(G, lenG, 1.0);
    }
    bool isCancelled() override { return deed == Deed::IsCancelled; }
    Deed deed = Deed::Values;
};

class Quadratic : public OptimQPCallback
{
public:
    void hessMult(int&, int ncolH, const double* x, double* Hx) override
    {
        perform(deed);
        std::copy_n(x, ncolH, Hx);
    }
    bool isCancelled() override { return deed == Deed::IsCancelled; }
    Deed deed = Deed::Values;
};

/// How a code ends, by the tables of the two drivers.
struct Ending
{
    int code;
    enum { End, Stopped, Failed, Unknown } kind;
    const char* message;
};
const std::vector<Ending> nonlinearEndings{{1, Ending::End, "Optimality conditions satisfied."},
                                           {2, Ending::End, "Feasible point found."},
                                           {13, Ending::Stopped, "Nonlinear_infeasibilities_minimized."},
                                           {32, Ending::Stopped, "Major_iteration_limit_reached."},
                                           {91, Ending::Failed, "Invalid_input_argument."},
                                           {53, Ending::Unknown, "Unknown_error_occurred_during_optimization"}};
const std::vector<Ending> quadraticEndings{{1, Ending::End, "Optimality conditions satisfied."},
                                           {4, Ending::End, "Weak QP minimizer."},
                                           {14, Ending::Stopped, "Infeasibilities minimized."},
                                           {53, Ending::Failed, "The QP Hessian is indefinite."},
                                           {13, Ending::Unknown, "Internal_error_optim"}};
Ending noStorage(bool np)
{
    return {84, Ending::Failed, np ? "Insufficient_storage_allocated." : "Insufficient storage allocated."};
}

std::string idOfDeed(Deed deed, bool np)
{
    switch (deed) {
    case Deed::Values: return {};
    case Deed::Refuses: return "No_value_here";
    case Deed::RunsOutOfMemory: return np ? "Out of memory in optimization" : "Out_of_memory_in_optimization";
    case Deed::ThrowsSomethingElse:
        return np ? "Unknown exception in optimization" : "Unknown_error_occurred_during_optimization";
    case Deed::IsCancelled: return qxbase::CancelException("optim", 0).getId();
    }
    return {};
}

/// Workspaces as vectors, and what was told to the optimizer.
struct Model
{
    bool np;
    std::vector<char> cw = std::vector<char>(4000, ' ');
    std::vector<int> iw = std::vector<int>(500);
    std::vector<double> rw = std::vector<double>(500);
    bool initialised = false;
    int derivLevel = 1;
    bool stopOn = true;

    std::string prefix() const { return np ? "qxsn" : "qxsq"; }
    void reserve(std::size_t c, std::size_t i, std::size_t r)
    {
        if (c > cw.size() || i > iw.size() || r > rw.size())
            resize(std::max(c, cw.size()), std::max(i, iw.size()), std::max(r, rw.size()));
    }
    void resize(std::size_t c, std::size_t i, std::size_t r)
    {
        cw.resize(c, ' ');
        iw.resize(i, 0);
        rw.resize(r, 0.0);
    }
    /// The lines of init.
    void init(std::vector<std::string>& calls)
    {
        reserve(4000, 500, 500);
        calls.push_back(prefix() + "init 0 0 lengths " + std::to_string(cw.size() / 8) + ' ' + std::to_string(iw.size()) + ' ' +
                        std::to_string(rw.size()));
        initialised = true;
    }
};

class OptimSequences : public WithRecorder
{
protected:
    struct Pair
    {
        boost::shared_ptr<OptimState> state;
        Model model;
    };

    int upTo(int last) { return std::uniform_int_distribution<int>(0, last)(random); }

    void expectSame(Pair& p, int step)
    {
        OptimState& s = *p.state;
        const Model& m = p.model;
        ASSERT_EQ(s.getCwBytes(), static_cast<int>(m.cw.size())) << step;
        ASSERT_EQ(s.getCwLength(), static_cast<int>(m.cw.size() / 8)) << step;
        ASSERT_EQ(s.getIwLength(), static_cast<int>(m.iw.size())) << step;
        ASSERT_EQ(s.getRwLength(), static_cast<int>(m.rw.size())) << step;
        ASSERT_TRUE(std::equal(m.cw.begin(), m.cw.end(), s.getCw())) << step;
        ASSERT_TRUE(std::equal(m.iw.begin(), m.iw.end(), s.getIw())) << step;
        ASSERT_TRUE(std::equal(m.rw.begin(), m.rw.end(), s.getRw())) << step;
        ASSERT_EQ(s.isInitialised(), m.initialised) << step;
        ASSERT_EQ(s.getDerivLevel(), m.derivLevel) << step;
        ASSERT_EQ(s.isStopOn(), m.stopOn) << step;
        ASSERT_EQ(script->calls, calls) << step;
    }

    void changeLengths(Pair& p)
    {
        const int cw = upTo(9000), iw = upTo(900), rw = upTo(900);
        Model& m = p.model;
        switch (upTo(5)) {
        case 0: p.state->reallocate(cw, iw, rw), m.resize(size(cw), size(iw), size(rw)); break;
        case 1: p.state->reallocateCw(cw), m.resize(size(cw), m.iw.size(), m.rw.size()); break;
        case 2: p.state->reallocateIw(iw), m.resize(m.cw.size(), size(iw), m.rw.size()); break;
        case 3: p.state->reallocateRw(rw), m.resize(m.cw.size(), m.iw.size(), size(rw)); break;
        case 4: p.state->reserve(cw, iw, rw), m.reserve(size(cw), size(iw), size(rw)); break;
        default: EXPECT_EQ(idOf([&] { p.state->reallocate(cw, -1, rw); }), "Internal_error_optim"); break;
        }
    }

    void writeSomewhere(Pair& p)
    {
        Model& m = p.model;
        if (!m.cw.empty()) {
            const int k = upTo(static_cast<int>(m.cw.size()) - 1);
            p.state->getCw()[k] = m.cw[size(k)] = 'x';
        }
        if (!m.iw.empty()) {
            const int k = upTo(static_cast<int>(m.iw.size()) - 1);
            p.state->getIw()[k] = m.iw[size(k)] = 1 + upTo(1000);
        }
        if (!m.rw.empty()) {
            const int k = upTo(static_cast<int>(m.rw.size()) - 1);
            p.state->getRw()[k] = m.rw[size(k)] = 0.5 + upTo(1000);
        }
    }

    void sendOption(Pair& p)
    {
        const int value = upTo(1000);
        const std::string start = p.model.prefix();
        switch (upTo(2)) {
        case 0:
            p.state->seti("Check frequency", value);
            calls.push_back(start + "seti 'Check frequency' = " + std::to_string(value) + " print 0");
            break;
        case 1:
            p.state->setr("Infinite bound size", value);
            calls.push_back(start + "setr 'Infinite bound size' = " + std::to_string(value) + " print 0");
            break;
        default:
            p.state->set("A line  as it stands ");
            calls.push_back(start + "set 'A line  as it stands ' print 0");
        }
    }

    /// Attempts, endings and kept failures of one run. `call` runs the driver; the script has been prepared.
    template <class Call>
    void solve(Pair& p, const std::vector<Ending>& endings, Deed deed, const Call& call)
    {
        Model& m = p.model;
        const int storageExits = upTo(3) == 0 ? upTo(6) : 0; // more than four: never enough
        const Ending ending = storageExits > 4 ? noStorage(m.np) : endings[size(upTo(static_cast<int>(endings.size()) - 1))];
        script->exits.assign(size(storageExits), 82 + upTo(2));
        if (storageExits > 4)
            script->exits.assign(5, 84);
        else
            script->exits.push_back(ending.code);
        script->mincw = upTo(900), script->miniw = upTo(900), script->minrw = upTo(900);
        script->minorIterations = upTo(99), script->majorIterations = upTo(99);
        script->lengths.clear();
        m.stopOn = upTo(1) == 0;

        const std::string id = idOf([&] { call(m.stopOn); });

        std::vector<std::vector<int>> lengths;
        const auto note = [&] {
            lengths.push_back({static_cast<int>(m.cw.size() / 8), static_cast<int>(m.iw.size()), static_cast<int>(m.rw.size())});
        };
        m.reserve(8 * size(std::max(script->mincw, 500)), size(std::max(script->miniw, 500)), size(std::max(script->minrw, 500)));
        note();
        for (int k = 0; k < std::min(storageExits, 4); ++k) {
            m.resize(m.cw.size() * 3 / 2, m.iw.size() * 3 / 2, m.rw.size() * 3 / 2);
            note();
        }
        EXPECT_EQ(script->lengths, lengths);
        m.iw[420] = script->minorIterations;
        if (m.np) // of a quadratic problem there are none
            m.iw[421] = script->majorIterations;
        const bool raises = ending.kind == Ending::Failed || ending.kind == Ending::Unknown ||
                            (ending.kind == Ending::Stopped && m.stopOn);
        EXPECT_EQ(id, deed != Deed::Values ? idOfDeed(deed, m.np) : raises ? ending.message : "");
    }

    void solveNonlinear(Pair& p)
    {
        const auto callback = boost::make_shared<Nonlinear>();
        callback->deed = static_cast<Deed>(upTo(1) * upTo(4));
        Array<double, 1> x = doubles({0.5, 0.25}), xmul = doubles({0, 0}), F = doubles({0, 0}), Fmul = doubles({0, 0});
        Array<int, 1> xstate = ints({0, 0}), Fstate = ints({0, 0});
        std::vector<double> starts;
        double mark = 0.0;
        script->onNonlinear = [&](const recording::NonlinearCall& call) {
            starts.push_back(call.x[0]);
            double f[2], g[2];
            const int status = call.evaluate(0, call.x, true, f, true, g);
            EXPECT_EQ(status, callback->deed == Deed::Values ? 0 : -2);
            call.x[0] = ++mark;
            call.Fmul[1] = 10 * mark;
        };
        if (!p.model.initialised)
            p.model.init(calls);
        calls.push_back("qxsnseti 'Derivative option' = " + std::to_string(p.model.derivLevel) + " print 0");
        calls.push_back("qxsnmema 2 2 names 1 1 entries 0 2");

        solve(p, nonlinearEndings, callback->deed, [&](bool stopOn) {
            qxbase::Prop prop;
            prop.setInt("stop", stopOn ? 0 : 1);
            int inform = 0, nInf = 0, iterations = 0, majors = 0;
            double sInf = 0;
            std::string message;
            OptimNP::solve(callback, p.state, prop, 2, 2, ints({}), ints({}), doubles({}), ints({1, 2}), ints({1, 2}), x,
                           doubles({-5, -5}), doubles({5, 5}), xmul, xstate, F, doubles({-9, -9}), doubles({9, 9}), Fmul, Fstate,
                           1, inform, nInf, sInf, iterations, majors, message);
        });

        calls.insert(calls.end(), script->lengths.size(), "qxsnopta");
        EXPECT_EQ(starts, std::vector<double>(script->lengths.size(), 0.5)) << "each attempt begins where the caller began";
        EXPECT_EQ(x[0], mark) << "results are written back however it ended";
        EXPECT_EQ(Fmul[1], 10 * mark);
    }

    void solveQuadratic(Pair& p)
    {
        const auto callback = boost::make_shared<Quadratic>();
        callback->deed = static_cast<Deed>(upTo(1) * upTo(4));
        const std::vector<unsigned long> rows{0, 0}, columns{0, 1};
        const std::vector<double> values{1, 2};
        Sparse A;
        A.triplet2sparse(rows, columns, values, 1, 2);
        Array<double, 1> x = doubles({0.5, 0.25, 0}), rc = doubles({0, 0, 0});
        Array<int, 1> hs = ints({0, 0, 0});
        double mark = 0.0;
        script->onQuadratic = [&](const recording::QuadraticCall& call) {
            EXPECT_EQ(call.x[0], 0.5);
            double product[2];
            const int status = call.multiply(0, call.x, product);
            EXPECT_EQ(status, callback->deed == Deed::Values ? 0 : -2);
            call.x[0] = ++mark;
            call.rc[2] = 10 * mark;
        };
        if (!p.model.initialised)
            p.model.init(calls);
        calls.push_back("qxsqmem 1 2 entries 2 linear 0 quadratic 2");

        solve(p, quadraticEndings, callback->deed, [&](bool stopOn) {
            qxbase::Prop prop;
            prop.setInt("stop", stopOn ? 0 : 1);
            int inform = 0, nInf = 0, iterations = 0;
            double sInf = 0, objective = 0;
            std::string message;
            OptimQP::solve(callback, p.state, prop, 2, true, A, 2, doubles({}), x, doubles({-9, -9, -9}), doubles({9, 9, 9}),
                           ints({0, 0, 0}), hs, rc, inform, nInf, sInf, iterations, objective, message);
        });

        calls.insert(calls.end(), script->lengths.size(), "qxsqopt");
        EXPECT_EQ(x[0], mark);
        EXPECT_EQ(rc[2], 10 * mark);
    }

    static std::size_t size(int n) { return static_cast<std::size_t>(n); }

    std::mt19937 random{20250307};
    std::vector<std::string> calls;
};

} // namespace

TEST_F(OptimSequences, KeepWorkspacesOptionsAndEndingsAsTheModelSays)
{
    std::vector<Pair> pairs;
    for (const bool np : {true, false})
        pairs.push_back({boost::make_shared<OptimState>(4000, 500, 500, np, 0, 0), {np}});

    for (int step = 0; step < 600; ++step) {
        Pair& p = pairs[size(upTo(1))];
        switch (upTo(5)) {
        case 0: changeLengths(p); break;
        case 1: writeSomewhere(p); break;
        case 2: sendOption(p); break;
        case 3: p.state->init(), p.model.init(calls); break;
        case 4: p.state->setDerivLevel(p.model.derivLevel = upTo(1)); break;
        default: p.model.np ? solveNonlinear(p) : solveQuadratic(p);
        }
        for (Pair& each : pairs)
            expectSame(each, step);
        if (HasFailure())
            return;
    }
}
