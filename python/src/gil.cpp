// SPDX-License-Identifier: LicenseRef-qxkernel
#include "gil.hpp"

#include <atomic>
#include <chrono>
#include <thread>

namespace py = pybind11;

namespace {

std::atomic<bool> interpreterEnds{false};
std::atomic<int> threadsThatAsk{0}; // have seen that the interpreter lives, and do not hold the GIL yet

/// Between the look at the flag and the moment at which the GIL is there the interpreter must not end.
class Asking
{
public:
    Asking()
    {
        ++threadsThatAsk;
        if (interpreterEnds) {
            --threadsThatAsk;
            for (;;)
                std::this_thread::sleep_for(std::chrono::hours(1));
        }
    }
    ~Asking() { --threadsThatAsk; }
};

/// The main thread's, after the exit functions have run and its own have come back.
void end()
{
    interpreterEnds = true;
    PyThreadState* const state = PyEval_SaveThread();
    while (threadsThatAsk > 0)
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    PyEval_RestoreThread(state);
}

} // namespace

void watchInterpreter() { py::module_::import("atexit").attr("register")(py::cpp_function(&end)); }

ReleasedGil::~ReleasedGil()
{
    const Asking asking;
    PyEval_RestoreThread(state_);
}

AcquiredGil::AcquiredGil()
{
    const Asking asking;
    state_ = PyGILState_Ensure();
}

AcquiredGil::~AcquiredGil() { PyGILState_Release(state_); }
