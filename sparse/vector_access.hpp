// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// How products and sweeps reach the elements of real, complex and mixed vectors.

#include "matrix.hpp"
#include "scalar.hpp"
#include "sparse_detail.hpp"
#include "team.hpp"

#include <algorithm>
#include <optional>

namespace qxsparse {

/// The elements of a vector, or of a column of a matrix, for reading. Holds a share of the array: a later write to the
/// same Matrix object gets a private copy.
class VectorView
{
public:
    explicit VectorView(const Matrix<1>& x) : vector_(x), size_(x.size())
    {
        x.isReal() ? void(d_ = x.gethdArr().data()) : void(z_ = x.gethzArr().data());
    }
    VectorView(const Matrix<2>& x, unsigned long column) : matrix_(x), size_(x.size(0))
    {
        x.isReal() ? void(d_ = x.gethdArr().data() + size_ * column) : void(z_ = x.gethzArr().data() + size_ * column);
    }
    bool isReal() const { return z_ == nullptr; }
    unsigned long size() const { return size_; }
    template <class X>
    const X* data() const
    {
        if constexpr (std::is_same_v<X, double>)
            return d_;
        else
            return z_;
    }

private:
    std::optional<Matrix<1>> vector_;
    std::optional<Matrix<2>> matrix_;
    unsigned long size_;
    const double* d_ = nullptr;
    const cplx* z_ = nullptr;
};

template <class T>
T* writable(Matrix<1>& y)
{
    if constexpr (std::is_same_v<T, double>)
        return y.getdArr().data();
    else
        return y.getzArr().data();
}

template <class T>
const T* readable(const Matrix<1>& x)
{
    if constexpr (std::is_same_v<T, double>)
        return x.gethdArr().data();
    else
        return x.gethzArr().data();
}

/// f(store, y, x) with raw vectors; y is promoted first if A or x is complex. x is copied if it is y's own buffer.
template <class F>
void withProductTypes(Matrix<1>& y, const Sparse& A, const VectorView& x, const F& f)
{
    visitStore(A, [](const auto& s) { checkSummand(s); });
    const auto call = [&](const auto& store, auto* yData, const auto* xData) {
        using X = std::remove_cvref_t<decltype(*xData)>;
        if (static_cast<const void*>(yData) != static_cast<const void*>(xData) || x.size() == 0) {
            f(store, yData, xData);
            return;
        }
        const Scratch<X> copy(x.size());
        std::copy_n(xData, x.size(), copy.get());
        f(store, yData, static_cast<const X*>(copy.get()));
    };
    if (y.isReal() && A.isReal() && x.isReal())
        return call(*A.getptrD(), writable<double>(y), x.data<double>());
    cplx* yData = writable<cplx>(y);
    if (A.isReal())
        x.isReal() ? call(*A.getptrD(), yData, x.data<double>()) : call(*A.getptrD(), yData, x.data<cplx>());
    else
        x.isReal() ? call(*A.getptrZ(), yData, x.data<double>()) : call(*A.getptrZ(), yData, x.data<cplx>());
}

/// What a sweep would run out of bounds with: short vectors, a matrix that is not square.
template <class... Vectors>
void checkSweepVectors(const Sparse& A, const Vectors&... vectors)
{
    const unsigned long size = std::max(A.getM(), A.getN());
    if (((vectors.size() < size) || ...))
        QX_RAISE("sparse", "Size_vector_sparse_matrix_disagree");
    checkSquare(Symmetric, A.getM(), A.getN());
}

/// Columns columns(k), k < count, without a diagonal position. The form bit is not asked for: what counts is what the
/// kernels read.
template <class Columns>
void checkDiagonal(const Sparse& A, unsigned long count, const Columns& columns)
{
    visitStore(A, [&](const auto& s) {
        const unsigned long nnz = s.nnz(), known = s.diagArray ? s.diagArray->size() : 0;
        for (unsigned long k = 0; k < count; ++k)
            if (const unsigned long j = columns(k); j >= known || s.diag[j] >= nnz)
                QX_RAISE("sparse", "Internal_error_sparse",
                         qxbase::ExceptionArgs{{"Missing_diagonal_entry", std::to_string(j)},
                                               {"Size", std::to_string(s.n)}});
    });
}

/// f(store, element type) with the vectors of a sweep promoted to one type if A or one of them is complex.
template <class F, class... Vectors>
int promoted(const Sparse& A, const F& f, Vectors&... vectors)
{
    if (A.isReal() && (vectors.isReal() && ...))
        return f(*A.getptrD(), double());
    (vectors.real2complex(), ...);
    return A.isReal() ? f(*A.getptrD(), cplx()) : f(*A.getptrZ(), cplx());
}

/// The same after the checks of a sweep over all columns.
template <class F, class... Vectors>
int withSweepTypes(const Sparse& A, const F& f, Vectors&... vectors)
{
    checkSweepVectors(A, vectors...);
    checkDiagonal(A, visitStore(A, [](const auto& s) { return s.n; }), [](unsigned long k) { return k; });
    return promoted(A, f, vectors...);
}

} // namespace qxsparse
