// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// Oracles and helpers of the sparse tests: dense matrices computed the slow way, random matrices, thread counts.

#include "qxexception.hpp"
#include "qxparallel.hpp"
#include "sparse.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <complex>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

namespace qxtest {

using cplx = std::complex<double>;
using Index = unsigned long;

/// Dense column-major matrix of complex numbers: the slow, plain oracle.
struct Dense
{
    Index m = 0, n = 0;
    std::vector<cplx> v;

    Dense(Index m_, Index n_) : m(m_), n(n_), v(m_ * n_) {}
    /// Rows of numbers as they are written.
    Dense(std::initializer_list<std::initializer_list<cplx>> rows);
    cplx& operator()(Index i, Index j) { return v[i + m * j]; }
    const cplx& operator()(Index i, Index j) const { return v[i + m * j]; }
};

Dense operator+(const Dense& a, const Dense& b);
Dense operator-(const Dense& a, const Dense& b);
Dense operator*(cplx s, const Dense& a);
Dense operator*(const Dense& a, const Dense& b);
Dense op(const Dense& a, Trans_t trans);

/// The stored matrix in logical orientation: transposed for RowStored, a summand for Symmetric and Hermitian.
Dense storedDense(const Sparse& A);
/// The matrix that A stands for.
Dense dense(const Sparse& A);
Dense dense(const Matrix<1>& x);

/// Every element within tol of the other's (0: equal). Prints the worst element.
testing::AssertionResult near(const Dense& got, const Dense& wanted, double tol);

struct Entry
{
    Index row, col;
    cplx val;
};
/// A matrix assembled from entries, real unless told otherwise, left unsorted.
Sparse sparseOf(Index m, Index n, const std::vector<Entry>& entries, bool real = true, Symm_t symm = Unsymmetric);
/// Stored entries in store order.
std::vector<Entry> entries(const Sparse& A);

/// count random entries at random places of the logical m-by-n matrix, merged; values in [-1, 1).
Sparse randomSparse(Index m, Index n, Index count, bool real, Symm_t symm, unsigned seed);
/// The same with a dominant diagonal, for sweeps; square.
Sparse randomDominant(Index n, Index count, bool real, Symm_t symm, unsigned seed);
Matrix<1> randomVector(Index n, bool real, unsigned seed);

/// All fields, arrays and attributes equal, values bit for bit; versions are not looked at.
testing::AssertionResult sameBits(const Sparse& a, const Sparse& b);
testing::AssertionResult sameBits(const Matrix<1>& a, const Matrix<1>& b);

/// Identifier of the qxbase::Exception that leaves f, "" if none does; "module:identifier" with source set.
std::string raised(const std::function<void()>& f, bool source = false);

/// AVAILABLETHREADS is count for a scope.
class Threads
{
public:
    explicit Threads(int count) : before_(qxbase::setAvailableThreads(count)) {}
    ~Threads() { qxbase::setAvailableThreads(before_); }

private:
    int before_;
};

inline const std::vector<Symm_t> allLayouts = {Unsymmetric, Symmetric, Hermitian, RowStored};
inline const std::vector<Trans_t> allTrans = {NoTrans, Trans, ConjTrans};
std::string name(Symm_t symm);

} // namespace qxtest
