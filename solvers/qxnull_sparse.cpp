// SPDX-License-Identifier: LicenseRef-qxkernel
#include "qxnumber.hpp"
#include "qxrun.hpp"
#include "solvers/nullsparse_detail.hpp"
#include "solvers/qxnull_detail.hpp"

#include <cmath>
#include <limits>

namespace qxnull_detail {

namespace {

using Indices = std::vector<Index>;

inline double largestPart(double x) { return std::abs(x); }
inline double largestPart(const cplx& x) { return std::max(std::abs(x.real()), std::abs(x.imag())); }

/// e such that the largest part of an entry is in [2^e, 2^(e+1)); 0 for a matrix of zeros.
template <class T>
int exponentOf(const llsparse<T>& S)
{
    if (anyNaNorInf(S.val, S.nnz()))
        QX_RAISE("qxnull", "Internal_error_solver", "NaN or Inf in constraint matrix.");
    double largest = 0.0;
    for (Index k = 0; k < S.nnz(); ++k)
        largest = std::max(largest, largestPart(S.val[k]));
    return largest == 0.0 ? 0 : std::ilogb(largest);
}

/// The state of one matrix: W = N^H with one row for each constraint and one column for each unknown, and the column
/// operations done so far, W = N^H E.
template <class T>
struct System
{
    int exponent; ///< W holds the entries divided by 2^exponent, below 2 in magnitude: squares do not overflow
    NullSparse<T> W;
    std::vector<Indices> pattern; ///< for each row of W the columns that may have an entry, ascending
    NullSparse<T> E;
    std::vector<char> isPivot; ///< for each column
    std::vector<bool> hasPivot; ///< for each row
    Indices pivots;             ///< in the order they were found

