// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "distributed.hpp"

#include <petscsys.h>

#include <algorithm>
#include <exception>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace qx::distributed {
inline namespace QX_SCALAR_NAMESPACE {

/// What the objects of a session share. MPI and PETSc end with it if it started them.
struct SessionState
{
    MPI_Comm comm = MPI_COMM_NULL;
    int rank = 0;
    int size = 1;
    double patience = 10.0;
    bool startedMpi = false;
    bool startedPetsc = false;
    int passing = 0;              ///< exceptions that were under way when the session began
    mutable bool agreed = false;  ///< the last agreement was on a failure: it may pass on all ranks

    SessionState() = default;
    SessionState(const SessionState&) = delete;
    SessionState& operator=(const SessionState&) = delete;
    ~SessionState();

    enum class Place { local, insideCollective };
    /// Raises on all ranks if one has failed.
    void agree(const std::exception_ptr& failure, Place place) const;
    /// Whether collective calls may be made: not while a failure passes on this rank alone.
    bool mayCommunicate() const;
};

namespace detail {

using State = std::shared_ptr<SessionState>;

/// The failure of a call of PETSc's as the library's exception, with the first message that it gave.
void requireSuccess(PetscErrorCode code, const char* call);
#define QX_PETSC(call) ::qx::distributed::detail::requireSuccess((call), #call)

/// While one stands, failures of PETSc's are told by requireSuccess and nothing else happens.
class PetscErrors
{
public:
    PetscErrors();
    ~PetscErrors();
    PetscErrors(const PetscErrors&) = delete;
    PetscErrors& operator=(const PetscErrors&) = delete;
};

/// Local work of all ranks, and their agreement.
template <class Work>
void together(const SessionState& session, const Work& work)
{
    std::exception_ptr failure;
    try {
        const PetscErrors errors;
        work();
    } catch (...) {
        failure = std::current_exception();
    }
    session.agree(failure, SessionState::Place::local);
}

/// Calls that all ranks make together, and their agreement.
template <class Work>
void collectively(const SessionState& session, const Work& work)
{
    std::exception_ptr failure;
    try {
        const PetscErrors errors;
        work();
    } catch (...) {
        failure = std::current_exception();
    }
    session.agree(failure, SessionState::Place::insideCollective);
}

/// Owner of one of PETSc's objects. It is released together with its likes on other ranks, or not at all.
template <class Object, PetscErrorCode (*destroy)(Object*)>
class Owned
{
public:
    explicit Owned(State session) : session_(std::move(session)) {}
    ~Owned() { reset(); }
    Owned(const Owned&) = delete;
    Owned& operator=(const Owned&) = delete;

    void reset()
    {
        if (object_ != nullptr && session_->mayCommunicate())
            destroy(&object_);
        object_ = nullptr;
    }
    void swap(Owned& other)
    {
        std::swap(object_, other.object_);
    }
    /// For PETSc to write.
    Object* put()
    {
        reset();
        return &object_;
    }
    Object get() const { return object_; }

private:
    State session_;
    Object object_ = nullptr;
};

/// The first rank's list for all. Together.
template <class T>
void broadcast(const SessionState& session, std::vector<T>& list)
{
    auto size = static_cast<unsigned long long>(list.size());
    MPI_Bcast(&size, 1, MPI_UNSIGNED_LONG_LONG, 0, session.comm);
    list.resize(size);
    constexpr unsigned long long piece = (1u << 28) / sizeof(T);
    for (unsigned long long from = 0; from < size; from += piece)
        MPI_Bcast(list.data() + from, static_cast<int>(std::min(piece, size - from) * sizeof(T)), MPI_BYTE, 0, session.comm);
}

/// Sum over all ranks. Together.
Index sumOf(const SessionState& session, Index mine);

[[noreturn]] void raiseCount(const char* name, std::size_t expected, std::size_t found);

} // namespace detail
} // namespace QX_SCALAR_NAMESPACE
} // namespace qx::distributed
