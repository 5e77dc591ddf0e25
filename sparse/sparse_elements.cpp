// SPDX-License-Identifier: LicenseRef-qxkernel
// Single elements, selection of rows and columns, other shapes.

#include "llsparse_detail.hpp"
#include "qxexception.hpp"
#include "team.hpp"

#include <algorithm>
#include <cstring>
#include <limits>

namespace {

using qxsparse::Scratch;

/// Where setElem finds row i, or where it would stand: its position and whether it is there.
struct Place
{
    unsigned long position;
    bool found;
};

Place findRow(const unsigned long* row, unsigned long begin, unsigned long end, unsigned long i, bool sorted)
{
    unsigned long p = begin;
    if (sorted)
        while (p < end && row[p] < i)
            ++p;
    else
        while (p < end && row[p] != i)
            ++p;
    return {p, p < end && row[p] == i};
}

/// Opens a slot at `position`, with a larger pair of arrays if the present one is full, and writes the entry there.
template <class T>
void insertEntry(llsparse<T>& s, unsigned long position, unsigned long count, unsigned long i, const T& value)
{
    const unsigned long behind = count - position;
    if (count + 1 > s.nzmax) {
        const unsigned long capacity = count + 1 + (count >> 5);
        boost::shared_ptr<Array<unsigned long, 1>> rows;
        boost::shared_ptr<Array<T, 1>> values;
        unsigned long* newRow = llsparse<T>::allocate(rows, capacity);
        T* newVal = llsparse<T>::allocate(values, capacity);
        std::copy_n(s.row, position, newRow);
        std::copy_n(s.val, position, newVal);
        std::copy_n(s.row + position, behind, newRow + position + 1);
        std::copy_n(s.val + position, behind, newVal + position + 1);
        s.nzmax = capacity;
        s.rowArray.swap(rows);
        s.row = newRow;
        s.valArray.swap(values);
        s.val = newVal;
    } else {
        std::copy_backward(s.row + position, s.row + count, s.row + count + 1);
        std::copy_backward(s.val + position, s.val + count, s.val + count + 1);
    }
    s.row[position] = i;
    s.val[position] = value;
}

/// Stored rows of a selection: map[i] is the new number of row i, or `count` for a row that is dropped.
Scratch<unsigned long> selectionMap(const unsigned long* keep, unsigned long count, unsigned long size)
{
    Scratch<unsigned long> map(size);
    std::fill_n(map.get(), size, count);
    for (unsigned long k = 0; k < count; ++k)
        map[keep[k]] = k;
    return map;
}

bool ascends(const unsigned long* keep, unsigned long count)
{
    return std::adjacent_find(keep, keep + count, [](auto a, auto b) { return a >= b; }) == keep + count;
}

} // namespace

template <class T>
void llsparse<T>::setElem(unsigned long i, unsigned long j, const T& value)
{
    if (symm == RowStored)
        std::swap(i, j);
    qxsparse::extent(i, 1);
    qxsparse::extent(j, 1);
    rowColptrVersion = getNewRowColptrVersion();

    if (j >= n) { // new columns up to j: the entry is stored even if it is zero
        const unsigned long count = nnz();
        boost::shared_ptr<IndexArray> offsets;
        unsigned long* newColPtr = allocate(offsets, j + 2);
        if (colPtr)
            std::copy_n(colPtr, n + 1, newColPtr);
        else
            newColPtr[0] = 0;
        std::fill(newColPtr + n + 1, newColPtr + j + 1, count);
        newColPtr[j + 1] = count + 1;
        insertEntry(*this, count, count, i, value);
        colPtrArray.swap(offsets);
        colPtr = newColPtr;
        n = j + 1;
        m = std::max(m, i + 1);
        return;
    }

    unsigned long position = colPtr[j + 1];
    if (i < m) {
        const Place place = findRow(row, colPtr[j], colPtr[j + 1], i, form & FormSorted);
        if (place.found) {
            val[place.position] = value;
            return;
        }
        if (value == T(0.0))
            return;
        position = place.position;
    }
    insertEntry(*this, position, colPtr[n], i, value);
    m = std::max(m, i + 1);
    for (unsigned long k = j + 1; k <= n; ++k)
        ++colPtr[k];
}