    System(Monitor& monitor, const Sparse& N, const Sparse& NT)
        : exponent(exponentOf(StoreOf<T>::of(N))),
          W(StoreOf<T>::of(NT), true, -exponent, [&monitor] { monitor.step(); }), pattern(N.getN()), isPivot(N.getM()),
          hasPivot(N.getN())
    {
        const llsparse<T>& S = StoreOf<T>::of(N);
        for (Index i = 0; i < S.n; ++i) {
            monitor.step();
            pattern[i].assign(S.row + S.colPtr[i], S.row + S.colPtr[i + 1]);
            pattern[i].erase(std::unique(pattern[i].begin(), pattern[i].end()), pattern[i].end());
        }
        E.eye(N.getM());
    }
};

/// What is to be done in one row: columns whose entries go, and columns that serve for that, the last of which remains.
struct RowPlan
{
    Indices pivots;
    Indices rest;
};

/// The columns that may become the pivot of row i: not used yet, and with an entry that counts beside their norm.
template <class T>
Indices computeL(Index i, const System<T>& s)
{
    Indices candidates;
    for (const Index j : s.pattern[i])
        if (!s.isPivot[j] && std::abs(s.W(i, j)) > tolerance * std::sqrt(s.W.reference(j)))
            candidates.push_back(j);
    return candidates;
}

/// Divides candidates: those of the smallest count serve as pivots.
template <class Count>
void takeSmallest(const Indices& candidates, Count count, Indices& pivots, Indices& rest)
{
    Index smallest = std::numeric_limits<Index>::max();
    for (const Index j : candidates)
        smallest = std::min(smallest, count(j));
    for (const Index j : candidates)
        (count(j) == smallest ? pivots : rest).push_back(j);
}

template <class T>
RowPlan planAlone(const System<T>& s, const Indices& candidates)
{
    RowPlan plan;
    takeSmallest(candidates, [&s](Index j) { return s.W.count(j); }, plan.pivots, plan.rest);
    return plan;
}

/// Pivots for both matrices from the candidates they have in common.
template <class T>
void planJointly(const System<T>& s, const System<T>& f, const Indices& candidates, const Indices& candidatesF,
                 const Indices& common, RowPlan& plan, RowPlan& planF)
{
    Indices commonRest;
    takeSmallest(common, [&](Index j) { return s.W.count(j) + f.W.count(j); }, plan.pivots, commonRest);
    planF.pivots = plan.pivots;
    std::set_difference(candidates.begin(), candidates.end(), plan.pivots.begin(), plan.pivots.end(),
                        std::back_inserter(plan.rest));
    std::set_difference(candidatesF.begin(), candidatesF.end(), plan.pivots.begin(), plan.pivots.end(),
                        std::back_inserter(planF.rest));
}

/// Column c += factor times column p, with factor such that the entry in row i goes.
template <class T>
void reduceColumn(Index i, Index c, Index p, System<T>& s)
{
    const T factor = -s.W(i, c) / s.W(i, p);
    if (factor == T(0))
        return;
    for (const Index k : s.W.column(p).rows)
        if (k > i) {
            Indices& columns = s.pattern[k];
            const auto place = std::lower_bound(columns.begin(), columns.end(), c);
            if (place == columns.end() || *place != c)
                columns.insert(place, c);
        }
    s.W.addColumn(c, p, factor);
    s.W.setEntry(i, c, T(0));
    s.W.updateScale(c);
    s.E.addColumn(c, p, factor);
}

/// Leaves one entry in row i among the candidates: the last pivot's.
template <class T>
void eliminateCols(const Monitor& monitor, Index i, System<T>& s, const RowPlan& plan)
{
    if (plan.pivots.empty())
        return;
    for (std::size_t k = 0; k < plan.rest.size(); ++k) {
        monitor.poll();
        reduceColumn(i, plan.rest[k], plan.pivots[k % plan.pivots.size()], s);
    }
    for (std::size_t k = 0; k + 1 < plan.pivots.size(); ++k) {
        monitor.poll();
        reduceColumn(i, plan.pivots[k], plan.pivots[k + 1], s);
    }
    const Index pivot = plan.pivots.back();
    s.isPivot[pivot] = 1;
    s.hasPivot[i] = true;
    s.pivots.push_back(pivot);
}

/// Whether the operations on the pivot columns used pivot columns only: then they can be undone among themselves, and
/// unit vectors complete Null.
template <class T>
bool unitVectorsComplete(const Monitor& monitor, const System<T>& s)
{
    for (const Index p : s.pivots) {
        monitor.poll();
        const colData<T>& column = s.E.column(p);
        for (Index k = 0; k < column.count; ++k)
            if (!s.isPivot[column.rows[k]] && column.values[k] != T(0))
                return false;
    }
    return true;
}

template <class T>
void writeColumn(const NullSparse<T>& A, Index j, ColumnWriter<T>& writer)
{
    const colData<T>& column = A.column(j);
    for (Index k = 0; k < column.count; ++k)
        writer.add(column.rows[k], column.values[k]);
    writer.endColumn();
}

template <class T>
Sparse freeColumns(Monitor& monitor, const System<T>& s)
{
    ColumnWriter<T> Null(s.E.rows());
    for (Index j = 0; j < s.E.columns(); ++j) {
        monitor.step();
        if (!s.isPivot[j])
            writeColumn(s.E, j, Null);
    }
    return Null.finish();
}

template <class T>
Sparse complement(Monitor& monitor, const System<T>& s, bool unitVectors)
{
    ColumnWriter<T> Compl(s.E.rows());
    for (const Index p : s.pivots) {
        monitor.step();
        if (unitVectors) {
            Compl.add(p, T(1));
            Compl.endColumn();
        } else
            writeColumn(s.E, p, Compl);
    }
    return Compl.finish();
}

/// Range = Compl^H N: the rows of N at the pivots, or the eliminated pivot columns.
template <class T>
Sparse rangeFactor(Monitor& monitor, const System<T>& s, const Sparse& N, bool unitVectors)
{
    const Index c = N.getN();
    std::vector<std::vector<std::pair<Index, T>>> columns(c);
    if (unitVectors) {
        Indices number(N.getM());
        for (Index k = 0; k < s.pivots.size(); ++k)
            number[s.pivots[k]] = k;
        const llsparse<T>& S = StoreOf<T>::of(N);
        for (Index i = 0; i < c; ++i) {
            monitor.step();
            for (Index k = S.colPtr[i]; k < S.colPtr[i + 1]; ++k) {
                if (!s.isPivot[S.row[k]])
                    continue;
                const Index row = number[S.row[k]];
                if (!columns[i].empty() && columns[i].back().first == row)
                    columns[i].back().second += S.val[k];
                else
                    columns[i].emplace_back(row, S.val[k]);
            }
        }
    } else {
        for (Index k = 0; k < s.pivots.size(); ++k) {
            monitor.step();
            const colData<T>& column = s.W.column(s.pivots[k]);
            for (Index q = 0; q < column.count; ++q)
                columns[column.rows[q]].emplace_back(k, timesPowerOf2(conjugate(column.values[q]), s.exponent));
        }
    }
    ColumnWriter<T> Range(s.pivots.size());
    for (auto& column : columns) {
        monitor.step();
        std::sort(column.begin(), column.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
        for (const auto& [row, value] : column)
            Range.add(row, value);
        Range.endColumn();
    }
    return Range.finish();
}

template <class T>
void copyToSparse(Monitor& monitor, const System<T>& s, const Sparse& N, Selection want, Triple& result)
{
    checkPivots(s.isPivot, s.pivots);
    const bool unitVectors = (want.compl_ || want.range) && unitVectorsComplete(monitor, s);
    if (want.null)
        result.Null = freeColumns(monitor, s);
    if (want.compl_)
        result.Compl = complement(monitor, s, unitVectors);
    if (want.range)
        result.Range = rangeFactor(monitor, s, N, unitVectors);
    result.rank = s.pivots.size();
    result.hasPivot = s.hasPivot;
}

template <class T>
void nullspPrivate(Monitor& monitor, const Sparse& N, const Sparse& NT, const Sparse* NF, const Sparse* NFT,
                   Selection want, Selection wantF, Triple& result, Triple& resultF)
{
    System<T> s(monitor, N, NT);
    std::vector<System<T>> second; // none or one
    if (NF != nullptr)
        second.emplace_back(monitor, *NF, *NFT);
    for (Index i = 0; i < N.getN(); ++i) {
        monitor.step();
        const Indices candidates = computeL(i, s);
        RowPlan plan, planF;
        if (second.empty()) {
            plan = planAlone(s, candidates);
        } else {
            System<T>& f = second.front();
            const Indices candidatesF = computeL(i, f);
            Indices common;
            std::set_intersection(candidates.begin(), candidates.end(), candidatesF.begin(), candidatesF.end(),
                                  std::back_inserter(common));
            if (common.empty()) {
                plan = planAlone(s, candidates);
                planF = planAlone(f, candidatesF);
            } else
                planJointly(s, f, candidates, candidatesF, common, plan, planF);
            eliminateCols(monitor, i, f, planF);
        }
        eliminateCols(monitor, i, s, plan);
    }
    copyToSparse(monitor, s, N, want, result);
    if (!second.empty())
        copyToSparse(monitor, second.front(), *NF, wantF, resultF);
}

} // namespace

void checkPivots(const std::vector<char>& isPivot, const std::vector<Index>& pivots)
{
    const auto flagged = std::count(isPivot.begin(), isPivot.end(), 1);
    if (static_cast<std::size_t>(flagged) != pivots.size())
        QX_RAISE("qxnull", "Internal_error_solver", "Range-size and nrange mismatch");
}

void eliminateSparse(Monitor& monitor, const Sparse& N, const Sparse& NT, const Sparse* NF,
                     const Sparse* NFT, Selection want, Selection wantF, Triple& result, Triple& resultF)
{
    if (NF != nullptr && NF->isReal() != N.isReal())
        QX_RAISE("qxnull", "Internal_solver_error");
    if (N.isReal())
        nullspPrivate<double>(monitor, N, NT, NF, NFT, want, wantF, result, resultF);
    else
        nullspPrivate<cplx>(monitor, N, NT, NF, NFT, want, wantF, result, resultF);
}

} // namespace qxnull_detail
