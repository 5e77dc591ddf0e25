// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// The work form of a matrix during sparse elimination.

#include "array.hpp"
#include "llsparse.hpp"
#include "qxexception.hpp"

#include <algorithm>
#include <boost/shared_ptr.hpp>
#include <cmath>
#include <complex>
#include <limits>
#include <vector>

namespace qxnull_detail {

inline double squaredMagnitude(double x) { return x * x; }
inline double squaredMagnitude(const std::complex<double>& x) { return x.real() * x.real() + x.imag() * x.imag(); }

/// x 2^exponent: exact but for underflow.
inline double timesPowerOf2(double x, int exponent) { return exponent == 0 ? x : std::ldexp(x, exponent); }
inline std::complex<double> timesPowerOf2(const std::complex<double>& x, int exponent)
{
    return {timesPowerOf2(x.real(), exponent), timesPowerOf2(x.imag(), exponent)};
}

/// One column: rows ascending, each once. Explicit zeros are entries.
template <class T>
struct colData
{
    unsigned long count = 0;
    std::vector<unsigned long> rows;
    std::vector<T> values;
};

/// Columns that grow. A column without a record is empty, or, in a matrix made by eye, still the unit vector: most
/// unknowns are in no constraint and cost nothing.
///
/// Indices out of range raise "Internal_error_solver" with a detail, from "qxnull".
template <class T>
class NullSparse
{
public:
    using Column = colData<T>;

    NullSparse() = default;

    /// Copies the stored columns (rows sorted; equal rows are summed), times 2^exponent, conjugated if asked for.
    /// eachColumn() is called before each.
    template <class EachColumn>
    NullSparse(const llsparse<T>& S, bool conjugated, int exponent, const EachColumn& eachColumn)
        : m(S.m), n(S.n), cols(S.n), scale(S.n), scaleRef(S.n)
    {
        scale = scaleRef = 0.0;
        for (unsigned long j = 0; j < n; ++j) {
            eachColumn();
            if (S.colPtr[j] == S.colPtr[j + 1])
                continue;
            cols[j] = newColumn();
            for (unsigned long k = S.colPtr[j]; k < S.colPtr[j + 1]; ++k)
                addEntry(S.row[k], j, timesPowerOf2(conjugated ? conjugateOf(S.val[k]) : S.val[k], exponent));
            updateScale(j);
        }
    }

    /// Becomes the identity of order size.
    void eye(unsigned long size)
    {
        clear();
        m = n = size;
        cols.resize(size);
        isEye = true;
    }

    void clear()
    {
        pool.clear();
        cols.clear();
        m = n = 0;
        isEye = false;
        scale.clear();
        scaleRef.clear();
    }

    unsigned long rows() const { return m; }
    unsigned long columns() const { return n; }

    /// The entry, or 0. Cost: a binary search.
    T operator()(unsigned long i, unsigned long j) const
    {
        checkIndex(i, j);
        if (!cols[j])
            return isEye && i == j ? T(1) : T(0);
        const std::size_t place = find(*cols[j], i);
        return place < cols[j]->count && cols[j]->rows[place] == i ? cols[j]->values[place] : T(0);
    }

    /// Adds to the entry, inserting it if it is not there.
    void addEntry(unsigned long i, unsigned long j, const T& value)
    {
        checkIndex(i, j);
        Column& column = writable(j);
        const std::size_t place = find(column, i);
        if (place < column.count && column.rows[place] == i) {
            column.values[place] += value;
            return;
        }
        column.rows.insert(column.rows.begin() + static_cast<std::ptrdiff_t>(place), i);
        column.values.insert(column.values.begin() + static_cast<std::ptrdiff_t>(place), value);
        ++column.count;
    }

    /// Sets an entry that is there.
    void setEntry(unsigned long i, unsigned long j, const T& value)
    {
        checkIndex(i, j);
        Column& column = writable(j);
        const std::size_t place = find(column, i);
        if (place == column.count || column.rows[place] != i)
            QX_RAISE("qxnull", "Internal_error_solver", "Entry not found.");
        column.values[place] = value;
    }

