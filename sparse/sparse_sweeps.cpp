// SPDX-License-Identifier: LicenseRef-qxkernel
// Relaxation sweeps. One template each for the sweep and for the updater serves natural order, index lists and the
// shares of a pipeline; layout and direction are template parameters, so that the loops have no tests inside.

#include "llsparse_detail.hpp"
#include "team.hpp"

#include <algorithm>

namespace {

using namespace qxsparse;

struct Positions
{
    unsigned long begin, end;
};

/// How a store takes part: which halves it gathers and scatters, and whether gathered values are conjugated.
template <bool Gather, bool Scatter, bool Conj>
struct Layout
{
    static constexpr bool gathers = Gather, scatters = Scatter, conj = Conj;
};
using ByColumn = Layout<false, true, false>;
using ByRow = Layout<true, false, false>;
using Summand = Layout<true, true, false>;
using ConjSummand = Layout<true, true, true>;

/// f(layout, direction) for the store's layout: one branch at the head.
template <class T, class F>
void dispatch(Symm_t symm, bool reverse, const F& f)
{
    const auto inDirection = [&](auto layout) { reverse ? f(layout, std::true_type()) : f(layout, std::false_type()); };
    switch (symm) {
    case Unsymmetric:
        return inDirection(ByColumn());
    case RowStored:
        return inDirection(ByRow());
    case Symmetric:
        return inDirection(Summand());
    case Hermitian:
        if constexpr (std::is_same_v<T, double>)
            return inDirection(Summand());
        else
            return inDirection(ConjSummand());
    }
}

/// The stored diagonal of a summand is half of A's: its weight is halved where it divides and doubled where it
/// multiplies.
double sweepWeight(Symm_t symm, double omega) { return symm == Symmetric || symm == Hermitian ? 0.5 * omega : omega; }
double updaterWeight(Symm_t symm, double omega)
{
    const double c = (omega - 1.0) / omega;
    return symm == Symmetric || symm == Hermitian ? 2.0 * c : c;
}

/// Columns 0 .. n - 1.
struct Natural
{
    unsigned long n;
    unsigned long size() const { return n; }
    unsigned long column(unsigned long k) const { return k; }
};

/// Columns of a list.
struct Listed
{
    const unsigned long* idx;
    unsigned long n;
    unsigned long size() const { return n; }
    unsigned long column(unsigned long k) const { return idx[k]; }
};

/// Raw views with the promise that nothing else writes them.
template <class T>
struct Kernel
{
    const unsigned long* __restrict colPtr;
    const unsigned long* __restrict row;
    const unsigned long* __restrict diag;
    const T* __restrict val;

    explicit Kernel(const llsparse<T>& s) : colPtr(s.colPtr), row(s.row), diag(s.diag), val(s.val) {}

    /// Asks for entries that the sweep will come to: half of each column is left out, and the processor's own prefetching
    /// loses its place there.
    template <bool Down>
    void prefetch(Positions range) const
    {
        constexpr long ahead = Down ? -256 : 256;
        for (unsigned long p = range.begin; p < range.end; p += 64 / sizeof(T)) {
            __builtin_prefetch(row + static_cast<long>(p) + ahead);
            __builtin_prefetch(val + static_cast<long>(p) + ahead);
        }
    }

    Positions above(unsigned long j) const { return {colPtr[j], diag[j]}; }
    Positions below(unsigned long j) const { return {diag[j] + 1, colPtr[j + 1]}; }

