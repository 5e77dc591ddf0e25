// SPDX-License-Identifier: LicenseRef-qxkernel
// The compiled half of the Python package: thin, positional, typed. Names, defaults, documentation and the conversion of
// what users hand over live in the Python half (qxkernel/*.py), which is the only caller.

#include "dae_binding.hpp"
#include "dense_binding.hpp"
#include "direct_binding.hpp"
#include "failures.hpp"
#include "formulas_binding.hpp"
#include "gil.hpp"
#include "interpolation_binding.hpp"
#include "interruptible.hpp"
#include "optimizer_binding.hpp"
#include "sparse_binding.hpp"
#include "symbolic_binding.hpp"

#include "qxparallel.hpp"

#include <pybind11/pybind11.h>

namespace py = pybind11;

// The entry point gets another name here: see below.
#define PyInit__core PyInit__coreInMainInterpreter

PYBIND11_MODULE(_core, module)
{
    module.attr("version") = QX_VERSION;
    module.def("threads", &AVAILABLETHREADS);
    watchInterpreter();
    bindFailures(module);
    bindInterruptible(module);
    bindSymbolic(module);
    bindDae(module);
    bindSparse(module);
    bindDirect(module);
    bindDense(module);
    bindInterpolation(module);
    bindFormulas(module);
    bindOptimizer(module);
}

#undef PyInit__core

/// Functions and objects of the kernel are shared by all threads of the process; two interpreters with a lock each would
/// call into them at once. Asked before pybind11 does anything, which waits for ever in a sub-interpreter.
extern "C" PYBIND11_EXPORT PyObject* PyInit__core()
{
    if (PyInterpreterState_Get() == PyInterpreterState_Main())
        return PyInit__coreInMainInterpreter();
    PyErr_SetString(PyExc_ImportError, "qxkernel does not run in a sub-interpreter");
    return nullptr;
}
