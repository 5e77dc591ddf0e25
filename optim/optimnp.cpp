// SPDX-License-Identifier: LicenseRef-qxkernel
#include "optimnp.hpp"

#include "optim/driver_detail.hpp"
#include "optim/relay_detail.hpp"
#include "qxexception.hpp"
#include "qxparallel.hpp"

#include <new>

using namespace qxoptim;

namespace {

constexpr const char* kOutOfMemory = "Out of memory in optimization";
constexpr double kMostEntries = 1e8;

/// A relay that also tells of iterations.
class NPRelay : public Relay<OptimNPCallback>
{
public:
    NPRelay(OptimNPCallback& callback, OptimState& state)
        : Relay(callback, state.getRunInfo()), state_(state), told_(count())
    {
    }
    void tellIterations(OptimNPCallback& callback)
    {
        const int now = count();
        if (now == told_)
            return;
        told_ = now;
        if (now > 0)
            callback.onIteration(now);
    }

private:
    int count() const { return state_.getIwLength() > kMajorIterations ? state_.getIw()[kMajorIterations] : 0; }

    OptimState& state_;
    int told_;
};

extern "C" {
/// The user's function as the optimizer calls it.
static void evaluateForOptimizer(int* status, const int* n, const double* x, const int* needF, const int* nF, double* F,
                                 const int* needG, const int* lenG, double* G, char* cu, const int*, int*, const int*,
                                 double*, const int*, HiddenLength)
{
    NPRelay& relay = static_cast<NPRelay&>(NPRelay::of(cu));
    relay.run(status, [&](OptimNPCallback& callback, int& state) {
        relay.tellIterations(callback);
        callback.eval(state, *n, x, *needF > 0, *nF, F, *needG > 0, *lenG, G);
    });
}
}

void requireReady(const OptimNP::Callback& callback, const OptimNP::StatePtr& state)
{
    if (!callback || !state || !state->isNP() || !OptimState::isLibLoaded())
        QX_RAISE("optimnp", "Internal_error_optim");
}

void requireSize(const Array<double, 1>& array, int size, const char* id)
{
    if (array.size() != static_cast<unsigned long>(size))
        QX_RAISE("optimnp", id);
}
void requireSize(const Array<int, 1>& array, int size, const char* id)
{
    if (array.size() != static_cast<unsigned long>(size))
        QX_RAISE("optimnp", id);
}

constexpr const char* kInitialValues = "The_number_of_initial_values_is_not_equal_to_the_number_of_constraints";
constexpr const char* kStates = "The_number_of_initial_values_is_not_equal_to_the_number_of_states";
constexpr const char* kBounds = "The_number_of_upper_or_lower_bounds_is_not_equal_to_the_number_of_constraints";

void requireProblem(int nF, int n, int objRow)
{
    if (n <= 0)
        QX_RAISE("optimnp", "The_number_of_optimization_variables_must_be_greater_than_0");
    if (objRow < 1 || objRow > nF)
        QX_RAISE("optimnp", "No_objective_given");
}

void requireIndices(const Array<int, 1>& indices, int last)
{
    for (const int index : indices)
        if (index < 1 || index > last)
            QX_RAISE("optimnp", "Internal_error_optim");
}

void requireTriplets(const Array<int, 1>& rows, const Array<int, 1>& columns, unsigned long count, int nF, int n)
{
    if (rows.size() != columns.size() || rows.size() != count)
        QX_RAISE("optimnp", "Internal_error_optim");
    requireIndices(rows, nF);
    requireIndices(columns, n);
}

/// Options as the properties say, whatever the last run had. False: the estimate of the storage is beyond all bounds.
bool prepare(OptimState& state, const qxbase::Prop& prop, const qxbase::QxLib& lib, int nF, int n, int neA, int neG)
{
    if (!state.isInitialised())
        state.init();
    state.setNPOptions(prop);
    state.seti("Derivative option", state.getDerivLevel());
    state.reserve(8 * kLeastWords, kLeastWords, kLeastWords);
    CallArguments c(state);
    int info = 0;
    QX_OPTIM_ENTRY(&lib, qxsnmema)
    (&info, &nF, &n, &c.one, &c.one, &neA, &neG, &c.mincw, &c.miniw, &c.minrw, state.getCw(), &c.lencw, state.getIw(),
     &c.leniw, state.getRw(), &c.lenrw, kWordLength);
    return reserveEstimate(state, c.mincw, c.miniw, c.minrw);
}

/// What the optimizer works on, a copy until it has returned: an attempt begins where the caller began.
struct Work
{
    Array<double, 1> x, xmul, F, Fmul;
    Array<int, 1> xstate, Fstate;
};

} // namespace

