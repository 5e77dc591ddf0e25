// SPDX-License-Identifier: LicenseRef-qxkernel
// The guarantees of a store: sorted columns, columns partitioned around the diagonal; tests of symmetry.

#include "llsparse_detail.hpp"
#include "qxexception.hpp"
#include "team.hpp"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <vector>

namespace {

using namespace qxsparse;

/// Rows and values of one column, moved together.
template <class T>
struct Column
{
    unsigned long* row;
    T* val;

    void swap(long a, long b) const
    {
        std::swap(row[a], row[b]);
        std::swap(val[a], val[b]);
    }
};

/// The generator of the shuffles: reproducible, so that equal rows always end in the same order.
class Shuffle
{
public:
    /// A pseudo-random offset below length - 1.
    long offset(long length)
    {
        seed_ = seed_ * 1664525u + 1013904223u;
        return static_cast<long>(seed_ / 4294967295.0 * static_cast<double>(length - 1));
    }

private:
    std::uint32_t seed_ = 2143;
};

template <class T>
void insertionSort(const Column<T>& c, long start, long hi)
{
    for (long k = start; k <= hi; ++k) {
        const unsigned long row = c.row[k];
        const T val = c.val[k];
        long p = k;
        for (; p > 0 && c.row[p - 1] > row; --p) {
            c.row[p] = c.row[p - 1];
            c.val[p] = c.val[p - 1];
        }
        c.row[p] = row;
        c.val[p] = val;
    }
}

/// base <- a <- top <- b <- base, with a and b as offsets from base.
template <class T>
void rotateFour(const Column<T>& c, long base, long top, long a, long b)
{
    const auto rotate = [&](auto* data) {
        const auto old = data[base];
        data[base] = data[base + a];
        data[base + a] = data[top];
        data[top] = data[base + b];
        data[base + b] = old;
    };
    rotate(c.row);
    rotate(c.val);
}

/// Quicksort with the median of three, an insertion sort below 8 entries, and a shuffle of the larger side where a split
/// was lopsided. The order of equal rows is that of these very steps.
template <class T>
void quickSort(const Column<T>& c, long count)
{
    struct Range
    {
        long lo, hi;
    };
    Range pending[64]; // the larger side waits: no more than log2(count) ranges do
    int depth = 0;
    Shuffle shuffle;
    Range r{0, count - 1};
    for (;;) {
        const auto [lo, hi] = r;
        if (hi - lo < 7) {
            insertionSort(c, lo + 1, hi);
            if (depth == 0)
                return;
            r = pending[--depth];
            continue;
        }
        c.swap(lo + 1, (lo + hi) / 2);
        if (c.row[lo + 1] < c.row[lo])
            c.swap(lo + 1, lo);
        if (c.row[hi] < c.row[lo + 1]) {
            c.swap(hi, lo + 1);
            if (c.row[lo + 1] < c.row[lo])
                c.swap(lo + 1, lo);
        }
        const unsigned long pivot = c.row[lo + 1];
        long i = lo + 1, j = hi;
        for (;;) {
            do
                ++i;
            while (c.row[i] < pivot);
            do
                --j;
            while (c.row[j] > pivot);
            if (j < i)
                break;
            c.swap(i, j);
        }
        c.swap(lo + 1, j);

        const long left = j - lo, right = hi - i + 1;
        const bool leftWaits = left >= right;
        const Range larger = leftWaits ? Range{lo, j - 1} : Range{i, hi};
        r = leftWaits ? Range{i, hi} : Range{lo, j - 1};
        if (std::min(left, right) < (std::max(left, right) >> 2)) {
            const long length = larger.hi - larger.lo + 1;
            const long first = shuffle.offset(length), second = shuffle.offset(length);
            rotateFour(c, larger.lo, larger.hi, leftWaits ? first : second, leftWaits ? second : first);
        }
        pending[depth++] = larger;
    }
}

/// Position of row i in [begin, end) of a store, or `none`.
template <class T>
unsigned long position(const llsparse<T>& s, unsigned long i, unsigned long j, unsigned long none)
{
    const unsigned long *begin = s.row + s.colPtr[j], *end = s.row + s.colPtr[j + 1];
    const unsigned long* found = s.form & FormSorted ? std::lower_bound(begin, end, i) : std::find(begin, end, i);
    return found != end && *found == i ? static_cast<unsigned long>(found - s.row) : none;
}

/// The same for the diagonal entry: by `diag` where that still tells the truth, which it need not after setElem.
template <class T>
unsigned long diagonalPosition(const llsparse<T>& s, unsigned long j, unsigned long none)
{
    if (s.form & FormDiag && s.diagArray && j < s.diagArray->size())
        if (const unsigned long p = s.diag[j]; p >= s.colPtr[j] && p < s.colPtr[j + 1] && s.row[p] == j)
            return p;
    return position(s, j, j, none);
}

/// Magnitudes of the diagonal, 0 where there is none.
template <class T>
std::vector<double> diagonalMagnitudes(const llsparse<T>& s, const Team& team)
{
    const unsigned long none = s.nnz();
    std::vector<double> d(s.n);
    team.forEach(s.n, [&](unsigned long j) {
        const unsigned long p = diagonalPosition(s, j, none);
        d[j] = p == none ? 0.0 : magnitude(s.val[p]);
    });
    return d;
}

template <bool Conj, class T>
bool columnIsSymmetric(const llsparse<T>& s, double tol, const double* d, unsigned long j)
{
    const unsigned long none = s.nnz();
    for (unsigned long p = s.colPtr[j]; p < s.colPtr[j + 1]; ++p) {
        const unsigned long i = s.row[p];
        if (i == j)
            continue;
        const unsigned long q = position(s, j, i, none);
        const T a = s.val[p];
        const bool differs = q == none
                                 ? squaredAbs(a) > tol * tol * (d[i] * d[j])
                                 : squaredAbs(a - conjugateIf<Conj>(s.val[q])) >
                                       tol * tol * (squaredAbs(a) + d[i] * d[j]);
        if (differs)
            return false;
    }
    return true;
}

template <bool Conj, class T>
bool storeIsSymmetric(const llsparse<T>& s, double tol)
{
    if (s.m != s.n)
        return false;
    const Team team = Team::ofLoop(s.nnz());
    const std::vector<double> d = diagonalMagnitudes(s, team);
    std::atomic<bool> symmetric{true};
    team.forEach(s.n, [&](unsigned long j) {
        if (symmetric.load(std::memory_order_relaxed) && !columnIsSymmetric<Conj>(s, tol, d.data(), j))
            symmetric.store(false, std::memory_order_relaxed);
    });
    return symmetric;
}

} // namespace

