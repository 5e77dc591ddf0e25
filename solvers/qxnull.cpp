// SPDX-License-Identifier: LicenseRef-qxkernel
#include "qxnull.hpp"

#include "prop.hpp"
#include "qxexception.hpp"
#include "qxrun.hpp"
#include "solvers/expand_detail.hpp"
#include "solvers/qxnull_detail.hpp"

#include <algorithm>
#include <climits>
#include <new>
#include <string>

using namespace qxnull_detail;
using qxsolvers_detail::expanded;

namespace qxnull_detail {

Monitor::Monitor(qxutil::RunInfo& run, const char* cancelId) : run_(run), cancelId_(cancelId), log_(run)
{
    if (run.isActive())
        log_.init("Null space");
    else
        nextReport_ = ~Index(0);
}

void Monitor::raiseCancelled() const
{
    qxbase::CancelException cancelled;
    cancelled.add("qxnull", __LINE__, std::string("<CANCEL>") + cancelId_);
    throw cancelled;
}

Sparse Monitor::product(const Sparse& A, const Sparse& B) const
{
    try {
        return mul(A, B, NoTrans, &run_);
    } catch (const qxbase::CancelException&) {
        raiseCancelled();
    }
}

/// At most a thousand times in a run.
void Monitor::report()
{
    log_.setProgress(static_cast<double>(done_) / static_cast<double>(std::max(expected_, done_)));
    nextReport_ = done_ + std::max(Index(1), expected_ / 1000);
}

void checkRanks(Index unknowns, const Triple& first, const Triple& second)
{
    if (first.rank != second.rank) {
        qxbase::ExceptionArgs args = {{"Rank_N", std::to_string(first.rank)}, {"Rank_NF", std::to_string(second.rank)}};
        for (std::size_t i = 0; i < std::min(first.hasPivot.size(), second.hasPivot.size()); ++i)
            if (first.hasPivot[i] != second.hasPivot[i])
                args.emplace_back(first.hasPivot[i] ? "Constraint_repeated_in_NF" : "Constraint_repeated_in_N",
                                  std::to_string(i));
        QX_RAISE("qxnull", "Inconsistent_non-ideal_constraint", args);
    }
    for (const Triple* t : {&first, &second})
        if (t->Null.getN() + t->rank != unknowns)
            QX_RAISE("qxnull", "Internal_solver_error", "r vectors does not sum up correct.");
}

} // namespace qxnull_detail

namespace {

bool isAbsent(const Sparse& A) { return A.getM() == 0 && A.getN() == 0; }

[[noreturn]] void mismatch(const char* detail)
{
    QX_RAISE("qxnull", "Internal_error_solver", detail);
}

void checkTransposed(const Sparse& N, const Sparse& NT)
{
    if (N.getM() != NT.getN() || N.getN() != NT.getM() || N.getNnz() != NT.getNnz() || N.isReal() != NT.isReal())
        mismatch("Mismatching N and NT matrices.");
}

void checkSameSize(const Sparse& N, const Sparse& NF)
{
    if (N.getM() != NF.getM() || N.getN() != NF.getN())
        mismatch("Mismatching N and NF matrices.");
}

Selection selectionOf(const Array<bool, 1>& sel)
{
    const auto get = [&sel](unsigned long k) { return k < sel.size() && sel[k]; };
    return {get(0), get(1), get(2)};
}

void hand(const Triple& from, Selection want, Sparse& Null, Sparse& Compl, Sparse& Range)
{
    if (want.null)
        Null = from.Null;
    if (want.compl_)
        Compl = from.Compl;
    if (want.range)
        Range = from.Range;
}

/// What a matrix without entries gives.
Triple unconstrained(const Sparse& N)
{
    Triple t;
    t.Null.eye(N.getM());
    t.Compl.zeros(N.getM(), 0, 0, true);
    t.Range.zeros(0, N.getN(), 0, true);
    t.hasPivot.assign(N.getN(), false);
    return t;
}

/// N and its transpose as sorted column stores; either may be absent.
struct Pair
{
    Sparse N, NT;

