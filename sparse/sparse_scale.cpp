// SPDX-License-Identifier: LicenseRef-qxkernel
// In-place operations on the values of a store.

#include "llsparse_detail.hpp"
#include "team.hpp"

namespace {

using namespace qxsparse;

/// f(value) over all values.
template <class T, class F>
void forEachValue(llsparse<T>& s, const F& f)
{
    const unsigned long count = s.nnz();
    Team::ofLoop(count).forEach(count, [&](unsigned long p) { f(s.val[p]); });
}

/// f(value, d[stored column]).
template <class T, class U, class F>
void byColumn(llsparse<T>& s, const U* d, const F& f)
{
    const Team team = Team::ofLoop(s.nnz());
    team.run([&](int share) {
        const Slice columns = team.weighted(s.n, s.colPtr, share);
        for (unsigned long j = columns.from; j < columns.to; ++j)
            for (unsigned long p = s.colPtr[j]; p < s.colPtr[j + 1]; ++p)
                f(s.val[p], d[j]);
    });
}

/// f(value, d[stored row]).
template <class T, class U, class F>
void byRow(llsparse<T>& s, const U* d, const F& f)
{
    const unsigned long count = s.nnz();
    Team::ofLoop(count).forEach(count, [&](unsigned long p) { f(s.val[p], d[s.row[p]]); });
}

template <class T, class U, class F>
void byLogicalColumn(llsparse<T>& s, const U* d, const F& f)
{
    s.symm == RowStored ? byRow(s, d, f) : byColumn(s, d, f);
}

template <class T, class U, class F>
void byLogicalRow(llsparse<T>& s, const U* d, const F& f)
{
    s.symm == RowStored ? byColumn(s, d, f) : byRow(s, d, f);
}

constexpr auto multiplyBy = [](auto& value, const auto& factor) { value = mul(value, factor); };
constexpr auto divideBy = [](auto& value, const auto& divisor) { value = divide(value, divisor); };

} // namespace

template <class T>
template <class U>
void llsparse<T>::scale(const U& alpha)
{
    forEachValue(*this, [&](T& value) { value = mul(value, alpha); });
}

template <class T>
void llsparse<T>::conjugate()
{
    forEachValue(*this, [](T& value) { value = qxsparse::conjugate(value); });
}

template <class T>
template <class U>
void llsparse<T>::colscale(const U* d)
{
    byLogicalColumn(*this, d, multiplyBy);
}

template <class T>
template <class U>
void llsparse<T>::colscaleInv(const U* d)
{
    byLogicalColumn(*this, d, divideBy);
}

template <class T>
template <class U>
void llsparse<T>::rowscale(const U* d)
{
    byLogicalRow(*this, d, multiplyBy);
}

template <class T>
template <class U>
void llsparse<T>::rowscaleInv(const U* d)
{
    byLogicalRow(*this, d, divideBy);
}

#define QX_INSTANTIATE(T) template void llsparse<T>::conjugate();
QX_FOR_EACH_STORE(QX_INSTANTIATE)
#undef QX_INSTANTIATE
#define QX_INSTANTIATE(T, U)                                                                                          \
    template void llsparse<T>::scale(const U&);                                                                       \
    template void llsparse<T>::colscale(const U*);                                                                    \
    template void llsparse<T>::colscaleInv(const U*);                                                                 \
    template void llsparse<T>::rowscale(const U*);                                                                    \
    template void llsparse<T>::rowscaleInv(const U*);
QX_FOR_EACH_SCALE(QX_INSTANTIATE)
