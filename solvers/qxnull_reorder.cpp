// SPDX-License-Identifier: LicenseRef-qxkernel
#include "diagnostic.hpp"
#include "solvers/expand_detail.hpp"
#include "solvers/qxnull_detail.hpp"

namespace qxnull_detail {

namespace {

constexpr Index none = ~Index(0);

/// For each column of P the unused row of largest magnitude, the first one on a tie; false if a column finds none.
/// negative: whether that entry has a negative real part. changed: whether anything is to be done.
template <class T>
bool computeNewOrder(Monitor& monitor, const llsparse<T>& P, std::vector<Index>& order, std::vector<bool>& negative, bool& changed)
{
    std::vector<bool> used(P.m);
    order.assign(P.n, none);
    negative.assign(P.n, false);
    changed = false;
    for (Index j = 0; j < P.n; ++j) {
        monitor.step();
        double largest = 0.0;
        for (Index k = P.colPtr[j]; k < P.colPtr[j + 1]; ++k)
            if (!used[P.row[k]] && std::abs(P.val[k]) > largest) {
                largest = std::abs(P.val[k]);
                order[j] = P.row[k];
                negative[j] = std::real(P.val[k]) < 0.0;
            }
        if (order[j] == none)
            return false;
        used[order[j]] = true;
        changed = changed || order[j] != j || negative[j];
    }
    return true;
}

template <class T>
Sparse reorderPrivate(Monitor& monitor, const llsparse<T>& F, const std::vector<Index>& order, const std::vector<bool>& negative)
{
    ColumnWriter<T> writer(F.m);
    for (Index j = 0; j < order.size(); ++j) {
        monitor.step();
        for (Index k = F.colPtr[order[j]]; k < F.colPtr[order[j] + 1]; ++k)
            writer.add(F.row[k], negative[j] ? -F.val[k] : F.val[k]);
        writer.endColumn();
    }
    return writer.finish();
}

} // namespace

void reorder(Monitor& monitor, Sparse& NullF, const Sparse& Null)
{
    monitor.poll();
    const Sparse F = qxsolvers_detail::expanded(NullF);
    const Sparse adjoint = transpose(F, ConjTrans);
    monitor.poll();
    Sparse P = monitor.product(adjoint, qxsolvers_detail::expanded(Null));
    monitor.poll();
    P.format(FormSorted, true);

    std::vector<Index> order;
    std::vector<bool> negative;
    bool changed = false;
    const bool found = P.isReal() ? computeNewOrder(monitor, StoreOf<double>::of(P), order, negative, changed)
                                  : computeNewOrder(monitor, StoreOf<cplx>::of(P), order, negative, changed);
    if (!found)
        qxbase::diagnosticLine("Warning: Re-ordering of null vectors failed");
    else if (changed)
        NullF = F.isReal() ? reorderPrivate(monitor, StoreOf<double>::of(F), order, negative)
                           : reorderPrivate(monitor, StoreOf<cplx>::of(F), order, negative);
}

} // namespace qxnull_detail

void reorderNullF(Sparse& NullF, const Sparse& Null)
{
    using namespace qxnull_detail;
    guarded([&] {
        qxutil::RunInfo unwatched;
        Monitor monitor(unwatched, "");
        reorder(monitor, NullF, Null);
    });
}
