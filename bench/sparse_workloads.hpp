// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// Matrices of the sparse benchmarks, in the forms of the library and of its peers, and helpers to compare them.

#include "qxparallel.hpp"
#include "sparse.hpp"

#include <Eigen/SparseCore>
#include <suitesparse/cs.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace qxbench {

using Index = unsigned long;
template <class I>
using EigenMatrix = Eigen::SparseMatrix<double, Eigen::ColMajor, I>;

struct CsRelease
{
    void operator()(cs_dl* a) const { cs_dl_spfree(a); }
};
using CsPtr = std::unique_ptr<cs_dl, CsRelease>;

struct Triplets
{
    std::string name;
    Index n = 0;
    std::vector<Index> row, col;
    std::vector<double> val;

    void add(Index i, Index j, double v)
    {
        row.push_back(i);
        col.push_back(j);
        val.push_back(v);
    }
};

/// Points of a box grid with a stencil that reaches the neighbours which `takes` accepts; diagonally dominant.
template <class Takes>
Triplets stencil(const std::string& name, long nx, long ny, long nz, const Takes& takes)
{
    Triplets t{name, Index(nx * ny * nz), {}, {}, {}};
    for (long z = 0; z < nz; ++z)
        for (long y = 0; y < ny; ++y)
            for (long x = 0; x < nx; ++x)
                for (long dz = -1; dz <= 1; ++dz)
                    for (long dy = -1; dy <= 1; ++dy)
                        for (long dx = -1; dx <= 1; ++dx) {
                            const long u = x + dx, v = y + dy, w = z + dz;
                            if (u < 0 || v < 0 || w < 0 || u >= nx || v >= ny || w >= nz || !takes(dx, dy, dz))
                                continue;
                            const bool diagonal = dx == 0 && dy == 0 && dz == 0;
                            t.add(Index(u + nx * (v + ny * w)), Index(x + nx * (y + ny * z)), diagonal ? 30.0 : -1.0 - 0.01 * double(dx));
                        }
    return t;
}

inline Triplets poisson2d()
{
    return stencil("poisson2d-1000", 1000, 1000, 1, [](long x, long y, long z) { return z == 0 && x * x + y * y <= 1; });
}
inline Triplets poisson3d()
{
    return stencil("poisson3d-60", 60, 60, 60, [](long x, long y, long z) { return x * x + y * y + z * z <= 1; });
}
inline Triplets hex27()
{
    return stencil("stencil27-60", 60, 60, 60, [](long, long, long) { return true; });
}
inline Triplets randomColumns()
{
    Triplets t{"random-200k", 200000, {}, {}, {}};
    std::mt19937_64 random(1);
    for (Index j = 0; j < t.n; ++j) {
        t.add(j, j, 20.0);
        for (int k = 1; k < 10; ++k)
            t.add(random() % t.n, j, double(random() % 1000) / 1000.0);
    }
    return t;
}
/// Contributions of 8-node hexahedra, element by element: 64 triplets each.
inline Triplets hexahedra(long n)
{
    Triplets t{"hexahedra-" + std::to_string(n), Index((n + 1) * (n + 1) * (n + 1)), {}, {}, {}};
    for (long e = 0; e < n * n * n; ++e) {
        Index node[8];
        for (long c = 0; c < 8; ++c)
            node[c] = Index((e % n + (c & 1)) + (n + 1) * ((e / n) % n + ((c >> 1) & 1) + (n + 1) * (e / (n * n) + (c >> 2))));
        for (int i = 0; i < 8; ++i)
            for (int j = 0; j < 8; ++j)
                t.add(node[j], node[i], i == j ? 8.0 : 1.0 / double(1 + i + j));
    }
    return t;
}
/// Every triplet four times, pass by pass.
inline Triplets fourTimes(const Triplets& once)
{
    Triplets t{once.name + " x4", once.n, {}, {}, {}};
    for (int k = 0; k < 4; ++k)
        for (Index e = 0; e < once.row.size(); ++e)
            t.add(once.row[e], once.col[e], once.val[e] / double(k + 1));
    return t;
}

inline Sparse assemble(const Triplets& t)
{
    Sparse A;
    A.triplet2sparse(t.row.data(), t.row.size(), t.col.data(), t.col.size(), t.val.data(), t.val.size(), t.n, t.n, false);
    return A;
}

template <class I>
EigenMatrix<I> toEigen(const Sparse& A)
{
    std::vector<Eigen::Triplet<double, I>> list;
    for (Index j = 0; j < A.getN(); ++j)
        for (Index p = A.getColPtr()[j]; p < A.getColPtr()[j + 1]; ++p)
            list.emplace_back(I(A.getRow()[p]), I(j), A.getDoubleVal()[p]);
    EigenMatrix<I> E(I(A.getM()), I(A.getN()));
    E.setFromTriplets(list.begin(), list.end());
    return E;
}

/// A view for CSparse on the arrays of A.
inline cs_dl toCs(const Sparse& A)
{
    return {long(A.getNzmax()), long(A.getM()), long(A.getN()), reinterpret_cast<long*>(A.getColPtr()),
            reinterpret_cast<long*>(A.getRow()), A.getDoubleVal(), -1};
}

/// A number that changes with any entry: sum of val sin(row + 2 col), with its scale.
template <class P, class R>
double fingerprint(Index n, const P* colPtr, const R* row, const double* val)
{
    double sum = 0.0;
    for (Index j = 0; j < n; ++j)
        for (Index p = Index(colPtr[j]); p < Index(colPtr[j + 1]); ++p)
            sum += val[p] * (1.5 + std::sin(double(row[p]) + 2.0 * double(j)));
    return sum;
}
inline double fingerprint(const Sparse& A) { return fingerprint(A.getN(), A.getColPtr(), A.getRow(), A.getDoubleVal()); }
inline double fingerprint(const cs_dl& A) { return fingerprint(Index(A.n), A.p, A.i, A.x); }
template <class I>
double fingerprint(const EigenMatrix<I>& A)
{
    return fingerprint(Index(A.cols()), A.outerIndexPtr(), A.innerIndexPtr(), A.valuePtr());
}
inline double relative(double a, double b) { return std::abs(a - b) / std::max(std::abs(b), 1e-300); }

/// Runs work with a number of threads available to the library.
template <class F>
void withThreads(int threads, const F& work)
{
    const int before = qxbase::setAvailableThreads(threads);
    work();
    qxbase::setAvailableThreads(before);
}

/// Prints by how much the process's peak memory exceeds what it held before work, beside a size to compare with.
void reportPeak(const char* name, double resultBytes, const std::function<void()>& work);

} // namespace qxbench