OptimNPCallback::~OptimNPCallback() = default;

void OptimNPCallback::onIteration(int) {}

void OptimNP::solve(const Callback& callback, const StatePtr& state, const qxbase::Prop& prop, int nF, int n,
                    const Ints& iAfun, const Ints& jAvar, const Doubles& A, const Ints& iGfun, const Ints& jGvar,
                    Doubles& x, const Doubles& xlow, const Doubles& xupp, Doubles& xmul, Ints& xstate, Doubles& F,
                    const Doubles& Flow, const Doubles& Fupp, Doubles& Fmul, Ints& Fstate, int objRow, int& inform,
                    int& nInf, double& sInf, int& iterations, int& majors, std::string& message, bool coldStart)
try {
    requireReady(callback, state);
    const boost::shared_ptr<qxbase::QxLib> lib = OptimState::getOptlib();
    const auto optimizer = QX_OPTIM_ENTRY(lib, qxsnopta);
    QX_OPTIM_ENTRY(lib, qxsnmema); // both are there before anything is looked at
    requireProblem(nF, n, objRow);
    requireSize(x, n, kInitialValues);
    requireSize(F, nF, kInitialValues);
    requireSize(xstate, n, kStates);
    for (const Doubles* bound : {&xlow, &xupp})
        requireSize(*bound, n, kBounds);
    for (const Doubles* bound : {&Flow, &Fupp})
        requireSize(*bound, nF, kBounds);
    requireSize(Fstate, nF, kStates);
    requireSize(xmul, n, kStates);
    requireSize(Fmul, nF, kStates);
    requireTriplets(iAfun, jAvar, A.size(), nF, n);
    requireTriplets(iGfun, jGvar, iGfun.size(), nF, n);

    const int neA = static_cast<int>(A.size()), neG = static_cast<int>(iGfun.size());
    const int lenA = std::max(neA, 1), lenG = std::max(neG, 1);
    const Ints iA = atLeastOne(iAfun), jA = atLeastOne(jAvar), iG = atLeastOne(iGfun), jG = atLeastOne(jGvar);
    const Doubles values = atLeastOne(A);
    const Work start{x, xmul, F, Fmul, xstate, Fstate};
    Work work(start);

    const PrintFileScope printFile(*state);
    const bool reserved = prepare(*state, prop, *lib, nF, n, neA, neG);
    NPRelay relay(*callback, *state);
    const int warm = coldStart ? 0 : 2;
    const double objAdd = 0.0;
    int infeasible = 0;
    double infeasibility = 0.0;
    constexpr int storage = 82;
    const qxbase::BlasThreadScope oneThread(1); // same bits for any number: parallel BLAS divides sums
    const int code = !reserved ? storage : withGrowingWorkspaces(*state, [&] {
        work = start;
        CallArguments c(*state);
        int info = 0;
        optimizer(&warm, &nF, &n, &c.one, &c.one, &objAdd, &objRow, kBlankName, &evaluateForOptimizer, iA.data(),
                  jA.data(), &lenA, &neA, values.data(), iG.data(), jG.data(), &lenG, &neG, xlow.data(), xupp.data(),
                  kBlankName, Flow.data(), Fupp.data(), kBlankName, work.x.data(), work.xstate.data(), work.xmul.data(),
                  work.F.data(), work.Fstate.data(), work.Fmul.data(), &info, &c.mincw, &c.miniw, &c.minrw, &c.nS,
                  &infeasible, &infeasibility, relay.word(), &c.one, &c.iu, &c.one, &c.ru, &c.one, state->getCw(),
                  &c.lencw, state->getIw(), &c.leniw, state->getRw(), &c.lenrw, kWordLength, kWordLength, kWordLength,
                  kWordLength, kWordLength);
        return info;
    });

    Exit end = judgeExit(code, true);
    const bool known = !end.message.empty();
    if (!known)
        end.message = "Unknown_error_occurred_during_optimization";
    x.swap(work.x);
    xmul.swap(work.xmul);
    xstate.swap(work.xstate);
    F.swap(work.F);
    Fmul.swap(work.Fmul);
    Fstate.swap(work.Fstate);
    inform = code;
    nInf = infeasible;
    sInf = infeasibility;
    iterations = state->getIw()[kMinorIterations];
    majors = state->getIw()[kMajorIterations];
    message.swap(end.message);

    relay.rethrow(kOutOfMemory, "Unknown exception in optimization");
    relay.tellIterations(*callback);
    if (!known)
        QX_RAISE("optimnp", message, "Error code:", code);
    if (end.state == ExitState::Failed || (end.state == ExitState::Stopped && state->isStopOn()))
        QX_RAISE("optimnp", message);
} catch (const std::bad_alloc&) {
    QX_RAISE("optimnp", kOutOfMemory);
}

