// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// Small sparse matrices, their dense form and failures, for the tests of this folder.

#include "qxexception.hpp"
#include "sparse.hpp"
#include "support/failure.hpp"

#include <cmath>
#include <complex>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace solverstest {

using cplx = std::complex<double>;
using Dense = std::vector<std::vector<cplx>>; ///< by rows

constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

using qxtest::detailOf;
using qxtest::failureOf;
using qxtest::idOf;

/// The stored matrix with the given rows; zeros are not stored. Complex if an entry is, or if asked for.
inline Sparse sparseOf(const Dense& rows, bool forceComplex = false, unsigned long columnsIfEmpty = 0)
{
    std::vector<unsigned long> is, js;
    std::vector<cplx> values;
    bool real = !forceComplex;
    for (unsigned long i = 0; i < rows.size(); ++i)
        for (unsigned long j = 0; j < rows[i].size(); ++j)
            if (rows[i][j] != 0.0) {
                is.push_back(i);
                js.push_back(j);
                values.push_back(rows[i][j]);
                real = real && rows[i][j].imag() == 0.0;
            }
    const unsigned long n = rows.empty() ? columnsIfEmpty : rows[0].size();
    Sparse S;
    if (real) {
        std::vector<double> reals;
        for (const cplx& v : values)
            reals.push_back(v.real());
        S.triplet2sparse(is, js, reals, rows.size(), n);
    } else
        S.triplet2sparse(is, js, values, rows.size(), n);
    return S;
}

/// The matrix that a handle stands for, whatever its storage.
inline Dense denseOf(const Sparse& A)
{
    Dense D(A.getM(), std::vector<cplx>(A.getN()));
    const bool byRows = A.getSymm() == RowStored;
    const unsigned long columns = byRows ? A.getM() : A.getN();
    for (unsigned long j = 0; A.getNnz() != 0 && j < columns; ++j)
        for (unsigned long k = A.getColPtr()[j]; k < A.getColPtr()[j + 1]; ++k) {
            const unsigned long i = A.getRow()[k];
            const cplx v = A.isReal() ? cplx(A.getDoubleVal()[k]) : A.getDcmplxVal()[k];
            if (byRows)
                D[j][i] += v;
            else
                D[i][j] += v;
            if (A.getSymm() == Symmetric)
                D[j][i] += v;
            if (A.getSymm() == Hermitian)
                D[j][i] += std::conj(v);
        }
    return D;
}

inline Dense times(const Dense& A, const Dense& B)
{
    Dense C(A.size(), std::vector<cplx>(B.empty() ? 0 : B[0].size()));
    for (std::size_t i = 0; i < A.size(); ++i)
        for (std::size_t k = 0; k < B.size(); ++k)
            for (std::size_t j = 0; j < C[i].size(); ++j)
                C[i][j] += A[i][k] * B[k][j];
    return C;
}

inline Dense transposed(const Dense& A, bool conjugate = false)
{
    Dense B(A.empty() ? 0 : A[0].size(), std::vector<cplx>(A.size()));
    for (std::size_t i = 0; i < A.size(); ++i)
        for (std::size_t j = 0; j < B.size(); ++j)
            B[j][i] = conjugate ? std::conj(A[i][j]) : A[i][j];
    return B;
}

inline double largest(const Dense& A)
{
    double v = 0.0;
    for (const auto& row : A)
        for (const cplx& a : row)
            v = std::isnan(std::abs(a)) ? std::abs(a) : std::max(v, std::abs(a));
    return v;
}

/// All entries within tolerance; says where the worst one is.
inline testing::AssertionResult allNear(const Dense& got, const Dense& wanted, double tolerance)
{
    if (got.size() != wanted.size() || (!got.empty() && got[0].size() != wanted[0].size()))
        return testing::AssertionFailure() << got.size() << " rows by " << (got.empty() ? 0 : got[0].size())
                                           << " columns, wanted " << wanted.size() << " by "
                                           << (wanted.empty() ? 0 : wanted[0].size());
    for (std::size_t i = 0; i < got.size(); ++i)
        for (std::size_t j = 0; j < got[i].size(); ++j)
            if (!(std::abs(got[i][j] - wanted[i][j]) <= tolerance))
                return testing::AssertionFailure() << "entry " << i << ", " << j << ": got " << got[i][j] << ", wanted "
                                                   << wanted[i][j] << ", tolerance " << tolerance;
    return testing::AssertionSuccess();
}

/// Random dense rows, a share of the entries zero; the same numbers in every run.
inline Dense randomDense(unsigned long m, unsigned long n, unsigned seed, bool complex = false, double share = 1.0)
{
    std::mt19937 generator(seed);
    std::uniform_real_distribution<double> uniform(-1.0, 1.0), chance(0.0, 1.0);
    Dense D(m, std::vector<cplx>(n));
    for (auto& row : D)
        for (cplx& v : row) {
            const double re = uniform(generator), im = uniform(generator);
            if (chance(generator) < share)
                v = complex ? cplx(re, im) : cplx(re);
        }
    return D;
}

inline Matrix<1> realVector(const std::vector<double>& values)
{
    Matrix<1> x(values.size(), true);
    std::copy(values.begin(), values.end(), x.getdArr().begin());
    return x;
}

inline Matrix<1> complexVector(const std::vector<cplx>& values)
{
    Matrix<1> x(values.size(), false);
    std::copy(values.begin(), values.end(), x.getzArr().begin());
    return x;
}

/// Second difference matrix of a grid with `edge` points in each of `dimensions` directions, plus shift on the diagonal.
inline Sparse laplacian(unsigned long edge, int dimensions, cplx shift = 0.0)
{
    unsigned long n = 1;
    for (int d = 0; d < dimensions; ++d)
        n *= edge;
    std::vector<unsigned long> is, js;
    std::vector<cplx> values;
    for (unsigned long k = 0; k < n; ++k) {
        is.push_back(k);
        js.push_back(k);
        values.push_back(2.0 * dimensions + shift);
        for (unsigned long stride = 1; stride < n; stride *= edge)
            for (const bool up : {false, true}) {
                const unsigned long place = k / stride % edge;
                if (up ? place + 1 < edge : place > 0) {
                    is.push_back(up ? k + stride : k - stride);
                    js.push_back(k);
                    values.emplace_back(-1.0);
                }
            }
    }
    Sparse S;
    if (shift.imag() != 0.0) {
        S.triplet2sparse(is, js, values, n, n);
        return S;
    }
    std::vector<double> reals;
    for (const cplx& v : values)
        reals.push_back(v.real());
    S.triplet2sparse(is, js, reals, n, n);
    return S;
}

} // namespace solverstest
