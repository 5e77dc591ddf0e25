// SPDX-License-Identifier: LicenseRef-qxkernel
// Runs that end badly, one a word: what they leave behind is judged by ends_with.
#include "distributed.hpp"

#include <petscksp.h>

#include <csignal>
#include <cstdio>
#include <stdexcept>
#include <string>

using namespace qx::distributed;

namespace {

/// A preconditioner that fails on the last rank alone, in the midst of an iteration.
extern "C" PetscErrorCode failOnLastRank(PC pc, Vec x, Vec y)
{
    int rank = 0;
    int size = 1;
    MPI_Comm_rank(PetscObjectComm(reinterpret_cast<PetscObject>(pc)), &rank);
    MPI_Comm_size(PetscObjectComm(reinterpret_cast<PetscObject>(pc)), &size);
    if (rank == size - 1)
        return PETSC_ERR_LIB;
    return VecCopy(x, y);
}

struct Small
{
    explicit Small(const Session& session) : unknowns(session, std::vector<Index>{session.rank()}, 1), system(unknowns)
    {
        const std::vector<Scalar> one{1.0};
        system.add({session.rank()}, {session.rank()}, one);
        system.addLoad(std::vector<Index>{session.rank()}, one);
        system.finish();
    }
    Unknowns unknowns;
    Assembly system;
};

int failInside()
{
    const Session session(MPI_COMM_WORLD, {.options = "", .patience = 1.0});
    const Small s(session);
    Solver solver(s.unknowns, {.direct = 0, .options = "-pc_type shell"});
    PC pc = nullptr;
    KSPGetPC(solver.ksp(), &pc);
    PCSetType(pc, PCSHELL);
    PCShellSetApply(pc, failOnLastRank);
    solver.solve(s.system);
    return 0;
}

int leave()
{
    const Session session;
    const Small s(session);
    if (session.rank() == session.size() - 1)
        throw std::runtime_error("nobody was told");
    MPI_Barrier(session.comm());
    return 0;
}

int die()
{
    const Session session;
    const Small s(session);
    if (session.rank() == session.size() - 1)
        raise(SIGKILL);
    MPI_Barrier(session.comm());
    return 0;
}

/// All agree on a failure that nobody catches inside the session: it ends in good order.
int agree()
{
    try {
        const Session session;
        const Small s(session);
        session.together([&] {
            if (session.rank() == session.size() - 1)
                QX_RAISE("test", "Told_to_all");
        });
    } catch (const qxbase::Exception& e) {
        std::fprintf(stderr, "%s", e.toString().c_str());
        return 3;
    }
    return 0;
}

/// A host that has started MPI and PETSc, and ends them itself; the session works on half of its ranks.
int host(int argc, char** argv)
{
    PetscInitialize(&argc, &argv, nullptr, nullptr);
    int rank = 0;
    MPI_Comm_rank(MPI_COMM_WORLD, &rank);
    MPI_Comm half = MPI_COMM_NULL;
    MPI_Comm_split(MPI_COMM_WORLD, rank % 2, rank, &half);
    {
        const Session session(half);
        const Small s(session);
        if (Solver(s.unknowns).solve(s.system).values.front() != Scalar(1.0))
            return 1;
    }
    MPI_Comm_free(&half);
    Vec still = nullptr; // PETSc is there still
    VecCreateSeq(PETSC_COMM_SELF, 3, &still);
    VecDestroy(&still);
    PetscFinalize();
    try {
        const Session late;
    } catch (const qxbase::Exception& e) {
        if (e.getId() == "MPI_is_finalized" && rank == 0)
            std::fprintf(stderr, "host is done\n");
        return 0;
    }
    return 1;
}

/// Two sessions one after the other, each of which starts and ends what it needs.
int again()
{
    MPI_Init(nullptr, nullptr);
    for (int k = 0; k < 2; ++k) {
        const Session session;
        const Small s(session);
        Solver(s.unknowns).solve(s.system);
    }
    MPI_Finalize();
    std::fprintf(stderr, "twice is done\n");
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    const std::string word = argc > 1 ? argv[1] : "";
    try {
        return word == "inside" ? failInside() : word == "leave" ? leave() : word == "die" ? die() : word == "agree" ? agree()
             : word == "host" ? host(argc, argv) : word == "again" ? again() : 99;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s\n", e.what());
        return 4;
    } catch (const qxbase::Exception& e) {
        std::fprintf(stderr, "%s\n", e.toString().c_str());
        return 5;
    }
}