/// Stored columns keep[0], keep[1], ...: moved down in place when the list ascends, else gathered into new arrays.
template <class T>
void llsparse<T>::keepStoredColumns(const unsigned long* keep, unsigned long count)
{
    if (ascends(keep, count)) {
        unsigned long end = 0;
        for (unsigned long k = 0; k < count; ++k) {
            const unsigned long from = colPtr[keep[k]], length = colPtr[keep[k] + 1] - from;
            std::copy_n(row + from, length, row + end);
            std::copy_n(val + from, length, val + end);
            end += length;
            colPtr[k + 1] = end;
        }
        n = count;
        return;
    }
    llsparse result;
    result.m = m;
    result.n = count;
    result.symm = symm;
    result.form = form & ~FormSorted;
    result.allocColPtr();
    result.colPtr[0] = 0;
    for (unsigned long k = 0; k < count; ++k)
        result.colPtr[k + 1] = result.colPtr[k] + colPtr[keep[k] + 1] - colPtr[keep[k]];
    result.nzmax = result.nnz();
    result.allocRow();
    result.allocVal();
    for (unsigned long k = 0; k < count; ++k) {
        const unsigned long from = colPtr[keep[k]], length = colPtr[keep[k] + 1] - from;
        std::copy_n(row + from, length, result.row + result.colPtr[k]);
        std::copy_n(val + from, length, result.val + result.colPtr[k]);
    }
    adopt(result, false);
}

/// Stored rows keep[0], keep[1], ...: entries of other rows are dropped, the rest renumbered and compacted.
template <class T>
void llsparse<T>::keepStoredRows(const unsigned long* keep, unsigned long count)
{
    const Scratch<unsigned long> map = selectionMap(keep, count, m);
    unsigned long end = 0, from = 0;
    for (unsigned long j = 0; j < n; ++j) {
        const unsigned long to = colPtr[j + 1];
        for (unsigned long p = from; p < to; ++p) {
            const unsigned long i = map[row[p]];
            if (i < count) {
                row[end] = i;
                val[end++] = val[p];
            }
        }
        from = to;
        colPtr[j + 1] = end;
    }
    m = count;
    if (!ascends(keep, count))
        form = form & ~FormSorted;
}

template <class T>
void llsparse<T>::llsp_removeRows(const unsigned long* keep, unsigned long count)
{
    rowColptrVersion = getNewRowColptrVersion();
    if (symm == RowStored)
        keepStoredColumns(keep, count);
    else
        keepStoredRows(keep, count);
    releaseDiag();
}

template <class T>
void llsparse<T>::llsp_removeCols(const unsigned long* keep, unsigned long count)
{
    rowColptrVersion = getNewRowColptrVersion();
    if (symm == RowStored)
        keepStoredRows(keep, count);
    else
        keepStoredColumns(keep, count);
    releaseDiag();
}

template <class T>
void llsparse<T>::zeroCols(const llsparse& source, const int* mask)
{
    const bool byRow = source.symm == RowStored;
    llsparse result(source.m, source.n, source.nnz());
    result.symm = source.symm;
    result.form = source.form & ~FormDiag;
    unsigned long end = 0;
    for (unsigned long j = 0; j < source.n; ++j) {
        for (unsigned long p = source.colPtr[j]; p < source.colPtr[j + 1]; ++p)
            if (mask[byRow ? source.row[p] : j] < 1) {
                result.row[end] = source.row[p];
                result.val[end++] = source.val[p];
            }
        result.colPtr[j + 1] = end;
    }
    adopt(result, false);
}