    /// sum + sum of val r_row, or sum - each, one by one
    template <bool Conj, class R>
    R gathered(R sum, const R* r, Positions range) const
    {
        for (unsigned long p = range.begin; p < range.end; ++p)
            sum += mul(conjugateIf<Conj>(val[p]), r[row[p]]);
        return sum;
    }
    /// r_row += val t
    template <class R>
    void scatter(R* r, const R& t, Positions range) const
    {
        for (unsigned long p = range.begin; p < range.end; ++p)
            r[row[p]] += mul(val[p], t);
    }
    /// s + sign * sum of val r_row over a correction list
    template <bool Conj, class R>
    R gatherList(R sum, const R* r, const SweepCorrections& list, unsigned long k, double sign) const
    {
        if (list.ptr)
            for (unsigned long e = list.ptr[k]; e < list.ptr[k + 1]; ++e) {
                const unsigned long p = list.list[e];
                sum += sign * mul(conjugateIf<Conj>(val[p]), r[row[p]]);
            }
        return sum;
    }
    template <class R>
    void scatterList(R* r, const R& t, const SweepCorrections& list, unsigned long k, double sign) const
    {
        if (list.ptr)
            for (unsigned long e = list.ptr[k]; e < list.ptr[k + 1]; ++e) {
                const unsigned long p = list.list[e];
                r[row[p]] += sign * mul(val[p], t);
            }
    }
};

/// Position k of n in the order of the walk.
template <bool Down>
unsigned long step(unsigned long k, unsigned long n)
{
    return Down ? n - 1 - k : k;
}

/// s_j = r_j + sum over U;  t_j = -w s_j / a_jj;  r_j = t_j;  x_j += t_j. Returns t_j.
template <class L, bool Reverse, class T, class R, class X>
inline R relax(const Kernel<T>& a, R* __restrict r, X* __restrict x, double w, unsigned long j)
{
    R s = r[j];
    if constexpr (L::gathers) {
        const Positions visited = Reverse ? a.below(j) : a.above(j);
        a.template prefetch<Reverse>(visited);
        s = a.template gathered<L::conj>(s, r, visited);
    }
    const R t = divide(mul(-w, s), a.val[a.diag[j]]);
    r[j] = t;
    x[j] += t;
    return t;
}

template <class L, bool Reverse, class T, class R, class X, class Order>
void sweep(const Kernel<T>& a, R* __restrict r, X* __restrict x, double w, const Order& order)
{
    for (unsigned long i = 0, n = order.size(); i < n; ++i) {
        const unsigned long j = order.column(step<Reverse>(i, n));
        const Positions later = Reverse ? a.above(j) : a.below(j);
        if constexpr (L::scatters)
            a.template prefetch<Reverse>(later);
        const R t = relax<L, Reverse>(a, r, x, w, j);
        if constexpr (L::scatters)
            a.scatter(r, t, later);
    }
}

/// The same with correction lists around the natural triangles.
template <class L, bool Reverse, class T, class R, class X>
void sweepCorrected(const Kernel<T>& a, R* r, X* x, double w, const Listed& order, const SweepCorrections& later,
                    const SweepCorrections& earlier)
{
    for (unsigned long i = 0; i < order.n; ++i) {
        const unsigned long k = step<Reverse>(i, order.n), j = order.idx[k];
        R s = r[j];
        if constexpr (L::gathers) {
            s = a.template gathered<L::conj>(s, r, Reverse ? a.below(j) : a.above(j));
            s = a.template gatherList<L::conj>(s, r, later, k, -1.0);
            s = a.template gatherList<L::conj>(s, r, earlier, k, 1.0);
        }
        const R t = divide(mul(-w, s), a.val[a.diag[j]]);
        r[j] = t;
        x[j] += t;
        if constexpr (L::scatters) {
            a.scatter(r, t, Reverse ? a.above(j) : a.below(j));
            a.scatterList(r, t, later, k, 1.0);
            a.scatterList(r, t, earlier, k, -1.0);
        }
    }
}

/// Sweep of a column store that leaves r the residual: t_j goes over both triangles, and r_j = c a_jj t_j.
template <bool Reverse, class T, class R, class X, class Order>
void sweepToResidual(const Kernel<T>& a, R* __restrict r, X* __restrict x, double w, double c, const Order& order)
{
    for (unsigned long i = 0, n = order.size(); i < n; ++i) {
        const unsigned long j = order.column(step<Reverse>(i, n));
        const R t = relax<ByColumn, Reverse>(a, r, x, w, j);
        a.scatter(r, t, a.below(j));
        a.scatter(r, t, a.above(j));
        r[j] = mul(a.val[a.diag[j]], mul(c, t));
    }
}

/// Corrections to residual, along the order (Up) or against it: the triangle that is scattered has been visited, the one
/// that is gathered has not.
template <class L, bool Up, class T, class R, class Order>
void update(const Kernel<T>& a, R* __restrict u, double c, const Order& order, const SweepCorrections& later,
            const SweepCorrections& earlier)
{
    for (unsigned long i = 0, n = order.size(); i < n; ++i) {
        const unsigned long k = step<!Up>(i, n), j = order.column(k);
        const R t = u[j];
        R s = mul(a.val[a.diag[j]], mul(c, t));
        if constexpr (L::gathers) {
            s = a.template gathered<L::conj>(s, u, Up ? a.below(j) : a.above(j));
            s = a.template gatherList<L::conj>(s, u, later, k, 1.0);
            s = a.template gatherList<L::conj>(s, u, earlier, k, -1.0);
        }
        u[j] = s;
        if constexpr (L::scatters) {
            a.scatter(u, t, Up ? a.above(j) : a.below(j));
            a.scatterList(u, t, later, k, -1.0);
            a.scatterList(u, t, earlier, k, 1.0);
        }
    }
}

/// The part of a range that lies inside another one.
Positions cut(Positions range, unsigned long begin, unsigned long end)
{
    return {std::max(range.begin, begin), std::min(range.end, end)};
}

} // namespace

