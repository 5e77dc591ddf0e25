// SPDX-License-Identifier: LicenseRef-qxkernel
// Any bytes as a sequence of operations on three sparse matrices, of all storage kinds and forms, compared after each with
// dense matrices. A refused operation must leave its operands as they were.

#include "bytes.hpp"
#include "dense_model.hpp"

#include "qxexception.hpp"
#include "qxparallel.hpp"

#include <memory>

namespace {

using namespace fuzz;
using cplx = std::complex<double>;

/// A matrix and its slow double: the store as it should be.
struct Pair
{
    Sparse A;
    Dense S;
    Symm_t symm() const { return A.getSymm(); }
    bool byRow() const { return symm() == RowStored; }
};

bool isSummand(Symm_t s) { return s == Symmetric || s == Hermitian; }

Wide wide(cplx z) { return {z.real(), z.imag()}; }

Symm_t symmOfSum(Symm_t a, Symm_t b) { return a == RowStored || b == RowStored ? RowStored : a == b ? a : Unsymmetric; }
Symm_t symmOfProduct(Symm_t a, Symm_t b) { return a == RowStored || b == RowStored ? RowStored : Unsymmetric; }

void expectSymm(const Sparse& A, Symm_t wanted)
{
    if (A.getSymm() != wanted)
        std::abort();
}

Dense storedProduct(const Pair& a, const Pair& b) { return a.byRow() || b.byRow() ? times(b.S, a.S) : times(a.S, b.S); }

Matrix<1> vectorOf(Bytes& in, Index n, bool real)
{
    Matrix<1> x(n, real);
    for (Index i = 0; i < n; ++i) {
        if (real)
            x.getdArr()[i] = in.number();
        else
            x.getzArr()[i] = cplx(in.number(), in.number());
    }
    return x;
}

Dense denseOf(const Matrix<1>& x)
{
    return made(x.size(), 1, [&](Index i, Index) { return wide(x[i]); });
}

class Sequence
{
public:
    explicit Sequence(Bytes in) : in_(in) {}

    void run()
    {
        for (int steps = 0; steps < 60 && !in_.empty(); ++steps) {
            const unsigned op = in_.next();
            Pair& a = pairs_[in_.below(3)];
            Pair& b = pairs_[in_.below(3)];
            Pair& c = pairs_[in_.below(3)];
            try {
                apply(op, a, b, c);
            } catch (const qxbase::Exception&) {
                // the models were not changed: neither may the matrices be
            }
            for (const Pair& p : pairs_)
                expectEqual(stored(p.A), p.S, "after an operation");
            for (Pair& p : pairs_)
                if (largest(p.S) > 1e9) { // beyond, rounding and overflow would hide faults
                    p.A.clear();
                    p.S = Dense();
                }
        }
    }

private:
    void assemble(Pair& c)
    {
        const Index m = in_.below(7), n = in_.below(7);
        const bool real = in_.coin();
        const unsigned count = m * n == 0 ? 0 : in_.below(20);
        std::vector<Index> rows, cols;
        std::vector<double> re;
        std::vector<cplx> z;
        Dense S(m, n);
        for (unsigned k = 0; k < count; ++k) {
            rows.push_back(in_.below(unsigned(m)));
            cols.push_back(in_.below(unsigned(n)));
            z.emplace_back(in_.number(), real ? 0.0 : in_.number());
            re.push_back(z.back().real());
            S(rows.back(), cols.back()) += wide(z.back());
        }
        Sparse A;
        if (real)
            A.triplet2sparse(rows, cols, re, m, n);
        else
            A.triplet2sparse(rows, cols, z, m, n);
        c = {A, S};
    }

    void setElem(Pair& a)
    {
        const Index i = in_.below(8), j = in_.below(8);
        const cplx value(in_.number(), in_.coin() ? in_.number() : 0.0);
        const bool byRow = a.byRow();
        a.A.setElem(i, j, value);
        const Index r = byRow ? j : i, c = byRow ? i : j;
        Dense S(std::max(a.S.m, a.A.getSymm() == RowStored ? a.A.getN() : a.A.getM()),
                std::max(a.S.n, a.A.getSymm() == RowStored ? a.A.getM() : a.A.getN()));
        for (Index q = 0; q < a.S.n; ++q)
            for (Index p = 0; p < a.S.m; ++p)
                S(p, q) = a.S(p, q);
        if (r < S.m && c < S.n)
            S(r, c) = wide(value);
        else if (value != 0.0)
            std::abort(); // did not grow
        a.S = S;
    }

