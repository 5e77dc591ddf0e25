// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// Real and complex arithmetic as the kernels write it: products by the plain formula (no recovery of infinities), so
// that loops vectorise and every path rounds alike.

#include <cmath>
#include <complex>

namespace qxsparse {

using cplx = std::complex<double>;

inline double mul(double a, double b) { return a * b; }
inline cplx mul(double a, const cplx& b) { return {a * b.real(), a * b.imag()}; }
inline cplx mul(const cplx& a, double b) { return {a.real() * b, a.imag() * b}; }
inline cplx mul(const cplx& a, const cplx& b)
{
    return {a.real() * b.real() - a.imag() * b.imag(), a.real() * b.imag() + a.imag() * b.real()};
}

inline double conjugate(double a) { return a; }
inline cplx conjugate(const cplx& a) { return {a.real(), -a.imag()}; }

template <bool Conj, class T>
inline T conjugateIf(const T& a)
{
    if constexpr (Conj)
        return conjugate(a);
    else
        return a;
}

/// Quotient by Smith's ratio method: the larger part of b is divided out first, so that no square of b is formed.
/// Source: R. L. Smith, Algorithm 116, CACM 5 (1962) 435.
inline double divide(double a, double b) { return a / b; }
inline cplx divide(const cplx& a, double b) { return {a.real() / b, a.imag() / b}; }
inline cplx divide(const cplx& a, const cplx& b)
{
    if (std::abs(b.real()) >= std::abs(b.imag())) {
        const double ratio = b.imag() / b.real();
        const double denominator = b.real() + b.imag() * ratio;
        return {(a.real() + a.imag() * ratio) / denominator, (a.imag() - a.real() * ratio) / denominator};
    }
    const double ratio = b.real() / b.imag();
    const double denominator = b.imag() + b.real() * ratio;
    return {(a.real() * ratio + a.imag()) / denominator, (a.imag() * ratio - a.real()) / denominator};
}
inline cplx divide(double a, const cplx& b) { return divide(cplx(a), b); }

inline double squaredAbs(double a) { return a * a; }
inline double squaredAbs(const cplx& a) { return a.real() * a.real() + a.imag() * a.imag(); }
inline double magnitude(double a) { return std::abs(a); }
inline double magnitude(const cplx& a) { return std::hypot(a.real(), a.imag()); }

} // namespace qxsparse
