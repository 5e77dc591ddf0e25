// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// Sums and products of stores in two passes over the columns of the result: count, then write into arrays of exactly
// that size, or into the old ones.

#include "llsparse_detail.hpp"
#include "merge_in_place.hpp"
#include "qxrun.hpp"
#include "team.hpp"

/// Size and reading of a result; how its n columns are divided among threads (`weights`, running sums); row markers for
/// each thread.
template <class T>
struct llsparse<T>::TwoPass
{
    unsigned long m, n;
    Symm_t symm;
    const unsigned long* weights;
    qxsparse::Team team;
    qxsparse::Markers markers;
    const qxutil::RunInfo* run; ///< null: nobody cancels

    TwoPass(unsigned long rows, unsigned long columns, Symm_t reading, const unsigned long* columnWeights,
            unsigned long work, const qxutil::RunInfo* watched = nullptr)
        : m(rows), n(columns), symm(reading), weights(columnWeights), team(qxsparse::Team::ofWork(work)),
          markers(team, rows), run(watched)
    {
    }
    /// f(from, to) for the columns in pieces, with a look at the run before each.
    template <class F>
    void inPieces(unsigned long from, unsigned long to, const F& f) const
    {
        constexpr unsigned long piece = 64;
        while (from < to) {
            if (run)
                run->throwIfCancelled("sparse", __LINE__);
            const unsigned long end = run ? std::min(to, from + piece) : to;
            f(from, end);
            from = end;
        }
    }
    /// f(share, from, to) for each thread's columns.
    template <class F>
    void forEachSlice(const F& f) const
    {
        team.run([&](int share) {
            const qxsparse::Slice s = team.weighted(n, weights, share);
            f(share, s.from, s.to);
        });
    }
};

/// First pass: sizes, attributes and offsets of this fresh store. setup(colPtr, marker, from, to).
template <class T>
template <class Setup>
void llsparse<T>::countColumns(const TwoPass& result, const Setup& setup)
{
    m = result.m;
    n = result.n;
    symm = result.symm;
    form = FormNone;
    allocColPtr();
    colPtr[0] = 0;
    result.forEachSlice([&](int share, unsigned long from, unsigned long to) {
        auto* const marker = result.markers.make(share);
        result.inPieces(from, to, [&](unsigned long first, unsigned long end) { setup(colPtr, marker, first, end); });
    });
    qxsparse::runningSum(colPtr, n);
    nzmax = nnz();
}

/// Second pass: exact arrays and their entries. work(colPtr, row, val, marker, from, to).
template <class T>
template <class Work>
void llsparse<T>::fillColumns(const TwoPass& result, const Work& work)
{
    allocRow();
    allocVal();
    result.forEachSlice([&](int share, unsigned long from, unsigned long to) {
        auto* const marker = result.markers.of(share);
        result.inPieces(from, to, [&](unsigned long first, unsigned long end) {
            work(colPtr, row + colPtr[first], val + colPtr[first], marker, first, end);
        });
    });
}

/// This store becomes the result. It may be an operand: it is replaced at the end.
template <class T>
template <class Setup, class Work>
void llsparse<T>::build(const TwoPass& result, const Setup& setup, const Work& work)
{
    llsparse fresh;
    fresh.countColumns(result, setup);
    fresh.fillColumns(result, work);
    adopt(fresh, false);
}

/// The same inside the present arrays if the entries fit. Column j of the result depends on column j of this store only.
template <class T>
template <class Setup, class Work>
void llsparse<T>::buildInPlace(const TwoPass& result, const Setup& setup, const Work& work)
{
    llsparse fresh;
    fresh.countColumns(result, setup);
    if (fresh.nnz() > nzmax) {
        fresh.fillColumns(result, work);
        adopt(fresh, false);
        return;
    }
    // Marks of a first pass never exceed n, whichever columns it covered: any share's markers serve.
    qxsparse::mergeInPlace(*this, fresh.colPtr, [&](unsigned long j, unsigned long* mergedRow, T* mergedVal) {
        work(fresh.colPtr, mergedRow, mergedVal, result.markers.of(0), j, j + 1);
    });
    fresh.nzmax = nzmax;
    fresh.rowArray.swap(rowArray);
    fresh.row = row;
    fresh.valArray.swap(valArray);
    fresh.val = val;
    adopt(fresh, false);
}