    void select(const Pair& a, Pair& c)
    {
        const auto list = [&](Index end) {
            Array<int, 1> l(end == 0 ? 0u : in_.below(6));
            for (int& i : l)
                i = int(in_.below(unsigned(end)));
            return l;
        };
        Array<int, 1> rows = list(a.A.getM()), cols = list(a.A.getN());
        const Sparse A = subMatrix(a.A, rows, cols);
        if (a.byRow())
            rows.swap(cols);
        Dense S(rows.size(), cols.size());
        for (Index k = 0; k < cols.size(); ++k)
            for (Index i = 0; i < rows.size(); ++i) {
                const bool last = std::find(rows.begin() + i + 1, rows.end(), rows[i]) == rows.end(); // earlier ones give way
                if (last)
                    S(i, k) = a.S(Index(rows[i]), Index(cols[k]));
            }
        c = {A, S};
        expectSymm(c.A, c.A.getSymm());
    }

    void join(const Pair& a, const Pair& b, Pair& c)
    {
        const bool columns = in_.coin(), force = in_.coin();
        const Sparse A = columns ? hcat(a.A, b.A, force) : vcat(a.A, b.A, force);
        const bool side = columns != (a.byRow() || b.byRow());
        Dense S(side ? std::max(a.S.m, b.S.m) : a.S.m + b.S.m, side ? a.S.n + b.S.n : std::max(a.S.n, b.S.n));
        for (Index j = 0; j < a.S.n; ++j)
            for (Index i = 0; i < a.S.m; ++i)
                S(i, j) += a.S(i, j);
        for (Index j = 0; j < b.S.n; ++j)
            for (Index i = 0; i < b.S.m; ++i)
                S(i + (side ? 0 : a.S.m), j + (side ? a.S.n : 0)) += b.S(i, j);
        c = {A, S};
    }

    void multiplyVector(const Pair& a)
    {
        const Trans_t trans = Trans_t(in_.below(3));
        const Matrix<1> x = vectorOf(in_, trans == NoTrans ? a.A.getN() : a.A.getM(), in_.coin());
        const Dense A = represented(a.S, a.symm()), op = trans == NoTrans ? A : transposed(A, trans == ConjTrans);
        const Matrix<1> y = AMulx(a.A, x, trans);
        expectEqual(denseOf(y), times(op, denseOf(x)), "product with a vector");
        Matrix<1> z = vectorOf(in_, y.size(), in_.coin());
        const Dense before = denseOf(z);
        yMinusAMulx(z, a.A, x, trans);
        expectEqual(denseOf(z), sum(-1, times(op, denseOf(x)), before), "y - A x");
    }

    /// Sweeps: the residual that SORItUpdater leaves, and no element behind a vector.
    void sweep(Pair& a)
    {
        const Index n = a.A.getM();
        const double omega = 0.5 + 0.25 * in_.below(5);
        const bool reverse = in_.coin();
        Matrix<1> x = vectorOf(in_, n, in_.coin()), b = vectorOf(in_, n, true);
        Array<Index, 1> idx(in_.below(6));
        for (Index& i : idx)
            i = in_.below(8);
        if (in_.coin())
            a.A.format(in_.coin() ? FormDiag : FormSortedDiag, in_.coin());
        Matrix<1> r = AMulx(a.A, x, NoTrans);
        r.real2complex();
        for (Index i = 0; i < r.size(); ++i)
            r.getzArr()[i] -= b[i];
        Matrix<1> r1 = r, x1 = x;
        const bool fresh = in_.coin();
        if (fresh)
            a.A.setForm(FormNone), a.A.format(FormDiag, true);
        SORItUpdater(a.A, r1, x1, omega, reverse);
        bool realDiagonal = true; // as a Hermitian matrix has it: sweeps divide by the stored entry
        for (Index i = 0; i < n; ++i)
            realDiagonal = realDiagonal && a.S(i, i).imag() == 0;
        if (fresh && (a.symm() != Hermitian || realDiagonal)) { // a form that setElem has not made stale
            const Dense A = represented(a.S, a.symm()), exact = sum(-1, denseOf(b), times(A, denseOf(x1)));
            if (largest(exact) < 1e6 && largest(denseOf(x1)) < 1e6)
                expectEqual(denseOf(r1), exact, "residual after a sweep");
        }
        SORIt(a.A, r, x, omega, reverse);
        SORUpdater(a.A, r, omega, !reverse);
        JacobiIts(a.A, r, x, omega);
        SORIt(a.A, r, x, idx, omega, reverse);
        SORUpdater(a.A, r, idx, omega, reverse);
    }

