// SPDX-License-Identifier: LicenseRef-qxkernel
#include "interruptible.hpp"

#include "gil.hpp"

#include <chrono>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <thread>
#include <utility>

namespace py = pybind11;

namespace {

/// The thread that works; joined before the frame ends whatever happens.
class Worker
{
public:
    template <class Work>
    explicit Worker(Work work)
        : thread_([this, work] {
              try {
                  work();
              } catch (...) {
                  failure_ = std::current_exception();
              }
              const std::lock_guard lock(mutex_);
              done_ = true;
              ended_.notify_one();
          })
    {
    }
    ~Worker() { thread_.join(); }

    bool waitFor(std::chrono::milliseconds time)
    {
        std::unique_lock lock(mutex_);
        return ended_.wait_for(lock, time, [this] { return done_; });
    }
    std::exception_ptr failure() const { return failure_; }

private:
    std::mutex mutex_;
    std::condition_variable ended_;
    bool done_ = false;
    std::exception_ptr failure_;
    std::thread thread_;
};

} // namespace

void Run::onProgress(const std::string& title, double fraction)
{
    if (progress_ == nullptr || failure_)
        return;
    const AcquiredGil gil;
    try {
        (*progress_)(title, fraction);
    } catch (py::error_already_set&) {
        failure_ = std::current_exception();
        info_.cancel();
    }
}

void Run::execute(const RunOptions& options, const std::function<void(qxutil::RunInfo&)>& work)
{
    info_.cancel(false);
    failure_ = nullptr;
    progress_ = options.progress.is_none() ? nullptr : &options.progress;
    std::exception_ptr failure, signalled;
    {
        const ReleasedGil released;
        Worker worker([&] { work(info_); });
        while (!worker.waitFor(std::chrono::milliseconds(50))) {
            if (options.cancel && options.cancel->isCancelled())
                info_.cancel();
            const AcquiredGil gil;
            if (!signalled && PyErr_CheckSignals() != 0) {
                signalled = std::make_exception_ptr(py::error_already_set());
                info_.cancel();
            }
        }
        failure = worker.failure();
    }
    progress_ = nullptr;
    if (signalled)
        std::rethrow_exception(signalled);
    if (failure_)
        std::rethrow_exception(std::exchange(failure_, nullptr));
    if (failure)
        std::rethrow_exception(failure);
}

void runInterruptible(const RunOptions& options, const std::function<void(qxutil::RunInfo&)>& work)
{
    Run().execute(options, work);
}

void bindInterruptible(py::module_& module)
{
    py::class_<CancelToken, std::shared_ptr<CancelToken>>(module, "CancelToken", R"(A wish to stop, for calls that take long.

Hand it over as `cancel=token`; `token.cancel()` on any thread ends the call with qxkernel.Cancelled within about 50 ms
of the next point at which the kernel looks. On the main thread Ctrl-C does the same without a token.)")
        .def(py::init<>())
        .def("cancel", &CancelToken::cancel, "Asks the calls that hold this token to stop.")
        .def("clear", &CancelToken::clear, "Takes the wish back.")
        .def_property_readonly("cancelled", &CancelToken::isCancelled);
}
