#pragma once

#include <pybind11/pybind11.h>

void bindInterpolation(pybind11::module_& module);
