// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include <pybind11/pybind11.h>

/// The GIL given up, and taken, for a scope: as pybind11's own guards, but safe when the interpreter ends meanwhile.
///
/// A thread that asks for the GIL while the interpreter ends is ended by Python in the middle of C++ frames, which ends
/// the process. Here it stops and waits for the end of the process instead; only daemon threads can get there.

/// Registers with atexit. Once, when the module is loaded.
void watchInterpreter();

class ReleasedGil
{
public:
    ReleasedGil() : state_(PyEval_SaveThread()) {}
    ~ReleasedGil();
    ReleasedGil(const ReleasedGil&) = delete;
    ReleasedGil& operator=(const ReleasedGil&) = delete;

private:
    PyThreadState* state_;
};

class AcquiredGil
{
public:
    AcquiredGil();
    ~AcquiredGil();
    AcquiredGil(const AcquiredGil&) = delete;
    AcquiredGil& operator=(const AcquiredGil&) = delete;

private:
    PyGILState_STATE state_;
};
