// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include <complex>
#include <cstddef>
#include <string>

namespace qx {

/// The values of a variable: an array that is lent, or one number for all points.
struct PointColumn
{
    std::string name;
    bool isComplex = false;
    const double* real = nullptr;                  ///< a real array
    const std::complex<double>* complex = nullptr; ///< a complex array
    std::complex<double> number{};                 ///< without an array
    bool isArray = false;                          ///< also without points, where the pointers may be null

    std::complex<double> at(std::size_t i) const { return !isArray ? number : isComplex ? complex[i] : real[i]; }
};

} // namespace qx