template <class T>
void llsparse<T>::reshape(int m_, int n_)
{
    const bool byRow = symm == RowStored;
    const unsigned long rows = byRow ? n : m, columns = byRow ? m : n; // logical size before
    const auto newRows = static_cast<unsigned long>(m_), newColumns = static_cast<unsigned long>(n_);
    if (m_ < 0 || n_ < 0)
        QX_RAISE("sputil", "Internal_error_sparse");
    if (rows == newRows && columns == newColumns)
        return;
    if (unsigned long entries; __builtin_mul_overflow(rows, columns, &entries))
        QX_RAISE("sputil", "Internal_error_sparse");

    // New stored place of the entry at stored row i, column j.
    const auto moved = [&](unsigned long i, unsigned long j) {
        const unsigned long index = byRow ? j + rows * i : i + rows * j;
        const unsigned long r = index % newRows, c = index / newRows;
        return byRow ? std::pair(c, r) : std::pair(r, c);
    };
    llsparse result;
    result.m = byRow ? newColumns : newRows;
    result.n = byRow ? newRows : newColumns;
    result.symm = byRow ? RowStored : Unsymmetric;
    result.form = byRow ? FormNone : form & FormSorted; // the index orders columns only
    result.nzmax = nnz();
    result.allocColPtr();
    std::fill_n(result.colPtr, result.n + 1, 0UL);
    for (unsigned long j = 0; j < n; ++j)
        for (unsigned long p = colPtr[j]; p < colPtr[j + 1]; ++p) {
            if (newRows == 0)
                QX_RAISE("sputil", "Internal_error_sparse");
            const auto [r, c] = moved(row[p], j);
            if (r >= result.m || c >= result.n)
                QX_RAISE("sputil", "Internal_error_sparse");
            ++result.colPtr[c + 1];
        }
    qxsparse::runningSum(result.colPtr, result.n);
    result.allocRow();
    result.allocVal();
    const Scratch<unsigned long> next(result.n + 1);
    std::copy_n(result.colPtr, result.n + 1, next.get());
    for (unsigned long j = 0; j < n; ++j)
        for (unsigned long p = colPtr[j]; p < colPtr[j + 1]; ++p) {
            const auto [r, c] = moved(row[p], j);
            result.row[next[c]] = r;
            result.val[next[c]++] = val[p];
        }
    adopt(result, false);
}

template <class T>
void llsparse<T>::llsp_subMatrix(const llsparse& source, const int* rows, unsigned long nRows, const int* cols,
                                 unsigned long nCols)
{
    if (source.symm == RowStored) {
        std::swap(rows, cols);
        std::swap(nRows, nCols);
    }
    const Scratch<unsigned long> map(source.m);
    std::fill_n(map.get(), source.m, 0UL);
    for (unsigned long k = 0; k < nRows; ++k)
        map[static_cast<unsigned long>(rows[k])] = k + 1;

    llsparse result;
    result.m = nRows;
    result.n = nCols;
    result.symm = source.symm == RowStored ? RowStored : Unsymmetric;
    result.form = FormNone;
    result.allocColPtr();
    result.colPtr[0] = 0;
    const auto walk = [&](auto&& visit) {
        for (unsigned long k = 0; k < nCols; ++k) {
            const auto j = static_cast<unsigned long>(cols[k]);
            for (unsigned long p = source.colPtr[j]; p < source.colPtr[j + 1]; ++p)
                if (map[source.row[p]] != 0)
                    visit(k, p);
        }
    };
    std::fill_n(result.colPtr, nCols + 1, 0UL);
    walk([&](unsigned long k, unsigned long) { ++result.colPtr[k + 1]; });
    qxsparse::runningSum(result.colPtr, nCols);
    result.nzmax = result.nnz();
    result.allocRow();
    result.allocVal();
    unsigned long end = 0;
    walk([&](unsigned long, unsigned long p) {
        result.row[end] = map[source.row[p]] - 1;
        result.val[end++] = source.val[p];
    });
    adopt(result, false);
}

#define QX_INSTANTIATE(T)                                                                                             \
    template void llsparse<T>::setElem(unsigned long, unsigned long, const T&);                                       \
    template void llsparse<T>::keepStoredRows(const unsigned long*, unsigned long);                                   \
    template void llsparse<T>::keepStoredColumns(const unsigned long*, unsigned long);                                \
    template void llsparse<T>::llsp_removeRows(const unsigned long*, unsigned long);                                  \
    template void llsparse<T>::llsp_removeCols(const unsigned long*, unsigned long);                                  \
    template void llsparse<T>::zeroCols(const llsparse&, const int*);                                                 \
    template void llsparse<T>::reshape(int, int);                                                                     \
    template void llsparse<T>::llsp_subMatrix(const llsparse&, const int*, unsigned long, const int*, unsigned long);
QX_FOR_EACH_STORE(QX_INSTANTIATE)
