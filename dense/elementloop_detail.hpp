// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// Loops over the elements of vectors: one writer per element, so the same bits for any number of threads.

#include "qxparallel.hpp"

#include <complex>

namespace qxarray_detail {

/// body(i) for every i below n; parallel by the rule for element loops. body must not throw.
template <class Body>
void elementLoop(unsigned long n, Body body)
{
    if (!qxbase::isParallelLoop(n)) {
        for (unsigned long i = 0; i < n; ++i)
            body(i);
        return;
    }
#pragma omp parallel for schedule(static) num_threads(AVAILABLETHREADS())
    for (unsigned long i = 0; i < n; ++i)
        body(i);
}

// Products by the plain formula: the operator of std::complex repairs infinities and does not vectorise.
inline double product(double a, double b) { return a * b; }
inline std::complex<double> product(const std::complex<double>& a, double b) { return {a.real() * b, a.imag() * b}; }
inline std::complex<double> product(double a, const std::complex<double>& b) { return product(b, a); }
inline std::complex<double> product(const std::complex<double>& a, const std::complex<double>& b)
{
    return {a.real() * b.real() - a.imag() * b.imag(), a.real() * b.imag() + a.imag() * b.real()};
}

} // namespace qxarray_detail