    void apply(unsigned op, Pair& a, Pair& b, Pair& c)
    {
        switch (op % 32) {
        case 0:
        case 1:
        case 2: assemble(c); break;
        case 3:
        case 4: setElem(a); break;
        case 5:
        case 6: a.A.format(Form_t(in_.below(4)), in_.coin()); break;
        case 7: {
            const Symm_t symm = Symm_t(in_.below(4));
            a.A.setSymm(symm);
            expectSymm(a.A, a.A.isReal() && symm == Hermitian ? Symmetric : symm);
            break;
        }
        case 8: {
            const Trans_t trans = Trans_t(in_.below(3));
            const bool byRow = a.byRow();
            a.A.makeSymmetric(trans);
            a.S = made(a.S.m, a.S.n, [&](Index i, Index j) {
                const Wide v = i < j ? Wide(0) : i == j ? a.S(i, j) * 0.5L : a.S(i, j);
                return byRow && trans == ConjTrans ? std::conj(v) : v;
            });
            break;
        }
        case 9: {
            const Trans_t trans = Trans_t(in_.below(3));
            const Pair t{transpose(a.A, trans), trans == NoTrans ? a.S : transposed(a.S, trans == ConjTrans)};
            c = t;
            break;
        }
        case 10:
        case 11: {
            const cplx alpha(in_.number(), in_.coin() ? in_.number() : 0.0);
            const Pair s{add(a.A, alpha, b.A), Dense()};
            expectSymm(s.A, symmOfSum(a.symm(), b.symm()));
            const Dense S = sum(wide(alpha), a.S, b.S);
            c = {s.A, S};
            break;
        }
        case 12: {
            const Sparse A = in_.coin() ? a.A + b.A : a.A - b.A;
            const Dense plus = sum(1, a.S, b.S), minus = sum(-1, b.S, a.S);
            const Dense got = stored(A);
            expectEqual(got, largest(sum(-1, got, plus)) <= largest(sum(-1, got, minus)) ? plus : minus, "sum or difference");
            c = {A, got};
            break;
        }
        case 13: {
            const cplx alpha(in_.number(), in_.coin() ? in_.number() : 0.0);
            const bool inPlace = in_.coin();
            const Dense S = a.S.m == b.S.m && a.S.n == b.S.n ? sum(wide(alpha), b.S, a.S) : a.S;
            a.A.addMat(alpha, b.A, inPlace);
            a.S = S;
            break;
        }
        case 14:
        case 15: {
            const Trans_t trans = Trans_t(in_.below(3));
            const Sparse A = mul(a.A, b.A, trans);
            expectSymm(A, symmOfProduct(a.symm(), b.symm()));
            const Dense P = storedProduct(a, b), S = trans == NoTrans ? P : transposed(P, trans == ConjTrans);
            c = {A, S};
            break;
        }
        case 16: {
            const bool inPlace = in_.coin(), selects = b.symm() == Unsymmetric && b.A.isSimple();
            const Pair before = a;
            a.A.mulRight(b.A, inPlace);
            if (!selects)
                a.S = storedProduct(before, b);
            else if (before.byRow())
                a.S = times(transposed(b.S, false), before.S); // chosen stored rows
            else
                a.S = times(before.S, b.S);
            break;
        }
        case 17: {
            const Trans_t trans = Trans_t(in_.below(3));
            const bool inPlace = in_.coin(), selects = trans != NoTrans && b.symm() == Unsymmetric && b.A.isSimple();
            const Pair before = a, left{transpose(b.A, trans), trans == NoTrans ? b.S : transposed(b.S, trans == ConjTrans)};
            a.A.multLeft(b.A, trans, inPlace);
            if (!selects)
                a.S = storedProduct(left, before);
            else if (before.byRow())
                a.S = times(before.S, b.S);
            else
                a.S = times(transposed(b.S, false), before.S);
            break;
        }
        case 18: {
            const cplx alpha(in_.number(), in_.coin() ? in_.number() : 0.0);
            const Index m = a.A.getM(), n = a.A.getN();
            a.A.scale(alpha);
            a.S = alpha == 0.0 ? Dense(m, n) : made(a.S.m, a.S.n, [&](Index i, Index j) { return wide(alpha) * a.S(i, j); });
            break;
        }
        case 19: {
            const bool columns = in_.coin(), inverse = in_.coin();
            Matrix<1> d = vectorOf(in_, columns ? a.A.getN() : a.A.getM(), in_.coin());
            for (Index i = 0; inverse && i < d.size(); ++i)
                if (d[i] == 0.0)
                    return;
            const bool storedColumns = columns != a.byRow();
            if (columns)
                inverse ? a.A.colscaleInv(d) : a.A.colscale(d);
            else
                inverse ? a.A.rowscaleInv(d) : a.A.rowscale(d);
            a.S = made(a.S.m, a.S.n, [&](Index i, Index j) {
                const Wide f = wide(d[storedColumns ? j : i]);
                return inverse ? a.S(i, j) / f : a.S(i, j) * f;
            });
            break;
        }
        case 20: join(a, b, c); break;
        case 21: select(a, c); break;
        case 22: {
            std::vector<int> mask(a.A.getN());
            for (int& m : mask)
                m = int(in_.below(3)) - 1;
            a.A.zeroCols(mask.data());
            const bool byRow = a.byRow();
            a.S = made(a.S.m, a.S.n, [&](Index i, Index j) { return mask[byRow ? i : j] >= 1 ? Wide(0) : a.S(i, j); });
            break;
        }
        case 23: {
            std::vector<bool> used(a.byRow() ? a.S.m : a.S.n);
            for (Index j = 0; j < a.S.n; ++j)
                for (Index p = a.A.getColPtr()[j]; p < a.A.getColPtr()[j + 1]; ++p)
                    used[a.byRow() ? a.A.getRow()[p] : j] = true;
            const bool byRow = a.byRow();
            a.A.removeZeroCols();
            std::vector<Index> kept;
            for (Index k = 0; k < used.size(); ++k)
                if (used[k])
                    kept.push_back(k);
            a.S = byRow ? made(kept.size(), a.S.n, [&](Index i, Index j) { return a.S(kept[i], j); })
                        : made(a.S.m, kept.size(), [&](Index i, Index j) { return a.S(i, kept[j]); });
            break;
        }
        case 24: a.A.removeDuplicates(); break;
        case 25:
            if (a.A.hasUniqueData()) // a shared store is reported on the output
                a.A.truncateCols(0.0);
            break;
        case 26: {
            const Dense before = represented(a.S, a.symm());
            a.A.uniqueSymmetric();
            expectEqual(represented(stored(a.A), a.symm()), before, "uniqueSymmetric");
            a.S = stored(a.A);
            break;
        }
        case 27: {
            const Index m = in_.below(8), n = in_.below(8);
            const bool byRow = a.byRow();
            const Dense L = byRow ? transposed(a.S, false) : a.S;
            const bool same = L.m == m && L.n == n;
            a.A.reshape(int(m), int(n));
            Dense R(m, n);
            for (Index k = 0; k < L.v.size(); ++k) // entries that do not fit are refused; zeros vanish
                if (L.v[k] != Wide(0) && k < R.v.size())
                    R.v[k] = L.v[k];
            a.S = same ? a.S : byRow ? transposed(R, false) : R;
            break;
        }
        case 28: {
            const bool toRow = in_.coin();
            const Sparse A = toRow ? convertToRow(a.A) : convertToCol(a.A);
            const bool changed = A.getSymm() != a.symm();
            const Dense S = changed ? transposed(a.S, false) : a.S;
            c = {A, S};
            break;
        }
        case 29: multiplyVector(a); break;
        case 30: sweep(a); break;
        case 31: inspect(a, b, c); break;
        }
    }