    /// Column j += factor times column k, as one merge. j and k differ.
    void addColumn(unsigned long j, unsigned long k, const T& factor)
    {
        checkIndex(0, j);
        checkIndex(0, k);
        const boost::shared_ptr<Column> sum = newColumn();
        const Column &a = writable(j), &b = readable(k);
        sum->rows.reserve(a.count + b.count);
        sum->values.reserve(a.count + b.count);
        const auto put = [&sum](unsigned long row, const T& value) {
            sum->rows.push_back(row);
            sum->values.push_back(value);
        };
        std::size_t p = 0, q = 0;
        while (p < a.count || q < b.count) {
            if (q == b.count || (p < a.count && a.rows[p] < b.rows[q])) {
                put(a.rows[p], a.values[p]);
                ++p;
            } else if (p == a.count || b.rows[q] < a.rows[p]) {
                put(b.rows[q], times(factor, b.values[q]));
                ++q;
            } else {
                put(a.rows[p], a.values[p] + times(factor, b.values[q]));
                ++p;
                ++q;
            }
        }
        sum->count = sum->rows.size();
        pool.push_back(cols[j]);
        cols[j] = sum;
    }

    /// Recomputes the squared norm of a column and remembers the largest it ever had: after cancellation the rest is
    /// noise of that size, and must not be measured by itself.
    void updateScale(unsigned long j)
    {
        checkIndex(0, j);
        double sum = 0.0;
        for (const T& value : readable(j).values)
            sum += squaredMagnitude(value);
        if (!(sum <= std::numeric_limits<double>::max()))
            QX_RAISE("qxnull", "Internal_error_solver", "Norm of a column overflows.");
        scale[j] = sum;
        scaleRef[j] = std::max(scaleRef[j], sum);
    }

    /// Largest squared norm that the column ever had.
    double reference(unsigned long j) const { return scaleRef[j]; }
    unsigned long count(unsigned long j) const { return cols[j] ? cols[j]->count : isEye ? 1 : 0; }
    /// The column, lent until the next call.
    const Column& column(unsigned long j) const { return readable(j); }
    const std::vector<T>& columnValues(unsigned long j) const { return readable(j).values; }

private:
    static double conjugateOf(double x) { return x; }
    static std::complex<double> conjugateOf(const std::complex<double>& x) { return std::conj(x); }
    static double times(double a, double b) { return a * b; }
    static std::complex<double> times(const std::complex<double>& a, const std::complex<double>& b)
    {
        return {a.real() * b.real() - a.imag() * b.imag(), a.real() * b.imag() + a.imag() * b.real()};
    }

    static std::size_t find(const Column& column, unsigned long i)
    {
        return static_cast<std::size_t>(std::lower_bound(column.rows.begin(), column.rows.end(), i) -
                                        column.rows.begin());
    }

    void checkIndex(unsigned long i, unsigned long j) const
    {
        if (j >= n || (i >= m && m != 0))
            QX_RAISE("qxnull", "Internal_error_solver", "Index out of range.");
    }

    boost::shared_ptr<Column> newColumn()
    {
        if (pool.empty())
            return boost::shared_ptr<Column>(new Column());
        const boost::shared_ptr<Column> column = pool.back();
        pool.pop_back();
        column->count = 0;
        column->rows.clear();
        column->values.clear();
        return column;
    }

    Column& writable(unsigned long j)
    {
        if (!cols[j]) {
            cols[j] = newColumn();
            if (isEye) {
                cols[j]->rows.push_back(j);
                cols[j]->values.push_back(T(1));
                cols[j]->count = 1;
            }
        }
        return *cols[j];
    }

    const Column& readable(unsigned long j) const
    {
        if (cols[j])
            return *cols[j];
        standIn.count = isEye ? 1 : 0;
        standIn.rows.assign(standIn.count, j);
        standIn.values.assign(standIn.count, T(1));
        return standIn;
    }

    unsigned long m = 0;
    unsigned long n = 0;
    std::vector<boost::shared_ptr<Column>> pool; ///< released records, for reuse
    std::vector<boost::shared_ptr<Column>> cols;
    Array<double, 1> scale;    ///< squared norm of each column
    Array<double, 1> scaleRef; ///< its largest value so far
    bool isEye = false;
    mutable Column standIn; ///< what a column without a record reads as
};

} // namespace qxnull_detail