    Pair(const Sparse& n, const Sparse& nt)
    {
        if (!isAbsent(n))
            N = expanded(n);
        if (!isAbsent(nt))
            NT = expanded(nt);
        if (isAbsent(N))
            N = transpose(NT, Trans);
        if (isAbsent(NT))
            NT = transpose(N, Trans);
        N.format(FormSorted, true);
        NT.format(FormSorted, true);
        checkTransposed(N, NT);
    }
};

Triple orthonormal(Monitor& monitor, int blasThreads, const Pair& p, Selection want)
{
    NullBlocks blocks;
    NullPairs pairs;
    findBlocks(monitor, p.N, p.NT, blocks, pairs);
    Triple t;
    eliminateOrthonormal(monitor, blasThreads, p.N, blocks, pairs, want, t);
    return t;
}

/// For a refusal: finds out which constraints of an orthonormal basis depend on others.
void findDependent(Monitor& monitor, const Pair& p, Triple& t)
{
    Triple sparse, unused;
    const Selection none{false, false, false};
    eliminateSparse(monitor, p.N, p.NT, nullptr, nullptr, none, none, sparse, unused);
    t.hasPivot = sparse.hasPivot;
}

const char* cancelIdOf(NullFun method)
{
    return method == NullFunOrthonormal ? "qxNullOrth_cancelled" : "qxNullSp_cancelled";
}

constexpr int oneBlasThread = 1; // the same bits on every machine: parallel BLAS divides sums

void computeNull(qxutil::RunInfo& run, const Sparse& N, const Sparse& NT, const Sparse& NF, bool wantNull, Sparse& Null,
                 bool wantCompl, Sparse& Compl, bool wantRange, Sparse& Range, Sparse& NullF, bool wantNullF,
                 Sparse& ComplF, bool wantComplF, Sparse& RangeF, bool wantRangeF, const NullFun& method, bool reorder,
                 int blasThreads)
{
    guarded([&] {
        if (isAbsent(N) && isAbsent(NT)) {
            hand(Triple(), {wantNull, wantCompl, wantRange}, Null, Compl, Range);
            hand(Triple(), {wantNullF, wantComplF, wantRangeF}, NullF, ComplF, RangeF);
            return;
        }
        Monitor monitor(run, cancelIdOf(method));
        monitor.poll();
        const bool second = wantNullF || wantComplF || wantRangeF;
        const Pair p(N, NT);
        if (second)
            checkSameSize(p.N, NF);
        monitor.expect(p.N);
        if (second)
            monitor.expect(p.N);
        monitor.poll();
        const bool isMethod = method == NullFunSparse || method == NullFunOrthonormal;
        const bool isNeeded = p.N.getNnz() != 0 || (second && NF.getNnz() != 0); // no entries: no method
        if (isNeeded && !isMethod)
            QX_RAISE("qxnull", "Internal_solver_error", "not allowed value for nullfun");

        // Both null spaces are needed to compare ranks and to reorder, whatever is wanted.
        const Selection want{wantNull || second, wantCompl, wantRange}, wantF{second, wantComplF, wantRangeF};
        Triple t, f;
        if (!second) {
            if (p.N.getNnz() == 0)
                t = unconstrained(p.N);
            else if (method == NullFunSparse)
                eliminateSparse(monitor, p.N, p.NT, nullptr, nullptr, want, wantF, t, f);
            else
                t = orthonormal(monitor, blasThreads, p, want);
        } else {
            const Pair pf(NF, Sparse());
            const bool first = p.N.getNnz() != 0, other = pf.N.getNnz() != 0;
            if (method == NullFunSparse && first && other)
                eliminateSparse(monitor, p.N, p.NT, &pf.N, &pf.NT, want, wantF, t, f);
            else if (method == NullFunSparse) {
                if (first)
                    eliminateSparse(monitor, p.N, p.NT, nullptr, nullptr, want, wantF, t, f);
                if (other)
                    eliminateSparse(monitor, pf.N, pf.NT, nullptr, nullptr, wantF, want, f, t);
            } else {
                if (first)
                    t = orthonormal(monitor, blasThreads, p, want);
                if (other)
                    f = orthonormal(monitor, blasThreads, pf, wantF);
            }
            if (!first)
                t = unconstrained(p.N);
            if (!other)
                f = unconstrained(pf.N);
            if (method == NullFunOrthonormal && t.rank != f.rank) {
                findDependent(monitor, p, t);
                findDependent(monitor, pf, f);
            }
            checkRanks(p.N.getM(), t, f);
            if (reorder)
                qxnull_detail::reorder(monitor, f.Null, t.Null);
        }
        monitor.poll();
        hand(t, {wantNull, wantCompl, wantRange}, Null, Compl, Range);
        hand(f, {wantNullF, wantComplF, wantRangeF}, NullF, ComplF, RangeF);
    });
}

} // namespace

void qxNull(qxutil::RunInfo& run, const Sparse& N, const Sparse& NT, const Sparse& NF, bool wantNull, Sparse& Null,
            bool wantCompl, Sparse& Compl, bool wantRange, Sparse& Range, Sparse& NullF, bool wantNullF,
            Sparse& ComplF, bool wantComplF, Sparse& RangeF, bool wantRangeF, const NullFun& method, bool reorder)
{
    computeNull(run, N, NT, NF, wantNull, Null, wantCompl, Compl, wantRange, Range, NullF, wantNullF, ComplF, wantComplF,
                RangeF, wantRangeF, method, reorder, oneBlasThread);
}

