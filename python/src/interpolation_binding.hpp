// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "interpolator.hpp"

#include <boost/shared_ptr.hpp>
#include <pybind11/pybind11.h>

/// An interpolator as Python holds it: the kernel shares it by boost::shared_ptr.
struct TableFunction
{
    boost::shared_ptr<Interpolator> function;
};

void bindInterpolation(pybind11::module_& module);
