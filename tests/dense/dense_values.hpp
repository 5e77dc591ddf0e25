// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// Matrices, references and failures for the tests of this folder.

#include "array.hpp"
#include "qxexception.hpp"
#include "qxparallel.hpp"
#include "support/alloc_fault.hpp"
#include "support/failure.hpp"

#include <algorithm>
#include <cmath>
#include <complex>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace densetest {

using cplx = std::complex<double>;

constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double eps = std::numeric_limits<double>::epsilon();

using qxtest::detailOf;
using qxtest::failureOf;
using qxtest::idOf;

template <class T>
T conjugate(const T& x)
{
    if constexpr (std::is_same_v<T, cplx>)
        return std::conj(x);
    else
        return x;
}

/// Uniform in [-1, 1], in both parts of a complex number; the same numbers in every run.
template <class T>
T randomNumber(std::mt19937& generator)
{
    std::uniform_real_distribution<double> uniform(-1.0, 1.0);
    if constexpr (std::is_same_v<T, cplx>) {
        const double re = uniform(generator);
        return {re, uniform(generator)};
    } else
        return uniform(generator);
}

template <class T>
Array<T, 1> randomVector(unsigned long n, unsigned seed)
{
    std::mt19937 generator(seed);
    Array<T, 1> x(n);
    for (T& value : x)
        value = randomNumber<T>(generator);
    return x;
}

template <class T>
Array<T, 2> randomMatrix(unsigned long m, unsigned long n, unsigned seed)
{
    std::mt19937 generator(seed);
    Array<T, 2> A(m, n);
    for (T& value : A)
        value = randomNumber<T>(generator);
    return A;
}

/// Rows as written.
template <class T>
Array<T, 2> matrixOf(std::initializer_list<std::initializer_list<T>> rows)
{
    Array<T, 2> A(rows.size(), rows.size() == 0 ? 0 : rows.begin()->size());
    unsigned long i = 0;
    for (const auto& row : rows) {
        unsigned long j = 0;
        for (const T& value : row)
            A(i, j++) = value;
        ++i;
    }
    return A;
}

template <class T>
Array<T, 1> vectorOf(std::initializer_list<T> values)
{
    Array<T, 1> x(values.size());
    std::copy(values.begin(), values.end(), x.begin());
    return x;
}

template <class T>
Array<T, 2> identity(unsigned long n)
{
    Array<T, 2> A(n, n);
    A = T(0);
    for (unsigned long i = 0; i < n; ++i)
        A(i, i) = T(1);
    return A;
}

template <class T>
Array<T, 2> adjointOf(const Array<T, 2>& A)
{
    Array<T, 2> B(A.extent(1), A.extent(0));
    for (unsigned long j = 0; j < A.extent(1); ++j)
        for (unsigned long i = 0; i < A.extent(0); ++i)
            B(j, i) = conjugate(A(i, j));
    return B;
}

/// Plain triple loop: the slow independent product.
template <class T>
Array<T, 2> product(const Array<T, 2>& A, const Array<T, 2>& B)
{
    Array<T, 2> C(A.extent(0), B.extent(1));
    C = T(0);
    for (unsigned long j = 0; j < B.extent(1); ++j)
        for (unsigned long k = 0; k < A.extent(1); ++k)
            for (unsigned long i = 0; i < A.extent(0); ++i)
                C(i, j) += A(i, k) * B(k, j);
    return C;
}

template <class T>
Array<T, 2> columnOf(const Array<T, 1>& x)
{
    Array<T, 2> C(x.size(), 1);
    std::copy(x.begin(), x.end(), C.begin());
    return C;
}

template <class T>
Array<T, 2> upperTriangle(const Array<T, 2>& A)
{
    Array<T, 2> R(std::min(A.extent(0), A.extent(1)), A.extent(1));
    R = T(0);
    for (unsigned long j = 0; j < A.extent(1); ++j)
        for (unsigned long i = 0; i < std::min(j + 1, R.extent(0)); ++i)
            R(i, j) = A(i, j);
    return R;
}

/// All elements within tolerance; says where the worst one is.
template <class T, int N>
testing::AssertionResult allNear(const Array<T, N>& got, const Array<T, N>& wanted, double tolerance)
{
    for (int d = 0; d < N; ++d)
        if (got.extent(d) != wanted.extent(d))
            return testing::AssertionFailure()
                   << "extent " << d << " is " << got.extent(d) << ", wanted " << wanted.extent(d);
    unsigned long worst = 0;
    double error = 0.0;
    for (unsigned long i = 0; i < got.size(); ++i) {
        const double e = std::abs(got[i] - wanted[i]);
        if (!(e <= error)) {
            worst = i;
            error = e;
            if (std::isnan(e))
                break;
        }
    }
    if (error <= tolerance)
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << "element " << worst % got.extent(0) << ", " << worst / got.extent(0) << ": got "
                                       << got[worst] << ", wanted " << wanted[worst] << ", error " << error
                                       << ", tolerance " << tolerance;
}

template <class T, int N>
testing::AssertionResult sameBits(const Array<T, N>& got, const Array<T, N>& wanted)
{
    return allNear(got, wanted, 0.0);
}

} // namespace densetest
