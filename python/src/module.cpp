// The compiled half of the Python package: thin, positional, typed. Names, defaults, documentation and the conversion of
// what users hand over live in the Python half (qxkernel/*.py), which is the only caller.

#include "dae_binding.hpp"
#include "dense_binding.hpp"
#include "direct_binding.hpp"
#include "failures.hpp"
#include "interpolation_binding.hpp"
#include "interruptible.hpp"
#include "sparse_binding.hpp"
#include "symbolic_binding.hpp"

#include <pybind11/pybind11.h>

namespace py = pybind11;

PYBIND11_MODULE(_core, module)
{
    // Functions and objects of the kernel are shared by all threads of the process; two interpreters with a lock each
    // would call into them at once.
    if (PyInterpreterState_Get() != PyInterpreterState_Main())
        throw py::import_error("qxkernel does not run in a sub-interpreter");
    module.attr("version") = QX_VERSION;
    bindFailures(module);
    bindInterruptible(module);
    bindSymbolic(module);
    bindDae(module);
    bindSparse(module);
    bindDirect(module);
    bindDense(module);
    bindInterpolation(module);
}
