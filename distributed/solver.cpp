// SPDX-License-Identifier: LicenseRef-qxkernel
#include "distributed/unknowns_detail.hpp"

#include "qxnumber.hpp"
#include "qxrun.hpp"

#include <petscksp.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <sstream>
#include <utility>

namespace qx::distributed {
inline namespace QX_SCALAR_NAMESPACE {

using detail::Owned;

namespace {

/// The names in a text of options: words that begin with a minus and a letter.
std::vector<std::string> namesIn(const std::string& text)
{
    std::vector<std::string> names;
    std::istringstream in(text);
    bool mayBeValue = false;
    for (std::string word; in >> word;) {
        const bool isName = word.size() > 1 && word[0] == '-' && std::isalpha(static_cast<unsigned char>(word[1])) != 0;
        if (!isName && !mayBeValue)
            QX_RAISE("distributed", "Invalid_option", "Option", word);
        if (isName)
            names.push_back(word.substr(1));
        mayBeValue = isName;
    }
    return names;
}

using Options = std::vector<std::string>;

bool has(const Options& names, const char* name) { return std::find(names.begin(), names.end(), name) != names.end(); }

/// What the caller sees of an iteration, and how it stops one. A listener's failure stops the others too.
struct Watch
{
    const SessionState& session;
    qxutil::RunInfo* run;
    double tolerance;
    void* byResidual = nullptr;       ///< PETSc's own test
    std::vector<double> history;
    std::exception_ptr failure;
    bool stopped = false;

    void report(PetscInt iteration, double norm);
    /// Together: whether some rank wants to stop.
    bool isOver();
};

void Watch::report(PetscInt iteration, double norm)
{
    if (iteration == 0)
        history.clear();
    history.push_back(norm);
    if (session.rank != 0 || run == nullptr || !run->isActive())
        return;
    try {
        qxutil::RunLog log(*run);
        log.init("Iterative solution");
        log.setParam("Iteration", static_cast<double>(iteration));
        const double first = history.front();
        if (first > 0.0 && norm > 0.0)
            log.setProgress(std::max(0.0, std::log(norm / first) / std::log(tolerance)));
    } catch (...) {
        failure = std::current_exception();
    }
}

bool Watch::isOver()
{
    int own = failure || (run != nullptr && run->isCancelled()) ? 1 : 0;
    int any = 0;
    MPI_Allreduce(&own, &any, 1, MPI_INT, MPI_MAX, session.comm);
    stopped = stopped || any != 0;
    return stopped;
}

extern "C" PetscErrorCode testConvergence(KSP ksp, PetscInt iteration, PetscReal norm, KSPConvergedReason* reason, void* at)
{
    Watch& watch = *static_cast<Watch*>(at);
    watch.report(iteration, norm);
    const PetscErrorCode code = KSPConvergedDefault(ksp, iteration, norm, reason, watch.byResidual);
    if (code == 0 && watch.isOver())
        *reason = KSP_DIVERGED_NULL; // any negative one: `stopped` tells why
    return code;
}

} // namespace

struct SolverState
{
    SolverState(const Unknowns& unknowns, const SolverOptions& given)
        : handle(unknowns), u(*handle.state()), options(given), names(namesIn(given.options)),
          watch{*u.session, given.run, given.tolerance, nullptr, {}, nullptr, false}, ksp(u.session), nearNull(u.session), null(u.session)
    {
    }
    ~SolverState();
    SolverState(const SolverState&) = delete;
    SolverState& operator=(const SolverState&) = delete;

    Unknowns handle;
    const UnknownsState& u;
    SolverOptions options;
    Options names;
    Watch watch;
    Owned<KSP, KSPDestroy> ksp;
    Owned<MatNullSpace, MatNullSpaceDestroy> nearNull;
    Owned<MatNullSpace, MatNullSpaceDestroy> null;
    bool optionsRead = false;

    std::string fullName(const std::string& name) const { return "-" + options.prefix + name; }
    void make();
    void setDefaults();
    void prepare(Mat K);
    void requireOptionsUsed();
    void span(Owned<MatNullSpace, MatNullSpaceDestroy>& space, const std::vector<std::vector<Scalar>>& vectors) const;
};

SolverState::~SolverState()
{
    if (!PetscInitializeCalled)
        return;
    for (const std::string& name : names)
        PetscOptionsClearValue(nullptr, fullName(name).c_str());
    ksp.reset();
    if (watch.byResidual != nullptr)
        KSPConvergedDefaultDestroy(watch.byResidual);
}

/// Methods and norms; what the options say comes later.
void SolverState::setDefaults()
{
    KSP k = ksp.get();
    PC pc = nullptr;
    QX_PETSC(KSPGetPC(k, &pc));
    QX_PETSC(KSPSetTolerances(k, options.tolerance, PETSC_DEFAULT, PETSC_DEFAULT, options.maxIterations));
    const bool symmetric = options.kind != Kind::General;
    if (options.kind == Kind::Symmetric || u.freeCount <= options.direct) {
        QX_PETSC(KSPSetType(k, KSPPREONLY));
        QX_PETSC(PCSetType(pc, symmetric ? PCCHOLESKY : PCLU));
        QX_PETSC(PCFactorSetMatSolverType(pc, MATSOLVERMUMPS));
        return;
    }
    QX_PETSC(KSPSetType(k, symmetric ? KSPCG : KSPGMRES));
    QX_PETSC(PCSetType(pc, PCGAMG));
    if (has(names, "ksp_type") || has(names, "ksp_pc_side"))
        return;
    // The residual itself is what tolerances speak of.
    if (!symmetric)
        QX_PETSC(KSPSetPCSide(k, PC_RIGHT));
    QX_PETSC(KSPSetNormType(k, KSP_NORM_UNPRECONDITIONED));
}

void SolverState::make()
{
    detail::collectively(*u.session, [&] {
        QX_PETSC(PetscOptionsPrefixPush(nullptr, options.prefix.c_str()));
        const PetscErrorCode inserted = PetscOptionsInsertString(nullptr, options.options.c_str());
        QX_PETSC(PetscOptionsPrefixPop(nullptr));
        detail::requireSuccess(inserted, "PetscOptionsInsertString");
        QX_PETSC(KSPCreate(u.session->comm, ksp.put()));
        QX_PETSC(KSPSetOptionsPrefix(ksp.get(), options.prefix.c_str()));
        QX_PETSC(KSPConvergedDefaultCreate(&watch.byResidual));
        QX_PETSC(KSPSetConvergenceTest(ksp.get(), testConvergence, &watch, nullptr));
        setDefaults();
    });
}

/// Together: everything up to the iteration.
void SolverState::prepare(Mat K)
{
    detail::collectively(*u.session, [&] {
        if (options.kind == Kind::Spd)
            QX_PETSC(MatSetOption(K, MAT_SPD, PETSC_TRUE));
        else if (options.kind == Kind::Symmetric)
            QX_PETSC(MatSetOption(K, MAT_SYMMETRIC, PETSC_TRUE));
        QX_PETSC(MatSetNearNullSpace(K, nearNull.get()));
        QX_PETSC(MatSetNullSpace(K, null.get()));
        QX_PETSC(KSPSetOperators(ksp.get(), K, K));
        if (!optionsRead)
            QX_PETSC(KSPSetFromOptions(ksp.get()));
        optionsRead = true;
        QX_PETSC(KSPSetUp(ksp.get()));
        QX_PETSC(KSPSetUpOnBlocks(ksp.get()));
    });
}

void SolverState::requireOptionsUsed()
{
    qxbase::ExceptionArgs unknown;
    for (const std::string& name : names) {
        PetscBool used = PETSC_TRUE;
        QX_PETSC(PetscOptionsUsed(nullptr, (options.prefix + name).c_str(), &used)); // the table has no minus
        if (used == PETSC_FALSE)
            unknown.emplace_back("Option", "-" + name);
    }
    if (!unknown.empty())
        QX_RAISE("distributed", "Unknown_option", unknown);
}

/// Together: an orthonormal basis of the vectors' values at the free unknowns.
void SolverState::span(Owned<MatNullSpace, MatNullSpaceDestroy>& space,
                       const std::vector<std::vector<Scalar>>& vectors) const
{
    detail::together(*u.session, [&] {
        for (const std::vector<Scalar>& v : vectors)
            if (v.size() != u.numbers.size())
                detail::raiseCount("vector", u.numbers.size(), v.size());
    });
    std::vector<std::unique_ptr<Owned<Vec, VecDestroy>>> basis;
    detail::collectively(*u.session, [&] {
        std::vector<Vec> handles;
        for (const std::vector<Scalar>& v : vectors) {
            auto own = std::make_unique<Owned<Vec, VecDestroy>>(u.session);
            QX_PETSC(VecDuplicate(u.like.get(), own->put()));
            PetscScalar* values = nullptr;
            QX_PETSC(VecGetArrayWrite(own->get(), &values));
            for (std::size_t k = 0; k < u.home.size(); ++k)
                values[k] = v[u.home[k]];
            QX_PETSC(VecRestoreArrayWrite(own->get(), &values));
            for (int pass = 0; pass < 2; ++pass) // twice is enough
                for (const Vec other : handles) {
                    PetscScalar dot = 0.0;
                    QX_PETSC(VecDot(own->get(), other, &dot));
                    QX_PETSC(VecAXPY(own->get(), -dot, other));
                }
            PetscReal norm = 0.0;
            QX_PETSC(VecNormalize(own->get(), &norm));
            if (norm == 0.0)
                continue;
            handles.push_back(own->get());
            basis.push_back(std::move(own));
        }
        if (handles.empty())
            space.reset();
        else
            QX_PETSC(MatNullSpaceCreate(u.session->comm, PETSC_FALSE, static_cast<PetscInt>(handles.size()), handles.data(),
                                        space.put()));
    });
}

Solver::Solver(const Unknowns& unknowns, const SolverOptions& options)
{
    detail::together(*unknowns.state()->session,
                     [&] { state_ = std::make_unique<SolverState>(unknowns, options); });
    state_->make();
}

Solver::~Solver() = default;
Solver::Solver(Solver&&) noexcept = default;
Solver& Solver::operator=(Solver&&) noexcept = default;

void Solver::setNearNullSpace(const std::vector<std::vector<Scalar>>& vectors)
{
    state_->span(state_->nearNull, vectors);
}

void Solver::setNullSpace(const std::vector<std::vector<Scalar>>& vectors) { state_->span(state_->null, vectors); }

_p_KSP* Solver::ksp() const { return state_->ksp.get(); }

Solution Solver::solve(const Assembly& system)
{
    SolverState& s = *state_;
    const SessionState& session = *s.u.session;
    detail::together(session, [&] {
        if (system.matrix() == nullptr || system.rightSide() == nullptr)
            QX_RAISE("distributed", "Assembly_not_finished");
        if (system.unknowns().state() != s.handle.state())
            QX_RAISE("distributed", "Assembly_of_other_unknowns");
        if (s.options.run != nullptr)
            s.options.run->throwIfCancelled("distributed", __LINE__);
    });
    Solution result;
    if (s.u.freeCount == 0) { // the conditions leave nothing open
        result.values = system.options().lifted ? s.u.particular : std::vector<Scalar>(s.u.numbers.size(), Scalar(0.0));
        return result;
    }
    s.watch.stopped = false;
    s.watch.failure = nullptr;
    s.watch.history.clear();
    s.prepare(system.matrix());
    detail::together(session, [&] { s.requireOptionsUsed(); });

    Owned<Vec, VecDestroy> b(s.u.session), z(s.u.session), r(s.u.session);
    KSPConvergedReason reason = KSP_CONVERGED_ITERATING;
    PetscInt iterations = 0;
    detail::collectively(session, [&] {
        QX_PETSC(VecDuplicate(s.u.like.get(), b.put()));
        QX_PETSC(VecDuplicate(s.u.like.get(), z.put()));
        QX_PETSC(VecDuplicate(s.u.like.get(), r.put()));
        QX_PETSC(VecCopy(system.rightSide(), b.get()));
        if (s.null.get() != nullptr)
            QX_PETSC(MatNullSpaceRemove(s.null.get(), b.get()));
        QX_PETSC(KSPSolve(s.ksp.get(), b.get(), z.get()));
        QX_PETSC(KSPGetConvergedReason(s.ksp.get(), &reason));
        QX_PETSC(KSPGetIterationNumber(s.ksp.get(), &iterations));
        if (s.null.get() != nullptr)
            QX_PETSC(MatNullSpaceRemove(s.null.get(), z.get()));
        QX_PETSC(MatMult(system.matrix(), z.get(), r.get()));
        QX_PETSC(VecAYPX(r.get(), -1.0, b.get()));
        PetscReal left = 0.0;
        PetscReal whole = 0.0;
        QX_PETSC(VecNorm(r.get(), NORM_2, &left));
        QX_PETSC(VecNorm(b.get(), NORM_2, &whole));
        result.residual = left == 0.0 ? 0.0 : left / whole;
    });
    result.iterations = static_cast<int>(iterations);
    result.history = s.watch.history;
    detail::together(session, [&] {
        if (s.watch.failure)
            std::rethrow_exception(s.watch.failure);
        if (s.watch.stopped || (s.options.run != nullptr && s.options.run->isCancelled()))
            throw qxbase::CancelException("distributed", __LINE__);
        if (reason < 0 || !std::isfinite(result.residual))
            QX_RAISE("distributed", "Solution_did_not_converge",
                     qxbase::ExceptionArgs{{"Reason", KSPConvergedReasons[reason]},
                                           {"Iterations", std::to_string(iterations)},
                                           {"Residual", qxutil::toString(result.residual)}});
    });
    result.values = s.u.expanded(z.get(), system.options().lifted);
    return result;
}

} // namespace QX_SCALAR_NAMESPACE
} // namespace qx::distributed