void OptimNP::pattern(const Callback& callback, const StatePtr& state, const qxbase::Prop& prop, int nF, int n,
                      const Doubles& x, const Doubles& xlow, const Doubles& xupp, int objRow, Ints& iAfun, Ints& jAvar,
                      Doubles& A, Ints& iGfun, Ints& jGvar, int& inform, std::string& message)
try {
    requireReady(callback, state);
    const boost::shared_ptr<qxbase::QxLib> lib = OptimState::getOptlib();
    const auto estimator = QX_OPTIM_ENTRY(lib, qxsnjac);
    QX_OPTIM_ENTRY(lib, qxsnmema);
    requireProblem(nF, n, objRow);
    requireSize(x, n, kInitialValues);
    for (const Doubles* bound : {&xlow, &xupp})
        requireSize(*bound, n, kBounds);
    if (static_cast<double>(nF) * n > kMostEntries)
        throw std::bad_alloc();

    const int len = nF * n;
    const auto room = static_cast<unsigned long>(len);
    Ints iA(room), jA(room), iG(room), jG(room);
    Doubles values(room);
    const PrintFileScope printFile(*state);
    const bool reserved = prepare(*state, prop, *lib, nF, n, len, len);
    NPRelay relay(*callback, *state);
    int code = 82, neA = 0, neG = 0;
    if (reserved) {
        CallArguments c(*state);
        estimator(&code, &nF, &n, &evaluateForOptimizer, iA.data(), jA.data(), &len, &neA, values.data(), iG.data(),
                  jG.data(), &len, &neG, x.data(), xlow.data(), xupp.data(), &c.mincw, &c.miniw, &c.minrw, relay.word(),
                  &c.one, &c.iu, &c.one, &c.ru, &c.one, state->getCw(), &c.lencw, state->getIw(), &c.leniw, state->getRw(),
                  &c.lenrw, kWordLength, kWordLength);
    }

    const char* text = "Errors while estimating Jacobian structure.";
    switch (code) {
    case 61: text = "Undefined function at the first feasible point."; break;
    case 71: text = "Terminated during function evaluation."; break;
    case 102: text = "Satisfactory coordinates were found."; break;
    default: break;
    }
    inform = code;
    message = text;
    relay.rethrow(kOutOfMemory, "Unknown exception in optimization");
    if (code != 102)
        QX_RAISE("optimnp", "Unknown_error_occurred_when_determining_sparsity_pattern", "Message", message);

    const auto first = [](const auto& from, int count) {
        auto to = from;
        to.resize(static_cast<unsigned long>(count));
        std::copy_n(from.data(), count, to.data());
        return to;
    };
    Ints iAfound = first(iA, neA), jAfound = first(jA, neA), iGfound = first(iG, neG), jGfound = first(jG, neG);
    Doubles Afound = first(values, neA);
    iAfun.swap(iAfound);
    jAvar.swap(jAfound);
    A.swap(Afound);
    iGfun.swap(iGfound);
    jGvar.swap(jGfound);
} catch (const std::bad_alloc&) {
    QX_RAISE("optimnp", kOutOfMemory);
}
