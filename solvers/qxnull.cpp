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

void raiseCancelled(const char* id)
{
    qxbase::CancelException cancelled;
    cancelled.add("qxnull", __LINE__, std::string("<CANCEL>") + id);
    throw cancelled;
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

Triple orthonormal(const qxutil::RunInfo& run, const Pair& p, Selection want)
{
    NullBlocks blocks;
    NullPairs pairs;
    blockdsp(p.N, p.NT, blocks, pairs);
    Triple t;
    eliminateOrthonormal(run, p.N, blocks, pairs, want, t);
    return t;
}

/// For a refusal: finds out which constraints of an orthonormal basis depend on others.
void findDependent(const qxutil::RunInfo& run, const Pair& p, Triple& t)
{
    Triple sparse, unused;
    const Selection none{false, false, false};
    eliminateSparse(run, p.N, p.NT, nullptr, nullptr, none, none, sparse, unused);
    t.hasPivot = sparse.hasPivot;
}

/// Runs f; a failed allocation becomes this module's failure.
template <class F>
void guarded(F f)
{
    try {
        f();
    } catch (const std::bad_alloc&) {
        QX_RAISE("qxnull", "Out_of_memory_constraint_elimination");
    }
}

} // namespace

void qxNull(qxutil::RunInfo& run, const Sparse& N, const Sparse& NT, const Sparse& NF, bool wantNull, Sparse& Null,
            bool wantCompl, Sparse& Compl, bool wantRange, Sparse& Range, Sparse& NullF, bool wantNullF,
            Sparse& ComplF, bool wantComplF, Sparse& RangeF, bool wantRangeF, const NullFun& method, bool reorder)
{
    guarded([&] {
        if (isAbsent(N) && isAbsent(NT)) {
            hand(Triple(), {wantNull, wantCompl, wantRange}, Null, Compl, Range);
            hand(Triple(), {wantNullF, wantComplF, wantRangeF}, NullF, ComplF, RangeF);
            return;
        }
        const bool second = wantNullF || wantComplF || wantRangeF;
        const Pair p(N, NT);
        if (second)
            checkSameSize(p.N, NF);
        if (method != NullFunSparse && method != NullFunOrthonormal)
            QX_RAISE("qxnull", "Internal_solver_error", "not allowed value for nullfun");

        // Both null spaces are needed to compare ranks and to reorder, whatever is wanted.
        const Selection want{wantNull || second, wantCompl, wantRange}, wantF{second, wantComplF, wantRangeF};
        Triple t, f;
        if (!second) {
            if (p.N.getNnz() == 0)
                t = unconstrained(p.N);
            else if (method == NullFunSparse)
                eliminateSparse(run, p.N, p.NT, nullptr, nullptr, want, wantF, t, f);
            else
                t = orthonormal(run, p, want);
        } else {
            const Pair pf(NF, Sparse());
            const bool first = p.N.getNnz() != 0, other = pf.N.getNnz() != 0;
            if (method == NullFunSparse && first && other)
                eliminateSparse(run, p.N, p.NT, &pf.N, &pf.NT, want, wantF, t, f);
            else if (method == NullFunSparse) {
                if (first)
                    eliminateSparse(run, p.N, p.NT, nullptr, nullptr, want, wantF, t, f);
                if (other)
                    eliminateSparse(run, pf.N, pf.NT, nullptr, nullptr, wantF, want, f, t);
            } else {
                if (first)
                    t = orthonormal(run, p, want);
                if (other)
                    f = orthonormal(run, pf, wantF);
            }
            if (!first)
                t = unconstrained(p.N);
            if (!other)
                f = unconstrained(pf.N);
            if (method == NullFunOrthonormal && t.rank != f.rank) {
                findDependent(run, p, t);
                findDependent(run, pf, f);
            }
            checkRanks(p.N.getM(), t, f);
            if (reorder)
                reorderNullF(f.Null, t.Null);
        }
        hand(t, {wantNull, wantCompl, wantRange}, Null, Compl, Range);
        hand(f, {wantNullF, wantComplF, wantRangeF}, NullF, ComplF, RangeF);
    });
}

void qxNullSp(qxutil::RunInfo& run, const Sparse& N, const Sparse& NT, const Sparse& NF, const Sparse& NFT,
              Sparse& Null, Sparse& Compl, Sparse& Range, Sparse& NullF, Sparse& ComplF, Sparse& RangeF,
              const Array<bool, 1>& sel, const Array<bool, 1>& selF)
{
    guarded([&] {
        const Selection want = selectionOf(sel), wantF = selectionOf(selF);
        const Pair p(N, NT);
        Triple t, f;
        if (isAbsent(NF)) {
            eliminateSparse(run, p.N, p.NT, nullptr, nullptr, want, wantF, t, f);
        } else {
            checkSameSize(p.N, NF);
            const Pair pf(NF, NFT);
            eliminateSparse(run, p.N, p.NT, &pf.N, &pf.NT, want, wantF, t, f);
            hand(f, wantF, NullF, ComplF, RangeF);
        }
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
        const Pair p(N, NT);
        Triple t;
        eliminateOrthonormal(run, p.N, blocks, pairs, want, t);
        hand(t, want, Null, Compl, Range);
    });
}

namespace {

constexpr const char* outputs[] = {"null", "compl", "range", "nullf", "complf", "rangef"};

} // namespace

void qxNullCheck(qxbase::Prop& in)
{
    using namespace qxbase;
    for (const char* key : {"nullfun", "reorder"}) {
        in.setCheck(key, boost::shared_ptr<const Check>(new ChkIntInterval(1, INT_MIN, INT_MAX)));
        in.check(key);
    }
    if (!in.got("out")) {
        const int count = in.got("nf") ? 6 : 3;
        in.setany("out", std::vector<std::string>(outputs, outputs + count));
    }
    in.setCheck("out", boost::shared_ptr<const Check>(new ChkVectorString()));
    in.check("out");
    if (!in.got("nargout"))
        in.setInt("nargout", static_cast<int>(in.get<std::vector<std::string>>("out").size()));
    for (const char* key : {"n", "nt", "nf", "nargout"})
        in.check(key);
}

void qxNull(qxutil::RunInfo& run, qxbase::Prop& in, qxbase::Prop& out)
{
    if (!in.got("n"))
        QX_RAISE("qxnull", "No_N_matrix_given");
    qxNullCheck(in);
    const std::vector<std::string>& list = in.get<std::vector<std::string>>("out");
    const auto wants = [&list](int k) { return std::find(list.begin(), list.end(), outputs[k]) != list.end(); };
    if ((wants(3) || wants(4) || wants(5)) && !in.got("nf"))
        QX_RAISE("qxnull", "No_NF_matrix_given");
    const auto matrix = [&in](const char* key) { return in.got(key) ? in.get<Sparse>(key) : Sparse(); };

    Sparse result[6];
    qxNull(run, matrix("n"), matrix("nt"), matrix("nf"), wants(0), result[0], wants(1), result[1], wants(2), result[2],
           result[3], wants(3), result[4], wants(4), result[5], wants(5), NullFun(in.getInt("nullfun")),
           in.getInt("reorder") != 0);
    for (int k = 0; k < 6; ++k)
        if (wants(k))
            out.setany(outputs[k], result[k]);
}
