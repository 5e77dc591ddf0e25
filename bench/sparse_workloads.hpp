// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// Matrices of the sparse benchmarks, in the forms of the library and of its peers, and helpers to compare them.

#include "harness.hpp"
#include "qxparallel.hpp"
#include "sparse.hpp"

#include <Eigen/SparseCore>
#include <suitesparse/cs.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <iterator>
#include <memory>
#include <numeric>
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
    void operator()(cs_di* a) const { cs_di_spfree(a); }
};
using CsPtr = std::unique_ptr<cs_dl, CsRelease>;
using CsIntPtr = std::unique_ptr<cs_di, CsRelease>;

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
    const long n = sized(1000, 40);
    return stencil("poisson2d-" + std::to_string(n), n, n, 1, [](long x, long y, long z) { return z == 0 && x * x + y * y <= 1; });
}
inline Triplets poisson3d()
{
    const long n = sized(60, 12);
    return stencil("poisson3d-" + std::to_string(n), n, n, n, [](long x, long y, long z) { return x * x + y * y + z * z <= 1; });
}
inline Triplets hex27()
{
    const long n = sized(57, 10);
    return stencil("stencil27-" + std::to_string(n), n, n, n, [](long, long, long) { return true; });
}
inline Triplets randomColumns()
{
    Triplets t{"random-" + std::to_string(sized(200, 2)) + "k", sized<Index>(200000, 2000), {}, {}, {}};
    std::mt19937_64 random(1);
    for (Index j = 0; j < t.n; ++j) {
        t.add(j, j, 20.0);
        for (int k = 1; k < 10; ++k)
            t.add(random() % t.n, j, double(random() % 1000) / 1000.0);
    }
    return t;
}

/// Contributions of elements that are given by their nodes, element by element: all pairs of its nodes, column by column.
template <std::size_t N>
Triplets elementMatrices(const std::string& name, Index nodes, const std::vector<std::array<Index, N>>& elements)
{
    Triplets t{name, nodes, {}, {}, {}};
    for (const auto& element : elements)
        for (std::size_t i = 0; i < N; ++i)
            for (std::size_t j = 0; j < N; ++j)
                t.add(element[j], element[i], i == j ? 8.0 : 1.0 / double(1 + i + j));
    return t;
}
/// 8-node hexahedra of a cube, in the order of the mesh or in a random one.
inline Triplets hexahedra(bool inMeshOrder)
{
    const Index n = sized<Index>(60, 10);
    std::vector<std::array<Index, 8>> elements;
    for (Index e = 0; e < n * n * n; ++e) {
        std::array<Index, 8> node;
        for (Index c = 0; c < 8; ++c)
            node[c] = e % n + (c & 1) + (n + 1) * ((e / n) % n + ((c >> 1) & 1) + (n + 1) * (e / (n * n) + (c >> 2)));
        elements.push_back(node);
    }
    if (!inMeshOrder)
        std::shuffle(elements.begin(), elements.end(), std::mt19937_64(1));
    return elementMatrices("hexahedra-" + std::to_string(n) + (inMeshOrder ? ", mesh order" : ", random order"),
                           (n + 1) * (n + 1) * (n + 1), elements);
}
/// Tetrahedra: six a cube (Kuhn's division), nodes and elements shuffled among 200 neighbours each, so that numbers are near
/// each other where nodes are, without a regular step, as mesh generators leave them.
inline Triplets tetrahedra()
{
    const Index n = sized<Index>(50, 8), side = n + 1;
    std::mt19937_64 random(1);
    const auto shuffledNearby = [&](auto& list) {
        for (std::size_t k = 0; k < list.size(); k += 200)
            std::shuffle(list.begin() + long(k), list.begin() + long(std::min(k + 200, list.size())), random);
    };
    std::vector<Index> number(side * side * side);
    std::iota(number.begin(), number.end(), Index{0});
    shuffledNearby(number);
    std::vector<std::array<Index, 4>> elements;
    const Index steps[3] = {1, side, side * side};
    for (Index z = 0; z < n; ++z)
        for (Index y = 0; y < n; ++y)
            for (Index x = 0; x < n; ++x) {
                int axes[3] = {0, 1, 2};
                do { // along the edges of the cube in each order of the axes
                    Index node = x + side * (y + side * z);
                    std::array<Index, 4> element{number[node]};
                    for (std::size_t k = 0; k < 3; ++k)
                        element[k + 1] = number[node += steps[axes[k]]];
                    elements.push_back(element);
                } while (std::next_permutation(axes, axes + 3));
            }
    shuffledNearby(elements);
    return elementMatrices("tetrahedra-" + std::to_string(elements.size() / 1000) + "k", side * side * side, elements);
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
/// Every triplet four times: four cursors take turns, each a quarter of the list ahead of the one before it.
inline Triplets fourCursors(const Triplets& once)
{
    Triplets t{once.name + ", four cursors", once.n, {}, {}, {}};
    const Index length = once.row.size();
    for (Index k = 0; k < length; ++k)
        for (Index cursor = 0; cursor < 4; ++cursor) {
            const Index e = (k + cursor * (length / 4)) % length;
            t.add(once.row[e], once.col[e], once.val[e] / double(cursor + 1));
        }
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
inline double fingerprint(const cs_di& A) { return fingerprint(Index(A.n), A.p, A.i, A.x); }
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

/// Notes the versions of Eigen and CXSparse, and that Eigen takes one thread until told otherwise.
void introducePeers();

/// While it lives, freed memory stays with the process on huge pages, for ours and for every peer alike: times without the
/// page faults of fresh memory.
class WarmMemory
{
public:
    explicit WarmMemory(std::size_t bytes);
    ~WarmMemory();
    WarmMemory(const WarmMemory&) = delete;
    WarmMemory& operator=(const WarmMemory&) = delete;
};

/// Bytes by which the process's peak memory exceeds what it held before work.
double peakMemory(const std::function<void()>& work);
/// Prints by how much the process's peak memory exceeds what it held before work, beside a size to compare with.
void reportPeak(const char* name, double resultBytes, const std::function<void()>& work);

} // namespace qxbench