template <class T>
template <class R, class X>
int llsparse<T>::JacobiIts(const R* r, X* x, double omega, unsigned long from, unsigned long to) const
{
    const double w = sweepWeight(symm, omega);
    for (unsigned long j = from, end = to == 0 ? n : to; j < end; ++j)
        x[j] -= divide(mul(w, r[j]), val[diag[j]]);
    return -1;
}

template <class T>
template <class R, class X>
int llsparse<T>::SORIt(R* r, X* x, double omega, bool reverse) const
{
    dispatch<T>(symm, reverse, [&](auto layout, auto down) {
        sweep<decltype(layout), down>(Kernel<T>(*this), r, x, sweepWeight(symm, omega), Natural{n});
    });
    return -1;
}

template <class T>
template <class R, class X>
int llsparse<T>::SORItUpdater(R* r, X* x, double omega, bool reverse) const
{
    if (symm == Unsymmetric) {
        const Kernel<T> a(*this);
        const double c = updaterWeight(symm, omega);
        if (reverse)
            sweepToResidual<true>(a, r, x, omega, c, Natural{n});
        else
            sweepToResidual<false>(a, r, x, omega, c, Natural{n});
        return -1;
    }
    // Where a step gathers, it would need corrections of unknowns that come later: a second pass brings them.
    SORIt(r, x, omega, reverse);
    return SORUpdater(r, omega, !reverse);
}

template <class T>
template <class R>
int llsparse<T>::SORUpdater(R* u, double omega, bool reverse) const
{
    dispatch<T>(symm, reverse, [&](auto layout, auto up) {
        update<decltype(layout), up>(Kernel<T>(*this), u, updaterWeight(symm, omega), Natural{n}, {}, {});
    });
    return -1;
}

template <class T>
template <class R, class X>
int llsparse<T>::SORIt(R* r, X* x, const unsigned long* idx, unsigned long nIdx, const SweepCorrections& later,
                       const SweepCorrections& earlier, double omega, bool reverse) const
{
    const double w = sweepWeight(symm, omega);
    const Listed order{idx, nIdx};
    dispatch<T>(symm, reverse, [&](auto layout, auto down) {
        if (later.ptr || earlier.ptr)
            sweepCorrected<decltype(layout), down>(Kernel<T>(*this), r, x, w, order, later, earlier);
        else
            sweep<decltype(layout), down>(Kernel<T>(*this), r, x, w, order);
    });
    return -1;
}

template <class T>
template <class R, class X>
int llsparse<T>::SORItUpdater(R* r, X* x, const unsigned long* idx, unsigned long nIdx, double omega,
                              bool reverse) const
{
    SORIt(r, x, idx, nIdx, {}, {}, omega, reverse);
    return SORUpdater(r, idx, nIdx, {}, {}, omega, !reverse);
}

