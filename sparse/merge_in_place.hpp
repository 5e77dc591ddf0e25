// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// Results that replace a store column by column inside its own arrays.

#include "llsparse.hpp"
#include "qxexception.hpp"
#include "team.hpp"

#include <algorithm>

namespace qxsparse {

/// Replaces column j of `store` by newColPtr[j+1] - newColPtr[j] entries that build(j, rows, values) makes from column j
/// of the store as it was, in the arrays of the store. A result column may be longer than the one it replaces: entries
/// wait in a ring until the source columns in their way have been read. The ring is as long as the longest wait, known
/// from the offsets before anything is changed. The caller installs newColPtr afterwards.
template <class T, class BuildColumn>
void mergeInPlace(llsparse<T>& store, const unsigned long* newColPtr, const BuildColumn& build)
{
    const unsigned long n = store.n;
    const unsigned long* oldColPtr = store.colPtr;
    if (newColPtr[n] > store.nzmax)
        QX_RAISE("sputil", "Internal_error_sparse", "Reallocation is needed.");
    const auto writable = [&](unsigned long j) { // result entries that fit before the next unread source column
        return std::min(newColPtr[j + 1], j + 1 < n ? oldColPtr[j + 1] : store.nzmax);
    };
    unsigned long longest = 1, ring = 1;
    for (unsigned long j = 0; j < n; ++j)
        longest = std::max(longest, newColPtr[j + 1] - newColPtr[j]);
    for (unsigned long j = 0; j < n; ++j) // a column joins what waits since the one before it
        ring = std::max(ring, newColPtr[j + 1] - (j > 0 ? writable(j - 1) : 0));
    const Scratch<unsigned long> rows(longest), waitingRows(ring);
    const Scratch<T> values(longest), waitingValues(ring);

    unsigned long written = 0;
    for (unsigned long j = 0; j < n; ++j) {
        build(j, rows.get(), values.get());
        for (unsigned long e = newColPtr[j], k = 0; e < newColPtr[j + 1]; ++e, ++k) {
            waitingRows[e % ring] = rows[k];
            waitingValues[e % ring] = values[k];
        }
        for (; written < writable(j); ++written) {
            store.row[written] = waitingRows[written % ring];
            store.val[written] = waitingValues[written % ring];
        }
    }
}

} // namespace qxsparse
