// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// The slow model of the sparse fuzz targets: dense matrices of complex long doubles.

#include "sparse.hpp"

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace fuzz {

using Wide = std::complex<long double>;
using Index = unsigned long;

struct Dense
{
    Index m = 0, n = 0;
    std::vector<Wide> v;

    Dense() = default;
    Dense(Index m_, Index n_) : m(m_), n(n_), v(m_ * n_) {}
    Wide& operator()(Index i, Index j) { return v[i + m * j]; }
    const Wide& operator()(Index i, Index j) const { return v[i + m * j]; }
};

/// f(entry index i, j) for every element of a new m-by-n matrix.
template <class F>
Dense made(Index m, Index n, const F& f)
{
    Dense d(m, n);
    for (Index j = 0; j < n; ++j)
        for (Index i = 0; i < m; ++i)
            d(i, j) = f(i, j);
    return d;
}

inline Dense transposed(const Dense& a, bool conjugate)
{
    return made(a.n, a.m, [&](Index i, Index j) { return conjugate ? std::conj(a(j, i)) : a(j, i); });
}

inline Dense times(const Dense& a, const Dense& b)
{
    return made(a.m, b.n, [&](Index i, Index j) {
        Wide sum = 0;
        for (Index k = 0; k < a.n; ++k)
            sum += a(i, k) * b(k, j);
        return sum;
    });
}

inline Dense sum(const Wide& alpha, const Dense& a, const Dense& b)
{
    return made(a.m, a.n, [&](Index i, Index j) { return alpha * a(i, j) + b(i, j); });
}

inline double largest(const Dense& a)
{
    long double most = 0;
    for (const Wide& x : a.v)
        most = std::max(most, std::abs(x));
    return static_cast<double>(most);
}

/// The stored matrix S of a handle. Ends the program if the store breaks its own promises.
inline Dense stored(const Sparse& A)
{
    const bool byRow = A.getSymm() == RowStored;
    const Index m = byRow ? A.getN() : A.getM(), n = byRow ? A.getM() : A.getN(), *colPtr = A.getColPtr();
    Dense d(m, n);
    if (colPtr[0] != 0 || colPtr[n] != A.getNnz() || A.getNnz() > A.getNzmax())
        std::abort();
    for (Index j = 0; j < n; ++j) {
        if (colPtr[j + 1] < colPtr[j])
            std::abort();
        for (Index p = colPtr[j]; p < colPtr[j + 1]; ++p) {
            const Index i = A.getRow()[p];
            if (i >= m || ((A.getForm() & FormSorted) && p > colPtr[j] && i <= A.getRow()[p - 1]))
                std::abort();
            d(i, j) += A.isReal() ? Wide(A.getDoubleVal()[p]) : Wide(A.getDcmplxVal()[p]);
        }
    }
    return d;
}

/// The matrix that a store S stands for.
inline Dense represented(const Dense& s, Symm_t symm)
{
    if (symm == RowStored)
        return transposed(s, false);
    return symm == Unsymmetric ? s : sum(1, transposed(s, symm == Hermitian), s);
}

/// Equal to rounding; anything else ends the program and says where.
inline void expectEqual(const Dense& got, const Dense& wanted, const char* what)
{
    if (got.m != wanted.m || got.n != wanted.n) {
        std::fprintf(stderr, "%s: %lu by %lu, wanted %lu by %lu\n", what, got.m, got.n, wanted.m, wanted.n);
        std::abort();
    }
    const long double tolerance = 1e-9L * (1 + largest(wanted));
    for (Index k = 0; k < got.v.size(); ++k)
        if (!(std::abs(got.v[k] - wanted.v[k]) <= tolerance)) {
            std::fprintf(stderr, "%s: element %lu is (%Lg, %Lg), wanted (%Lg, %Lg)\n", what, k, got.v[k].real(), got.v[k].imag(),
                         wanted.v[k].real(), wanted.v[k].imag());
            std::abort();
        }
}

} // namespace fuzz