template <class T>
bool llsparse<T>::hasShortDiag() const
{
    return form & FormDiag && (!diagArray || diagArray->size() < n);
}

template <class T>
void llsparse<T>::sortColumns()
{
    if (hasShortDiag())
        allocDiag(); // before the first change
    rowColptrVersion = getNewRowColptrVersion();
    for (unsigned long j = 0; j < n; ++j) {
        unsigned long* const begin = row + colPtr[j];
        unsigned long* const end = row + colPtr[j + 1];
        if (std::adjacent_find(begin, end, [](auto a, auto b) { return a >= b; }) != end)
            quickSort(Column<T>{begin, val + colPtr[j]}, end - begin);
    }
    form = form | FormSorted;
    if (form & FormDiag)
        locateDiagonals();
}

template <class T>
void llsparse<T>::locateDiagonals()
{
    if (hasShortDiag())
        allocDiag();
    for (unsigned long j = 0; j < n; ++j)
        locateDiagonal(j);
}

/// Sorted columns are partitioned as they stand: only `diag` is to be found.
template <class T>
void llsparse<T>::locateDiagonal(unsigned long j)
{
    const unsigned long none = nnz(), p = position(*this, j, j, none);
    diag[j] = p == none || val[p] == T(0.0) ? none : p;
}

template <class T>
void llsparse<T>::partitionColumns(bool checkDiag)
{
    const unsigned long none = nnz();
    rowColptrVersion = getNewRowColptrVersion();
    allocDiag();
    for (unsigned long j = 0; j < n; ++j) {
        rowColptrVersion = getNewRowColptrVersion();
        locateDiagonal(j);
        if (diag[j] == none) {
            if (checkDiag) {
                releaseDiag();
                QX_RAISE("sputil", "Matrix_has_zero_on_diagonal");
            }
            continue;
        }
        if (form & FormSorted)
            continue;
        const Column<T> c{row + colPtr[j], val + colPtr[j]};
        const auto last = static_cast<long>(colPtr[j + 1] - colPtr[j]) - 1;
        c.swap(0, static_cast<long>(diag[j] - colPtr[j]));
        const long below = std::find_if(c.row, c.row + last + 1, [j](auto i) { return i > j; }) - c.row;
        if (below > last) {
            c.swap(0, last);
            diag[j] = colPtr[j] + static_cast<unsigned long>(last);
            continue;
        }
        c.swap(below, last); // stops the upward walk; the diagonal entry in front stops the downward one
        long i = 0, k = last;
        for (;;) {
            do
                ++i;
            while (c.row[i] < j);
            do
                --k;
            while (c.row[k] > j);
            if (k < i)
                break;
            c.swap(i, k);
        }
        c.swap(0, k);
        diag[j] = colPtr[j] + static_cast<unsigned long>(k);
    }
    form = form | FormDiag;
}

template <class T>
void llsparse<T>::format(Form_t wanted, bool checkDiag)
{
    const Form_t need = wanted & ~form;
    if (need & FormSorted)
        sortColumns();
    if ((need & FormDiag) || hasShortDiag()) // columns may have come since FormDiag was set
        partitionColumns(checkDiag && (wanted & FormDiag));
}

template <class T>
bool llsparse<T>::isSymmetric(double tol) const
{
    return symm != Unsymmetric ? symm == Symmetric : storeIsSymmetric<false>(*this, tol);
}

template <class T>
bool llsparse<T>::isHermitian(double tol) const
{
    return symm != Unsymmetric ? symm == Hermitian : storeIsSymmetric<true>(*this, tol);
}

template <class T>
bool llsparse<T>::isSymmetric(double tol, const double* d, unsigned long j) const
{
    return columnIsSymmetric<false>(*this, tol, d, j);
}

template <class T>
bool llsparse<T>::isHermitian(double tol, const double* d, unsigned long j) const
{
    return columnIsSymmetric<true>(*this, tol, d, j);
}

#define QX_INSTANTIATE(T)                                                                                             \
    template bool llsparse<T>::hasShortDiag() const;                                                                  \
    template void llsparse<T>::sortColumns();                                                                         \
    template void llsparse<T>::locateDiagonals();                                                                     \
    template void llsparse<T>::locateDiagonal(unsigned long);                                                         \
    template void llsparse<T>::partitionColumns(bool);                                                                \
    template void llsparse<T>::format(Form_t, bool);                                                                  \
    template bool llsparse<T>::isSymmetric(double) const;                                                             \
    template bool llsparse<T>::isHermitian(double) const;                                                             \
    template bool llsparse<T>::isSymmetric(double, const double*, unsigned long) const;                               \
    template bool llsparse<T>::isHermitian(double, const double*, unsigned long) const;
QX_FOR_EACH_STORE(QX_INSTANTIATE)
