// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// The loops of a product with vectors, written once for every index width, element type, sign and share of the columns:
// serial, parallel and 32-bit forms round alike.

#include "scalar.hpp"
#include "transt.hpp"

#include <type_traits>

namespace qxsparse {

/// Compressed columns as the loops see them.
template <class T, class I = unsigned long>
struct ColumnView
{
    unsigned long n;
    const I* colPtr;
    const I* row;
    const T* val;
};

/// The columns first .. first + count - 1 of a store, whole; offsets are those of the first one on.
template <class I>
struct WholeColumns
{
    const I* offsets;
    unsigned long first, count;

    WholeColumns(const I* colPtr, unsigned long from, unsigned long to)
        : offsets(colPtr + from), first(from), count(to - from)
    {
    }
    unsigned long size() const { return count; }
    unsigned long column(unsigned long k) const { return first + k; }
    unsigned long begin(unsigned long k) const { return static_cast<unsigned long>(offsets[k]); }
    unsigned long end(unsigned long k) const { return static_cast<unsigned long>(offsets[k + 1]); }
};

/// A list of columns, of each the positions inside the rows of one thread.
struct ListedColumns
{
    const unsigned long *cols = nullptr, *starts = nullptr, *ends = nullptr;
    unsigned long count = 0;

    unsigned long size() const { return count; }
    unsigned long column(unsigned long k) const { return cols[k]; }
    unsigned long begin(unsigned long k) const { return starts[k]; }
    unsigned long end(unsigned long k) const { return ends[k]; }
};

/// y + term, or y - term.
template <bool Minus, class Y, class Z>
inline void accumulate(Y& y, const Z& term)
{
    if constexpr (Minus)
        y -= term;
    else
        y += term;
}

/// Asks for entries well ahead of the range: the processor's own prefetching loses its place at every short column.
template <class T, class I>
inline void prefetchEntries(const I* row, const T* val, unsigned long begin, unsigned long end)
{
    constexpr unsigned long ahead = 256, line = 64 / sizeof(T);
    for (unsigned long p = begin; p < end; p += line) {
        __builtin_prefetch(row + p + ahead);
        __builtin_prefetch(val + p + ahead);
    }
}

template <bool Minus, bool Conj, class T, class I, class Y, class X, class Columns>
inline void scatterColumn(const ColumnView<T, I>& s, Y* __restrict y, const X& xj, const Columns& columns, unsigned long k)
{
    const I* __restrict row = s.row;
    const T* __restrict val = s.val;
    const unsigned long begin = columns.begin(k), end = columns.end(k);
    prefetchEntries(row, val, begin, end);
    for (unsigned long p = begin; p < end; ++p)
        accumulate<Minus>(y[row[p]], mul(conjugateIf<Conj>(val[p]), xj));
}

/// y_j +-= sum of val x_row over column j. Y is the type of the products.
template <bool Minus, bool Conj, class T, class I, class Y, class X>
inline void gatherColumn(const ColumnView<T, I>& s, Y* __restrict y, const X* __restrict x, unsigned long j)
{
    const I* __restrict row = s.row;
    const T* __restrict val = s.val;
    decltype(mul(val[0], x[0])) sum{};
    const auto begin = static_cast<unsigned long>(s.colPtr[j]), end = static_cast<unsigned long>(s.colPtr[j + 1]);
    prefetchEntries(row, val, begin, end);
    for (unsigned long p = begin; p < end; ++p)
        sum += mul(conjugateIf<Conj>(val[p]), x[row[p]]);
    accumulate<Minus>(y[j], sum);
}

/// y_row +-= val x_j
template <bool Minus, bool Conj, class T, class I, class Y, class X, class Columns>
void scatter(const ColumnView<T, I>& s, Y* y, const X* x, const Columns& columns)
{
    for (unsigned long k = 0; k < columns.size(); ++k)
        scatterColumn<Minus, Conj>(s, y, x[columns.column(k)], columns, k);
}

/// y_j +-= sum of val x_row
template <bool Minus, bool Conj, class T, class I, class Y, class X>
void gather(const ColumnView<T, I>& s, Y* y, const X* x, unsigned long from, unsigned long to)
{
    for (unsigned long j = from; j < to; ++j)
        gatherColumn<Minus, Conj>(s, y, x, j);
}

/// Both, column by column: every y_i takes its terms in the order of the columns, whoever computes it.
template <bool Minus, bool ConjScatter, bool ConjGather, class T, class I, class Y, class X, class Columns>
void scatterAndGather(const ColumnView<T, I>& s, Y* y, const X* x, const Columns& columns, unsigned long from,
                      unsigned long to)
{
    unsigned long j = from; // next column to gather
    for (unsigned long k = 0; k < columns.size(); ++k) {
        const unsigned long column = columns.column(k);
        for (; j < column && j < to; ++j)
            gatherColumn<Minus, ConjGather>(s, y, x, j);
        scatterColumn<Minus, ConjScatter>(s, y, x[column], columns, k);
    }
    for (; j < to; ++j)
        gatherColumn<Minus, ConjGather>(s, y, x, j);
}

/// Branches once on layout and transposition. A real store knows no conjugation.
template <bool Minus, class T, class I, class Y, class X, class Columns>
void multiply(const ColumnView<T, I>& s, Symm_t symm, Y* y, const X* x, Trans_t trans, const Columns& columns,
              unsigned long from, unsigned long to)
{
    constexpr bool complexStore = !std::is_same_v<T, double>;
    switch (symm) {
    case Unsymmetric:
        if (trans == NoTrans)
            scatter<Minus, false>(s, y, x, columns);
        else if (complexStore && trans == ConjTrans)
            gather<Minus, true>(s, y, x, from, to);
        else
            gather<Minus, false>(s, y, x, from, to);
        break;
    case RowStored:
        if (trans == NoTrans)
            gather<Minus, false>(s, y, x, from, to);
        else if (complexStore && trans == ConjTrans)
            scatter<Minus, true>(s, y, x, columns);
        else
            scatter<Minus, false>(s, y, x, columns);
        break;
    case Symmetric:
        if (complexStore && trans == ConjTrans)
            scatterAndGather<Minus, true, true>(s, y, x, columns, from, to);
        else
            scatterAndGather<Minus, false, false>(s, y, x, columns, from, to);
        break;
    case Hermitian:
        if (!complexStore)
            scatterAndGather<Minus, false, false>(s, y, x, columns, from, to);
        else if (trans == Trans)
            scatterAndGather<Minus, true, false>(s, y, x, columns, from, to);
        else
            scatterAndGather<Minus, false, true>(s, y, x, columns, from, to);
        break;
    }
}

} // namespace qxsparse
