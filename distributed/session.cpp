// SPDX-License-Identifier: LicenseRef-qxkernel
#include "distributed/session_detail.hpp"
#include "distributed/story_detail.hpp"

#include "qxrun.hpp"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <sstream>
#include <thread>
#include <utility>

namespace qx::distributed {
inline namespace QX_SCALAR_NAMESPACE {

namespace {

/// The first message of a failing call, by thread: PETSc has one, tests of ours perhaps more.
thread_local std::string petscMessage;
thread_local std::string petscFunction;

extern "C" PetscErrorCode keepFirstMessage(MPI_Comm, int, const char* function, const char*, PetscErrorCode code,
                                           PetscErrorType type, const char* message, void*)
{
    if (type == PETSC_ERROR_INITIAL) {
        petscMessage = message != nullptr ? message : "";
        petscFunction = function != nullptr ? function : "";
    }
    return code;
}

std::vector<std::string> wordsOf(const std::string& text)
{
    std::istringstream in(text);
    std::vector<std::string> words;
    for (std::string word; in >> word;)
        words.push_back(word);
    return words;
}

/// PETSc's own start, with the options as a command line. Our comm is the world that it sees.
void startPetsc(MPI_Comm comm, const std::string& options)
{
    std::vector<std::string> words = wordsOf(options);
    words.insert(words.begin(), "qxkernel");
    words.emplace_back("-no_signal_handler");
    std::vector<char*> pointers;
    for (std::string& word : words)
        pointers.push_back(word.data());
    pointers.push_back(nullptr);
    int count = static_cast<int>(words.size());
    char** arguments = pointers.data();
    PETSC_COMM_WORLD = comm;
    detail::requireSuccess(PetscInitialize(&count, &arguments, nullptr, nullptr), "PetscInitialize");
}

} // namespace

namespace detail {

void requireSuccess(PetscErrorCode code, const char* call)
{
    if (code == 0)
        return;
    if (code == PETSC_ERR_MEM)
        QX_RAISE("distributed", "Out_of_memory_in_PETSc");
    std::string name(call);
    name = name.substr(0, name.find('('));
    QX_RAISE("distributed", "PETSc_failed",
             qxbase::ExceptionArgs{{"Function", name},
                                   {"Code", std::to_string(code)},
                                   {"Message", std::exchange(petscMessage, {})},
                                   {"Where", std::exchange(petscFunction, {})}});
}

PetscErrors::PetscErrors()
{
    petscMessage.clear();
    petscFunction.clear();
    PetscPushErrorHandler(keepFirstMessage, nullptr);
}

PetscErrors::~PetscErrors() { PetscPopErrorHandler(); }

Index sumOf(const SessionState& session, Index mine)
{
    Index all = 0;
    MPI_Allreduce(&mine, &all, 1, MPI_INT64_T, MPI_SUM, session.comm);
    return all;
}

void raiseCount(const char* name, std::size_t expected, std::size_t found)
{
    QX_RAISE("distributed", "Wrong_number_of_values",
             qxbase::ExceptionArgs{
                 {"Name", name}, {"Expected", std::to_string(expected)}, {"Found", std::to_string(found)}});
}

} // namespace detail

SessionState::~SessionState()
{
    int mpiIsOver = 0;
    MPI_Finalized(&mpiIsOver);
    if (mpiIsOver != 0 || !mayCommunicate())
        return;
    if (startedPetsc && PetscInitializeCalled)
        PetscFinalize();
    if (comm != MPI_COMM_NULL)
        MPI_Comm_free(&comm);
    if (startedMpi)
        MPI_Finalize();
}

bool SessionState::mayCommunicate() const
{
    return std::uncaught_exceptions() <= passing || agreed;
}

void SessionState::agree(const std::exception_ptr& failure, Place place) const
{
    using Clock = std::chrono::steady_clock;
    int first = size;
    const int mine = failure ? rank : size;
    MPI_Request request = MPI_REQUEST_NULL;
    MPI_Iallreduce(&mine, &first, 1, MPI_INT, MPI_MIN, comm, &request);
    if (!failure || place == Place::local) {
        MPI_Wait(&request, MPI_STATUS_IGNORE);
    } else {
        const auto end = Clock::now() + std::chrono::duration<double>(patience);
        int all = 0;
        while (MPI_Test(&request, &all, MPI_STATUS_IGNORE), all == 0) {
            if (Clock::now() > end) {
                std::fprintf(stderr, "qxkernel: rank %d failed inside a call in which others wait for it; the run ends.\n%s",
                             rank, detail::storyOf(failure).c_str());
                std::fflush(stderr);
                MPI_Abort(comm, 1);
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    agreed = first < size;
    if (first == size)
        return;
    std::string story = failure && rank == first ? detail::packed(failure) : std::string();
    int length = static_cast<int>(story.size());
    MPI_Bcast(&length, 1, MPI_INT, first, comm);
    story.resize(static_cast<std::size_t>(length));
    MPI_Bcast(story.data(), length, MPI_CHAR, first, comm);
    detail::raisePacked(story, first);
}

Session::Session(MPI_Comm given, const SessionOptions& options) : state_(std::make_shared<SessionState>())
{
    SessionState& s = *state_;
    s.passing = std::uncaught_exceptions();
    s.patience = options.patience;
    int mpiRuns = 0;
    int mpiIsOver = 0;
    MPI_Initialized(&mpiRuns);
    MPI_Finalized(&mpiIsOver);
    if (mpiIsOver != 0)
        QX_RAISE("distributed", "MPI_is_finalized");
    if (mpiRuns == 0) {
        int provided = 0;
        MPI_Init_thread(nullptr, nullptr, MPI_THREAD_FUNNELED, &provided);
        s.startedMpi = true;
    }
    MPI_Comm_dup(given, &s.comm);
    MPI_Comm_rank(s.comm, &s.rank);
    MPI_Comm_size(s.comm, &s.size);
    detail::collectively(s, [&] {
        if (!PetscInitializeCalled) {
            startPetsc(s.comm, options.options);
            s.startedPetsc = true;
        } else {
            QX_PETSC(PetscOptionsInsertString(nullptr, options.options.c_str()));
        }
    });
}

Session::~Session()
{
    int mpiIsOver = 0;
    MPI_Finalized(&mpiIsOver);
    if (mpiIsOver != 0 || state_->mayCommunicate())
        return;
    std::fprintf(stderr, "qxkernel: rank %d leaves its session while the others go on; the run ends.\n", state_->rank);
    std::fflush(stderr);
    MPI_Abort(state_->comm, 1);
}

int Session::rank() const { return state_->rank; }
int Session::size() const { return state_->size; }
MPI_Comm Session::comm() const { return state_->comm; }

void Session::agree(const std::exception_ptr& failure) const
{
    state_->agree(failure, SessionState::Place::local);
}

void Session::agreeOnCancel(const qxutil::RunInfo& run) const
{
    together([&] { run.throwIfCancelled("distributed", __LINE__); });
}

} // namespace QX_SCALAR_NAMESPACE
} // namespace qx::distributed
