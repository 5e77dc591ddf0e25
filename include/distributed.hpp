// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "qxexception.hpp"
#include "qxexport.hpp"

#include <mpi.h>

#include <complex>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#ifdef QX_DISTRIBUTED_COMPLEX
#define QX_SCALAR_NAMESPACE of_complex
#else
#define QX_SCALAR_NAMESPACE of_real
#endif

namespace qxutil {
class RunInfo;
}

// PETSc's own objects, for those who borrow them; petsc.h declares them as Mat, Vec and KSP.
struct _p_Mat;
struct _p_Vec;
struct _p_KSP;

/// Systems of equations spread over the ranks of an MPI communicator: the elements' triplets are summed on each rank by
/// the kernel, constraints are eliminated by a null space, PETSc adds up what ranks share and solves.
///
///     qx::distributed::Session session(MPI_COMM_WORLD);
///     qx::distributed::Unknowns unknowns(session, numbers, owned, conditions);  // which unknowns this rank owns, touches
///     qx::distributed::Assembly system(unknowns);
///     session.together([&] { ... system.add(rows, columns, values); system.addLoad(at, loads); });
///     system.finish();
///     qx::distributed::Solver solver(unknowns, {.kind = qx::distributed::Kind::Spd});
///     const auto s = solver.solve(system);                                      // s.values, one for each of `numbers`
///
/// Two libraries hold the same classes: qxkernel_mpi_real with real numbers and qxkernel_mpi_complex, built with
/// QX_DISTRIBUTED_COMPLEX defined, with complex ones. They differ by an inline namespace; PETSc's two builds cannot live in
/// one process, so link one of them.
///
/// Failures. A call is either local or taken by all ranks together; "together" below means: every rank of the session
/// makes this call, and either it returns on all of them or all raise the same exception, the story of the lowest rank on
/// which it failed with a last entry "Failed_on_rank" with "Rank". Exceptions that are not the library's own travel as
/// "Exception_on_rank" with "Reason", exhausted memory as "Out_of_memory_on_rank". A failure inside one of PETSc's collective calls on some
/// ranks only leaves the others waiting there; nobody can call them back. The rank that failed then waits for
/// SessionOptions::patience, writes its story and ends the run by MPI_Abort. A failed call leaves its object as it was.
///
/// Raised from "distributed" besides what stands at the members: "PETSc_failed" with "Function", "Code", "Message";
/// "Out_of_memory_in_PETSc".
///
/// Threads: objects belong to one thread, the one that made the session; PETSc is called on no other. Sums of triplets fork
/// as the kernel says. Objects made from a session may outlive it. They are released together.
namespace qx::distributed {

inline namespace QX_SCALAR_NAMESPACE {

#ifdef QX_DISTRIBUTED_COMPLEX
using Scalar = std::complex<double>;
#else
using Scalar = double;
#endif

using Index = std::int64_t;

struct SessionOptions
{
    std::string options{};  ///< PETSc's options for the whole run as on a command line: "-log_view -options_left"
    double patience = 10.0; ///< seconds that a rank that failed inside a collective call waits for the others
};

struct SessionState;

/// The ranks that work together. Starts MPI (with MPI_THREAD_FUNNELED) and PETSc unless the host has, and ends what it
/// started when it and all objects made from it are gone. PETSc's handlers for signals and errors are not installed.
///
/// A session that goes while an exception passes that the ranks have not agreed on ends the run by MPI_Abort, since PETSc
/// can only be ended together.
class QX_API Session
{
public:
    /// Together. Raises "MPI_is_finalized".
    explicit Session(MPI_Comm comm = MPI_COMM_WORLD, const SessionOptions& options = {});
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    int rank() const;
    int size() const;
    MPI_Comm comm() const; ///< the session's own copy of the communicator, for point-to-point and collective calls

    /// Together: takes a step that may fail on some ranks. No rank may wait for another inside the step.
    template <class Step>
    void together(const Step& step) const
    {
        std::exception_ptr failure;
        try {
            step();
        } catch (...) {
            failure = std::current_exception();
        }
        agree(failure);
    }
    /// Together: what `together` ends with. Null: this rank did not fail. Cost: one reduction of an int.
    void agree(const std::exception_ptr& failure) const;
    /// Together: whether the run is cancelled on any rank; raises CancelException on all if so.
    void agreeOnCancel(const qxutil::RunInfo& run) const;

    const std::shared_ptr<SessionState>& state() const { return state_; }

private:
    std::shared_ptr<SessionState> state_;
};

/// Conditions  sum_k factor_k u_(unknown_k) = value  that a rank hands in: fixed values, periodic pairs, hanging nodes,
/// mean values over a few unknowns.
struct QX_API Conditions
{
    std::vector<Index> start{0};  ///< condition c has the entries start[c] ... start[c + 1] - 1
    std::vector<Index> unknown;
    std::vector<Scalar> factor;
    std::vector<Scalar> value;    ///< one a condition

    std::size_t size() const { return value.size(); }
    Conditions& add(std::span<const std::pair<Index, Scalar>> entries, Scalar wanted);
    Conditions& fix(Index which, Scalar wanted);
    /// u_a = u_b
    Conditions& join(Index a, Index b);
};

/// A condition by the rank that handed it in and its place there, from 0.
struct ConditionPlace
{
    int rank;
    Index condition;
    friend bool operator==(const ConditionPlace&, const ConditionPlace&) = default;
};

struct UnknownsOptions
{
    Index entryLimit = 10'000'000;  ///< entries of all conditions together
    qxutil::RunInfo* run = nullptr; ///< cancel, lent for the call
};

struct UnknownsState;

/// The unknowns u_0 ... u_(n-1) of a problem, numbered by the caller, who owns them and who touches them; and what the
/// conditions leave free:
///
///     u = particular + Null z,    N^H u = g  for any z
///
/// Conditions of all ranks are gathered, put in an order that does not depend on ranks, and reduced once by qxNull in the
/// unknowns that they name. A free unknown that no condition names has a row of Null with a single one. z is numbered from
/// 0 in the order of the free unknowns: the same numbers and the same Null for any number of ranks. PETSc sees z in an order of its own in which
/// each rank owns a range.
///
/// A condition over very many unknowns makes long columns. A mean over all unknowns is better left out: solve with
/// Solver::setNullSpace and shift the solution.
///
/// Threads, ownership: a cheap handle; copies share what is immutable.
class QX_API Unknowns
{
public:
    /// Together. numbers: the unknowns that this rank touches, each once, those first that it owns. Every unknown has one
    /// owner; n is the number of all that are owned.
    ///
    /// Raises "Unknown_out_of_range" with "Unknown", "Count" (here, and in conditions), "Unknown_listed_twice" with
    /// "Unknown", "Unknown_without_one_owner" with "Unknown", "Owners"; "Wrong_number_of_values" with "Name", "Expected",
    /// "Found" for conditions that do not fit together, "Value_not_finite" with "Condition"; "Too_many_condition_entries" with "Entries",
    /// "Limit"; "Contradicting_conditions" with "Rank", "Condition", "Difference", "Value" and "With", the others as
    /// "rank:condition" (the first 20 of "Others"); what qxNull raises; CancelException.
    ///
    /// Cost: conditions travel to the first rank and what it makes of them to all; each keeps what its numbers need.
    Unknowns(const Session& session, std::span<const Index> numbers, std::size_t owned, const Conditions& conditions = {},
             const UnknownsOptions& options = {});

    Index count() const;        ///< n
    Index freeCount() const;    ///< of z, on all ranks
    Index ownedFree() const;    ///< of z, in PETSc's order, on this rank
    Index firstFree() const;    ///< PETSc's number of the first of them
    std::size_t size() const;   ///< of numbers
    std::size_t owned() const;

    /// A solution of the conditions, one value for each of numbers.
    std::span<const Scalar> particular() const;
    /// Together: particular + Null z for the z that gives free unknowns the values handed in, one for each of numbers: a
    /// start that obeys the conditions. Those of other ranks' unknowns do not count. Raises "Wrong_number_of_values".
    std::vector<Scalar> admissible(std::span<const Scalar> values) const;
    /// The row of Null of numbers[k]: caller's numbers of z, ascending, and factors.
    std::vector<std::pair<Index, Scalar>> row(std::size_t k) const;
    /// Conditions that follow from others and were left out, in the order of ranks and conditions.
    const std::vector<ConditionPlace>& redundant() const;

    const std::shared_ptr<const UnknownsState>& state() const { return state_; }

private:
    std::shared_ptr<const UnknownsState> state_;
};

struct AssemblyOptions
{
    bool reuse = true;   ///< keeps 4 bytes a triplet, by which the next assembly on the same pattern costs a fraction
    bool lifted = true;  ///< solves for u; otherwise for a step Null z, whose conditions are all 0 (Newton's method)
};

struct AssemblyState;

/// A matrix and a right side, summed from elements and condensed:
///
///     K = Null^H A Null,    b = Null^H (f - A particular)
///
/// where A is the sum of all triplets of all ranks and f the sum of all loads; without `lifted` b is Null^H f.
///
/// Each rank's triplets are summed by the kernel as they come, a batch at a time; only distinct entries go to PETSc, which
/// sends those of shared rows to their owners. Sums run in the order of batches, within a batch in the order of triplets, then in
/// the order of ranks: the same bits for any number of threads, and for the same distribution over ranks. Other
/// distributions differ by rounding.
///
/// Memory a rank, with reuse: 16 bytes and a scalar for each distinct entry of each batch, 4 bytes a triplet. Without:
/// for each distinct entry of all batches. PETSc's own, while the matrix is made: see docs/pages/distributed.md.
class QX_API Assembly
{
public:
    /// Local.
    explicit Assembly(const Unknowns& unknowns, const AssemblyOptions& options = {});
    ~Assembly();
    Assembly(Assembly&&) noexcept;
    Assembly& operator=(Assembly&&) noexcept;

    /// Local: a batch of triplets A(rows[k], columns[k]) += values[k] in the caller's numbers, which this rank must touch.
    /// Nothing is raised: a failure is kept, what follows is ignored, and finish() raises it on all ranks, with an entry
    /// "In_batch" with "Batch": "Unknown_not_touched" with "Unknown", "Triplet"; "Wrong_number_of_values";
    /// "Value_not_finite"; "Pattern_is_kept" when values alone are wanted; "Out_of_memory_assembly".
    void add(std::vector<Index> rows, std::vector<Index> columns, std::span<const Scalar> values);
    /// Local, after restart() with reuse: the values of the next batch, whose rows and columns are those of last time.
    /// Failures are kept: "Wrong_number_of_values", "No_pattern_for_batch".
    void add(std::span<const Scalar> values);
    /// Local: f(unknowns[k]) += values[k]. Failures are kept as in add.
    void addLoad(std::span<const Index> unknowns, std::span<const Scalar> values);
    /// Together: makes the matrix and the right side. Raises also "Pattern_incomplete" with "Batches", "Expected" when fewer batches
    /// came than last time.
    void finish();
    /// Together: makes the right side alone, Null^H f; the matrix stays. For residuals between the steps of Newton's method.
    void finishLoads();
    /// Together: |b|. Raises "Assembly_not_finished".
    double rightSideNorm() const;
    /// Local: all values are 0 again. With reuse the pattern stays; without, batches come with rows and columns again.
    void restart();

    Index entries() const;     ///< of K that this rank has summed, shared rows counted at each sharer
    _p_Mat* matrix() const;    ///< K, borrowed; null before finish()
    _p_Vec* rightSide() const; ///< b, borrowed
    const Unknowns& unknowns() const;
    const AssemblyOptions& options() const;

private:
    std::unique_ptr<AssemblyState> state_;
};

/// What is known of K. It is never guessed.
enum class Kind {
    Spd,       ///< symmetric (Hermitian) positive definite
    Symmetric, ///< symmetric, perhaps indefinite
    General
};

/// The default methods, by kind: Spd conjugate gradients, General GMRES, both with algebraic multigrid (GAMG); Symmetric,
/// and problems up to `direct` unknowns, a factorisation by MUMPS. `options` change all of this.
struct SolverOptions
{
    Kind kind = Kind::General;
    double tolerance = 1e-10;       ///< of the residual, relative to the right side's
    int maxIterations = 10'000;
    Index direct = 2'000;           ///< problems up to this size are factorised
    std::string options{};          ///< PETSc's options for this solver: "-ksp_type bcgs -pc_type hypre -ksp_monitor"
    std::string prefix = "qx_";     ///< under which they stand in PETSc's table; options there from elsewhere count too
    qxutil::RunInfo* run = nullptr; ///< progress on rank 0, cancel on any; lent for the life of the object
};

struct Solution
{
    std::vector<Scalar> values;   ///< one for each of Unknowns' numbers
    int iterations = 0;
    double residual = 0.0;        ///< |b - K z| / |b|, computed anew; 0 for 0 / 0
    std::vector<double> history;  ///< norms by which the method judges itself, from the first
};

struct SolverState;

/// Solves K z = b by one of PETSc's methods.
///
/// The run reports under "Iterative solution": progress by the logarithm of the residual, the parameter "Iteration".
/// Cancel is looked at after each iteration, together; the set-up of a preconditioner and a factorisation cannot be interrupted.
class QX_API Solver
{
public:
    /// Together. Raises "Invalid_option" with "Option" for a text that is no list of options.
    explicit Solver(const Unknowns& unknowns, const SolverOptions& options = {});
    ~Solver();
    Solver(Solver&&) noexcept;
    Solver& operator=(Solver&&) noexcept;

    /// Together: vectors, each with a value for each of Unknowns' numbers, that K nearly annuls (the rigid body motions of
    /// an elastic body): multigrid keeps them. Given before the first solve. Raises "Wrong_number_of_values".
    void setNearNullSpace(const std::vector<std::vector<Scalar>>& vectors);
    /// Together: vectors that K annuls. The solution is orthogonal to them, as the right side is made to be.
    void setNullSpace(const std::vector<std::vector<Scalar>>& vectors);

    /// Together: sets up, iterates, expands. The matrix may be another one than last time.
    /// Raises "Unknown_option" with "Option" for each one among SolverOptions::options that nothing has asked for, before iterating;
    /// "Assembly_not_finished", "Assembly_of_other_unknowns"; "Solution_did_not_converge" with "Reason" (PETSc's name), "Iterations", "Residual"; CancelException.
    Solution solve(const Assembly& system);

    _p_KSP* ksp() const; ///< borrowed

private:
    std::unique_ptr<SolverState> state_;
};

} // namespace QX_SCALAR_NAMESPACE
} // namespace qx::distributed
