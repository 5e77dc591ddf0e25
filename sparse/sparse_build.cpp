// SPDX-License-Identifier: LicenseRef-qxkernel
// Construction of matrices from triplets and compressed columns.

#include "sparse_detail.hpp"
#include "team.hpp"

#include <algorithm>

namespace {

using namespace qxsparse;

/// All indices below `end`: one pass at memory speed.
void checkIndices(const unsigned long* index, unsigned long count, unsigned long end)
{
    const Team team = Team::ofLoop(count);
    std::vector<unsigned long> largest(static_cast<std::size_t>(team.size()));
    team.run([&](int share) {
        const Slice s = team.even(count, share);
        unsigned long most = 0;
        for (unsigned long k = s.from; k < s.to; ++k)
            most = std::max(most, index[k]);
        largest[static_cast<std::size_t>(share)] = most;
    });
    if (count > 0)
        checkIndex(*std::max_element(largest.begin(), largest.end()), end);
}

/// f on the elements of a vector, real or complex.
template <class F>
void visitVector(const Matrix<1>& x, const F& f)
{
    x.isReal() ? f(x.gethdArr().data()) : f(x.gethzArr().data());
}

} // namespace

Sparse& Sparse::zeros(unsigned long m, unsigned long n, unsigned long nzmax, bool real_)
{
    guarded([&] {
        if (real_)
            install(boost::shared_ptr<RealStore>(new RealStore(m, n, nzmax)));
        else
            install(boost::shared_ptr<ComplexStore>(new ComplexStore(m, n, nzmax)));
    });
    return *this;
}

Sparse& Sparse::eye(unsigned long m, unsigned long n)
{
    guarded([&] {
        const boost::shared_ptr<RealStore> store(new RealStore);
        store->eye(m, n);
        install(store);
    });
    return *this;
}

template <class V>
void Sparse::triplet2sparse(const unsigned long* rows, unsigned long nRows, const unsigned long* cols,
                            unsigned long nCols, const V* vals, unsigned long nVals, unsigned long m, unsigned long n,
                            bool constVal, const qxutil::RunInfo* run)
{
    guarded(
        [&] {
            checkLength(nRows == nCols && (constVal || nVals == nRows));
            checkNotTooLarge(nRows);
            const boost::shared_ptr<llsparse<V>> store(new llsparse<V>);
            store->triplet2sparse(rows, cols, vals, nRows, m, n, constVal, run);
            install(store);
        },
        outOfMemoryCreating);
}
template QX_API void Sparse::triplet2sparse(const unsigned long*, unsigned long, const unsigned long*, unsigned long,
                                            const double*, unsigned long, unsigned long, unsigned long, bool,
                                            const qxutil::RunInfo*);
template QX_API void Sparse::triplet2sparse(const unsigned long*, unsigned long, const unsigned long*, unsigned long,
                                            const cplx*, unsigned long, unsigned long, unsigned long, bool,
                                            const qxutil::RunInfo*);

void Sparse::triplet2sparse(const IndexArray& rows, const IndexArray& cols, const Matrix<1>& vals, unsigned long m,
                            unsigned long n)
{
    visitVector(vals, [&](const auto* v) {
        triplet2sparse(rows.data(), rows.size(), cols.data(), cols.size(), v, vals.size(), m, n, false);
    });
}

void Sparse::triplet2sparse(const IndexArray& rows, const IndexArray& cols, double val, unsigned long m,
                            unsigned long n)
{
    triplet2sparse(rows.data(), rows.size(), cols.data(), cols.size(), &val, 1, m, n, true);
}

void Sparse::triplet2sparse(const IndexArray& rows, const IndexArray& cols, Complex val, unsigned long m,
                            unsigned long n)
{
    triplet2sparse(rows.data(), rows.size(), cols.data(), cols.size(), &val, 1, m, n, true);
}

void Sparse::triplet2sparse(const std::vector<unsigned long>& rows, const std::vector<unsigned long>& cols,
                            const Matrix<1>& vals, unsigned long m, unsigned long n)
{
    visitVector(vals, [&](const auto* v) {
        triplet2sparse(rows.data(), rows.size(), cols.data(), cols.size(), v, vals.size(), m, n, false);
    });
}

void Sparse::triplet2sparse(const std::vector<unsigned long>& rows, const std::vector<unsigned long>& cols, double val,
                            unsigned long m, unsigned long n)
{
    triplet2sparse(rows.data(), rows.size(), cols.data(), cols.size(), &val, 1, m, n, true);
}

void Sparse::triplet2sparse(const std::vector<unsigned long>& rows, const std::vector<unsigned long>& cols,
                            Complex val, unsigned long m, unsigned long n)
{
    triplet2sparse(rows.data(), rows.size(), cols.data(), cols.size(), &val, 1, m, n, true);
}

void Sparse::triplet2sparse(const std::vector<unsigned long>& rows, const std::vector<unsigned long>& cols,
                            const std::vector<double>& vals, unsigned long m, unsigned long n)
{
    triplet2sparse(rows.data(), rows.size(), cols.data(), cols.size(), vals.data(), vals.size(), m, n, false);
}

void Sparse::triplet2sparse(const std::vector<unsigned long>& rows, const std::vector<unsigned long>& cols,
                            const std::vector<Complex>& vals, unsigned long m, unsigned long n)
{
    triplet2sparse(rows.data(), rows.size(), cols.data(), cols.size(), vals.data(), vals.size(), m, n, false);
}

template <class V>
void Sparse::compressed(const unsigned long* rows, unsigned long nRows, const unsigned long* colPtr,
                        unsigned long nColPtr, const V* vals, unsigned long nVals, unsigned long m, unsigned long n)
{
    guarded(
        [&] {
            checkLength(nRows == nVals && nColPtr == n + 1);
            checkNotTooLarge(nRows);
            if (colPtr[0] != 0 || colPtr[n] != nRows || !std::is_sorted(colPtr, colPtr + n + 1))
                QX_RAISE("sparse", "Internal_error_sparse");
            checkIndices(rows, nRows, m);
            const boost::shared_ptr<llsparse<V>> store(new llsparse<V>);
            store->sparseCopy(colPtr, rows, vals, m, n);
            install(store);
        },
        outOfMemoryCreating);
}

void Sparse::flat2sparse(const IndexArray& rows, const IndexArray& colPtr, const Matrix<1>& vals, unsigned long m,
                         unsigned long n)
{
    visitVector(vals, [&](const auto* v) {
        compressed(rows.data(), rows.size(), colPtr.data(), colPtr.size(), v, vals.size(), m, n);
    });
}

void Sparse::flat2sparse(const std::vector<unsigned long>& rows, const std::vector<unsigned long>& colPtr,
                         const Matrix<1>& vals, unsigned long m, unsigned long n)
{
    visitVector(vals, [&](const auto* v) {
        compressed(rows.data(), rows.size(), colPtr.data(), colPtr.size(), v, vals.size(), m, n);
    });
}