void qxNullSp(qxutil::RunInfo& run, const Sparse& N, const Sparse& NT, const Sparse& NF, const Sparse& NFT,
              Sparse& Null, Sparse& Compl, Sparse& Range, Sparse& NullF, Sparse& ComplF, Sparse& RangeF,
              const Array<bool, 1>& sel, const Array<bool, 1>& selF)
{
    guarded([&] {
        const Selection want = selectionOf(sel), wantF = selectionOf(selF);
        Monitor monitor(run, cancelIdOf(NullFunSparse));
        monitor.poll();
        const Pair p(N, NT);
        monitor.expect(p.N);
        if (!isAbsent(NF))
            monitor.expect(p.N);
        Triple t, f;
        if (isAbsent(NF)) {
            eliminateSparse(monitor, p.N, p.NT, nullptr, nullptr, want, wantF, t, f);
        } else {
            checkSameSize(p.N, NF);
            const Pair pf(NF, NFT);
            eliminateSparse(monitor, p.N, p.NT, &pf.N, &pf.NT, want, wantF, t, f);
        }
        monitor.poll();
        if (!isAbsent(NF))
            hand(f, wantF, NullF, ComplF, RangeF);
        hand(t, want, Null, Compl, Range);
    });
}

void qxNullSp(qxutil::RunInfo& run, const Sparse& N, const Sparse& NF, Sparse& Null, Sparse& Compl, Sparse& Range,
              const Array<bool, 1>& sel)
{
    Sparse unused;
    qxNullSp(run, N, Sparse(), NF, Sparse(), Null, Compl, Range, unused, unused, unused, sel, Array<bool, 1>());
}

void qxNullOrth(qxutil::RunInfo& run, const Sparse& N, const Sparse& NT, const NullBlocks& blocks,
                const NullPairs& pairs, Sparse& Null, Sparse& Compl, Sparse& Range, const Array<bool, 1>& sel)
{
    guarded([&] {
        const Selection want = selectionOf(sel);
        Monitor monitor(run, cancelIdOf(NullFunOrthonormal));
        monitor.poll();
        const Pair p(N, NT);
        monitor.expect(p.N);
        Triple t;
        eliminateOrthonormal(monitor, oneBlasThread, p.N, blocks, pairs, want, t);
        monitor.poll();
        hand(t, want, Null, Compl, Range);
    });
}

namespace {

constexpr const char* outputs[] = {"null", "compl", "range", "nullf", "complf", "rangef"};

} // namespace

void qxNullCheck(qxbase::Prop& in)
{
    using namespace qxbase;
    guarded([&] {
        Prop checked(in); // a failure leaves the list as it was
        for (const char* key : {"nullfun", "reorder"}) {
            checked.setCheck(key, boost::shared_ptr<const Check>(new ChkIntInterval(1, INT_MIN, INT_MAX)));
            checked.check(key);
        }
        checked.setCheck("blasthreads", boost::shared_ptr<const Check>(new ChkIntInterval(oneBlasThread, 0, INT_MAX)));
        checked.check("blasthreads");
        if (!checked.got("out")) {
            const int count = checked.got("nf") ? 6 : 3;
            checked.setany("out", std::vector<std::string>(outputs, outputs + count));
        }
        checked.setCheck("out", boost::shared_ptr<const Check>(new ChkVectorString()));
        checked.check("out");
        if (!checked.got("nargout"))
            checked.setInt("nargout", static_cast<int>(checked.get<std::vector<std::string>>("out").size()));
        for (const char* key : {"n", "nt", "nf", "nargout"})
            checked.check(key);
        std::swap(in, checked);
    });
}

void qxNull(qxutil::RunInfo& run, qxbase::Prop& in, qxbase::Prop& out)
{
    guarded([&] {
        if (!in.got("n"))
            QX_RAISE("qxnull", "No_N_matrix_given");
        qxNullCheck(in);
        const std::vector<std::string>& list = in.get<std::vector<std::string>>("out");
        const auto wants = [&list](int k) { return std::find(list.begin(), list.end(), outputs[k]) != list.end(); };
        if ((wants(3) || wants(4) || wants(5)) && !in.got("nf"))
            QX_RAISE("qxnull", "No_NF_matrix_given");
        const auto matrix = [&in](const char* key) { return in.got(key) ? in.get<Sparse>(key) : Sparse(); };

        Sparse result[6];
        computeNull(run, matrix("n"), matrix("nt"), matrix("nf"), wants(0), result[0], wants(1), result[1], wants(2),
                    result[2], result[3], wants(3), result[4], wants(4), result[5], wants(5),
                    NullFun(in.getInt("nullfun")), in.getInt("reorder") != 0, in.getInt("blasthreads"));
        qxbase::Prop complete(out);
        for (int k = 0; k < 6; ++k)
            if (wants(k))
                complete.setany(outputs[k], result[k]);
        std::swap(out, complete);
    });
}