template <class T>
template <class R>
int llsparse<T>::SORUpdater(R* u, const unsigned long* idx, unsigned long nIdx, const SweepCorrections& later,
                            const SweepCorrections& earlier, double omega, bool reverse) const
{
    dispatch<T>(symm, reverse, [&](auto layout, auto up) {
        update<decltype(layout), up>(Kernel<T>(*this), u, updaterWeight(symm, omega), Listed{idx, nIdx}, later,
                                     earlier);
    });
    return -1;
}

template <class T>
template <class R, class X>
int llsparse<T>::SORIt(R* r, X* x, double omega, bool reverse, const unsigned long* cols, const unsigned long* starts,
                       const unsigned long* ends, bool scatterOnly, unsigned long from, unsigned long to) const
{
    const double w = sweepWeight(symm, omega);
    dispatch<T>(symm, reverse, [&](auto layout, auto down) {
        const Kernel<T> a(*this);
        for (unsigned long i = 0; i < to - from; ++i) {
            const unsigned long k = from + step<down>(i, to - from), j = cols[k];
            const R t = scatterOnly ? r[j] : relax<decltype(layout), down>(a, r, x, w, j);
            if constexpr (decltype(layout)::scatters)
                a.scatter(r, t, cut(down ? a.above(j) : a.below(j), starts[k], ends[k]));
        }
    });
    return -1;
}

template <class T>
template <class R>
int llsparse<T>::SORUpdater(R* u, const R* t, double omega, bool reverse, const unsigned long* cols,
                            unsigned long ncols, const unsigned long* starts, const unsigned long* ends,
                            unsigned long firstRow, unsigned long lastRow) const
{
    const double c = updaterWeight(symm, omega);
    dispatch<T>(symm, reverse, [&](auto layout, auto up) {
        const Kernel<T> a(*this);
        const unsigned long count = cols ? ncols : lastRow - firstRow; // no list: the columns of these rows, whole
        for (unsigned long i = 0; i < count; ++i) {
            const unsigned long k = step<!up>(i, count), j = cols ? cols[k] : firstRow + k;
            if (j >= firstRow && j < lastRow) {
                R s = mul(a.val[a.diag[j]], mul(c, t[j]));
                if constexpr (decltype(layout)::gathers)
                    s = a.template gathered<decltype(layout)::conj>(s, t, up ? a.below(j) : a.above(j));
                u[j] = s;
            }
            if constexpr (decltype(layout)::scatters) {
                const Positions visited = up ? a.above(j) : a.below(j);
                a.scatter(u, t[j], cols ? cut(visited, starts[k], ends[k]) : visited);
            }
        }
    });
    return -1;
}

#define QX_INSTANTIATE(T, R)                                                                                          \
    template int llsparse<T>::JacobiIts(const R*, R*, double, unsigned long, unsigned long) const;                    \
    template int llsparse<T>::SORIt(R*, R*, double, bool) const;                                                      \
    template int llsparse<T>::SORItUpdater(R*, R*, double, bool) const;                                               \
    template int llsparse<T>::SORUpdater(R*, double, bool) const;                                                     \
    template int llsparse<T>::SORIt(R*, R*, const unsigned long*, unsigned long, const SweepCorrections&,             \
                                    const SweepCorrections&, double, bool) const;                                     \
    template int llsparse<T>::SORItUpdater(R*, R*, const unsigned long*, unsigned long, double, bool) const;          \
    template int llsparse<T>::SORUpdater(R*, const unsigned long*, unsigned long, const SweepCorrections&,            \
                                         const SweepCorrections&, double, bool) const;                                \
    template int llsparse<T>::SORIt(R*, R*, double, bool, const unsigned long*, const unsigned long*,                 \
                                    const unsigned long*, bool, unsigned long, unsigned long) const;                  \
    template int llsparse<T>::SORUpdater(R*, const R*, double, bool, const unsigned long*, unsigned long,             \
                                         const unsigned long*, const unsigned long*, unsigned long, unsigned long)    \
        const;
QX_FOR_EACH_SWEEP(QX_INSTANTIATE)
