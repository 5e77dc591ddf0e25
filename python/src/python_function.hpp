// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "formulas.hpp"
#include "qxrun.hpp"

#include <pybind11/pybind11.h>

#include <exception>
#include <string>
#include <vector>

/// What a Python function of the user's has raised during a call into the kernel. The kernel would make an error of the
/// point of it; users want their own exception back. The run is cancelled instead, and the caller raises what is kept.
///
/// One for each call, on the thread that makes it: formulas with Python functions are evaluated by one thread.
class RaisedInPython
{
public:
    explicit RaisedInPython(qxutil::RunInfo& run);
    ~RaisedInPython();
    RaisedInPython(const RaisedInPython&) = delete;
    RaisedInPython& operator=(const RaisedInPython&) = delete;

    /// Raises what was kept, if anything. The GIL is held.
    void rethrow();

    static RaisedInPython* current();
    void keep(std::exception_ptr failure);

private:
    qxutil::RunInfo& run_;
    std::exception_ptr failure_;
    RaisedInPython* outer_;
};

/// A kernel function that calls a Python one with arrays of a block of points and takes an array of as many numbers, or
/// one number, back. The arrays are copies: Python may keep them.
qx::Function pythonFunction(const pybind11::object& function, int arguments, const std::vector<std::string>& parameters,
                            const std::vector<std::string>& derivatives, bool takesComplex);