    void inspect(Pair& a, const Pair& b, Pair& c)
    {
        switch (in_.below(9)) {
        case 0: a.A.real2complex(); break;
        case 1: c = Pair(a); break; // shares the store
        case 2: a.A.reallocate(2.0); break;
        case 3: {
            const bool real = a.A.isReal();
            a.A.conjugate();
            if (!real)
                a.S = made(a.S.m, a.S.n, [&](Index i, Index j) { return std::conj(a.S(i, j)); });
            break;
        }
        case 4: {
            const Dense before = represented(a.S, a.symm());
            const Sparse T = sparse2tril(a.A);
            if (isSummand(a.symm()))
                for (Index j = 0; j < before.n; ++j) // off the diagonal nothing changes
                    for (Index i = 0; i < before.m; ++i)
                        if (i != j && std::abs(represented(stored(T), T.getSymm())(i, j) - before(i, j)) > 1e-9L * (1 + std::abs(before(i, j))))
                            std::abort();
            break;
        }
        case 5: {
            const double tol = 0.1 * in_.below(3);
            a.A.isSymmetric(tol, in_.coin() ? Trans : ConjTrans);
            a.A.isEqual(b.A, tol, NoTrans);
            a.A.posDiag();
            a.A.isSimple();
            break;
        }
        case 6: {
            std::vector<std::pair<int, int>> pairs;
            std::vector<int> mask(a.A.getN());
            if (a.A.getM() > 0)
                a.A.nonZeros(in_.below(unsigned(a.A.getM())), mask.data());
            a.A.getVectorPair(pairs);
            break;
        }
        case 7:
            a.A.clear();
            a.S = Dense();
            break;
        case 8:
            a.A.eye(in_.below(6), in_.below(6));
            a.S = stored(a.A);
            break;
        }
    }

    Bytes in_;
    Pair pairs_[3];
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Sequence(fuzz::Bytes(data, size)).run();
    return 0;
}
