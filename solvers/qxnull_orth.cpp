// SPDX-License-Identifier: LicenseRef-qxkernel
#include "arrayutil.hpp"
#include "qxexception.hpp"
#include "qxnumber.hpp"
#include "qxparallel.hpp"
#include "qxrun.hpp"
#include "solvers/expand_detail.hpp"
#include "solvers/qxnull_detail.hpp"

#include <algorithm>
#include <optional>

namespace qxnull_detail {

namespace {

[[noreturn]] void failed()
{
    QX_RAISE("qxnull", "Constraint_elimination_failed_in_SVD");
}

/// One block: the dense matrix of its rows and constraints, and afterwards its bases.
template <class T>
struct Block
{
    Array<T, 2> basis; ///< (rows, rows): the first rank columns are Compl, the others Null
    Array<T, 2> range; ///< (rank, constraints)
    Index rank = 0;
};

/// An orthonormal basis whose first column is x, of norm 1: the columns of a reflection that takes the first unit vector
/// to a multiple of x of magnitude 1. Source: Golub and Van Loan, Matrix Computations, 4th ed., section 5.1.
template <class T>
Array<T, 2> completeBasis(const Monitor& monitor, const Array<T, 1>& x)
{
    const Index n = x.size();
    const double first = std::abs(x[0]);
    const T phase = first == 0.0 ? T(1) : x[0] / first;
    // H = I - w w^H / (1 + |x_0|) with w = x + phase e_0 takes e_0 to -conj(phase) x: its other columns complete x.
    Array<T, 1> w(x);
    w[0] += phase;
    Array<T, 2> Q(n, n);
    for (Index j = 0; j < n; ++j) {
        monitor.poll();
        for (Index i = 0; i < n; ++i)
            Q(i, j) = j == 0 ? x[i] : T(i == j ? 1 : 0) - w[i] * conjugate(w[j]) / (1.0 + first);
    }
    return Q;
}

template <class T>
void identity(Array<T, 2>& Q, Index n)
{
    Q.resize(n, n);
    Q = T(0);
    for (Index i = 0; i < n; ++i)
        Q(i, i) = T(1);
}

/// A block of one constraint: N = (x / |x|) |x|.
template <class T>
Block<T> decomposeColumn(const Monitor& monitor, const Array<T, 2>& N)
{
    Block<T> block;
    Array<T, 1> x(N.extent(0));
    std::copy(N.begin(), N.end(), x.begin());
    const double length = qxarray::norm(x);
    if (qxIsNaNorInf(length))
        failed();
    if (length > tolerance) {
        for (T& value : x)
            value /= length;
        block.basis = completeBasis(monitor, x);
        block.rank = 1;
        block.range.resize(1, 1);
        block.range[0] = T(length);
    } else
        identity(block.basis, N.extent(0));
    return block;
}

/// N = U diag(s) V^H: the left vectors of the singular values that count, and diag(s) V^H.
template <class T>
Block<T> decompose(Array<T, 2>& N)
{
    Block<T> block;
    Array<double, 1> s;
    Array<T, 2> VT;
    if (qxarray::svd("A", "S", N, block.basis, s, VT, 0) != 0)
        failed();
    if (s[0] > 0.0)
        block.rank = static_cast<Index>(
            std::count_if(s.begin(), s.end(), [&s](double value) { return value >= tolerance * s[0]; }));
    block.range.resize(block.rank, VT.extent(1));
    for (Index j = 0; j < VT.extent(1); ++j)
        for (Index k = 0; k < block.rank; ++k)
            block.range(k, j) = s[k] * VT(k, j);
    return block;
}

template <class T>
Array<T, 2> denseBlock(const Monitor& monitor, const llsparse<T>& N, const std::vector<Index>& rows, const std::vector<Index>& constraints,
                       const std::vector<Index>& place)
{
    Array<T, 2> D(rows.size(), constraints.size());
    D = T(0);
    for (Index c = 0; c < constraints.size(); ++c) {
        monitor.poll();
        for (Index k = N.colPtr[constraints[c]]; k < N.colPtr[constraints[c] + 1]; ++k)
            D(place[N.row[k]], c) += N.val[k];
    }
    return D;
}

template <class T>
void writeColumn(const Array<T, 2>& basis, Index j, const std::vector<Index>& rows, ColumnWriter<T>& writer)
{
    for (Index i = 0; i < rows.size(); ++i)
        writer.add(rows[i], basis(i, j));
    writer.endColumn();
}

template <class T>
void nullorthPrivate(Monitor& monitor, int blasThreads, const Sparse& matrix, const NullBlocks& blocks, const NullPairs& pairs,
                     Selection want, Triple& result)
{
    std::optional<qxbase::BlasThreadScope> threads;
    if (blasThreads > 0)
        threads.emplace(blasThreads);
    const llsparse<T>& N = StoreOf<T>::of(matrix);
    const Index d = N.m, c = N.n, none = blocks.size();

    std::vector<std::vector<Index>> constraints(blocks.size());
    for (const auto& [constraint, block] : pairs)
        constraints[block].push_back(constraint);
    std::vector<Index> blockOf(d, none), place(d);
    for (Index b = 0; b < blocks.size(); ++b)
        for (Index i = 0; i < blocks[b].size(); ++i) {
            blockOf[blocks[b][i]] = b;
            place[blocks[b][i]] = i;
        }

    struct RangeColumn
    {
        Index firstRow = 0;
        std::vector<T> values;
    };
    std::vector<RangeColumn> range(c);
    ColumnWriter<T> Null(d), Compl(d);
    for (Index j = 0; j < d; ++j) {
        monitor.step();
        if (blockOf[j] == none) {
            Null.add(j, T(1));
            Null.endColumn();
            continue;
        }
        const Index b = blockOf[j];
        if (blocks[b].front() != j)
            continue;
        Array<T, 2> D = denseBlock(monitor, N, blocks[b], constraints[b], place);
        const Block<T> block = constraints[b].size() == 1 ? decomposeColumn(monitor, D) : decompose(D);
        monitor.poll(); // the decomposition could not
        for (Index k = 0; want.compl_ && k < block.rank; ++k) {
            monitor.poll();
            writeColumn(block.basis, k, blocks[b], Compl);
        }
        for (Index k = block.rank; want.null && k < blocks[b].size(); ++k) {
            monitor.poll();
            writeColumn(block.basis, k, blocks[b], Null);
        }
        for (Index k = 0; want.range && k < constraints[b].size(); ++k) {
            RangeColumn& column = range[constraints[b][k]];
            column.firstRow = result.rank;
            for (Index i = 0; i < block.rank; ++i)
                column.values.push_back(block.range(i, k));
        }
        result.rank += block.rank;
    }

    if (want.null)
        result.Null = Null.finish();
    if (want.compl_)
        result.Compl = Compl.finish();
    if (want.range) {
        ColumnWriter<T> Range(result.rank);
        for (const RangeColumn& column : range) {
            monitor.step();
            for (Index i = 0; i < column.values.size(); ++i)
                Range.add(column.firstRow + i, column.values[i]);
            Range.endColumn();
        }
        result.Range = Range.finish();
    }
}

} // namespace

void eliminateOrthonormal(Monitor& monitor, int blasThreads, const Sparse& N, const NullBlocks& blocks,
                          const NullPairs& pairs, Selection want, Triple& result)
{
    if (N.isReal())
        nullorthPrivate<double>(monitor, blasThreads, N, blocks, pairs, want, result);
    else
        nullorthPrivate<cplx>(monitor, blasThreads, N, blocks, pairs, want, result);
}

void findBlocks(Monitor& monitor, const Sparse& N, const Sparse& NT, NullBlocks& blocks, NullPairs& pairs)
{
    const Sparse byConstraint = qxsolvers_detail::expanded(N), byUnknown = qxsolvers_detail::expanded(NT);
    const Index d = byConstraint.getM(), c = byConstraint.getN();
    if (byUnknown.getM() != c || byUnknown.getN() != d)
        QX_RAISE("qxnull", "Internal_error_solver", "Mismatching N and NT matrices.");
    blocks.clear();
    pairs.clear();

    // A walk from each unknown that has constraints and no block yet.
    const Index none = d;
    std::vector<Index> blockOfUnknown(d, none), blockOfConstraint(c, none), waiting;
    const Index *unknownPtr = byUnknown.getColPtr(), *constraintPtr = byConstraint.getColPtr();
    for (Index start = 0; start < d; ++start) {
        monitor.step();
        if (blockOfUnknown[start] != none || unknownPtr[start + 1] == unknownPtr[start])
            continue;
        const Index number = blocks.size();
        blocks.emplace_back();
        waiting.assign(1, start);
        blockOfUnknown[start] = number;
        while (!waiting.empty()) {
            monitor.poll();
            const Index j = waiting.back();
            waiting.pop_back();
            blocks.back().push_back(j);
            for (Index k = unknownPtr[j]; k < unknownPtr[j + 1]; ++k) {
                const Index i = byUnknown.getRow()[k];
                if (blockOfConstraint[i] != none)
                    continue;
                blockOfConstraint[i] = number;
                for (Index q = constraintPtr[i]; q < constraintPtr[i + 1]; ++q) {
                    const Index other = byConstraint.getRow()[q];
                    if (blockOfUnknown[other] == none) {
                        blockOfUnknown[other] = number;
                        waiting.push_back(other);
                    }
                }
            }
        }
        std::sort(blocks.back().begin(), blocks.back().end());
    }
    for (Index i = 0; i < c; ++i)
        if (blockOfConstraint[i] != none)
            pairs.emplace_back(i, blockOfConstraint[i]);

    // Every entry, seen from either side, must lie within one block: so it is if NT has the structure of N's transpose.
    const auto sumsUp = [none, &monitor](const Sparse& A, const std::vector<Index>& blockOfRow, const std::vector<Index>& blockOfColumn) {
        for (Index j = 0; j < A.getN(); ++j) {
            monitor.step();
            for (Index k = A.getColPtr()[j]; k < A.getColPtr()[j + 1]; ++k)
                if (blockOfColumn[j] == none || blockOfRow[A.getRow()[k]] != blockOfColumn[j])
                    return false;
        }
        return true;
    };
    if (!sumsUp(byConstraint, blockOfUnknown, blockOfConstraint) || !sumsUp(byUnknown, blockOfConstraint, blockOfUnknown))
        QX_RAISE("qxnull", "Internal_solver_error", "r or s vector does not sum up correct.");
}

} // namespace qxnull_detail

void blockdsp(const Sparse& N, const Sparse& NT, NullBlocks& blocks, NullPairs& pairs)
{
    using namespace qxnull_detail;
    guarded([&] {
        qxutil::RunInfo unwatched;
        Monitor monitor(unwatched, "");
        NullBlocks newBlocks;
        NullPairs newPairs;
        findBlocks(monitor, N, NT, newBlocks, newPairs);
        blocks.swap(newBlocks);
        pairs.swap(newPairs);
    });
}
