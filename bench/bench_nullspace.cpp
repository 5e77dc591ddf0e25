// SPDX-License-Identifier: LicenseRef-qxkernel
// The sparse null space of periodic and hanging-node constraints, a tenth as many as there are unknowns, against a pass
// that copies the constraint matrix. The rate should be the same for every size.
#include "harness.hpp"
#include "qxnull.hpp"
#include "qxparallel.hpp"
#include "qxrun.hpp"

#include <string>
#ifdef QX_HAVE_SPQR
#include <suitesparse/SuiteSparseQR_C.h>
#endif

namespace {

/// For each constraint ten unknowns: every second one ties u_1 to u_6 (periodic pair), the others set u_1 to the mean of
/// u_2 and u_3 (hanging node); unknown 1 of a hanging node also pairs with the next ten's.
Sparse constraints(unsigned long count)
{
    std::vector<unsigned long> rows, cols;
    std::vector<double> values;
    const auto put = [&](unsigned long row, unsigned long column, double value) {
        rows.push_back(row);
        cols.push_back(column);
        values.push_back(value);
    };
    for (unsigned long k = 0; k < count; ++k) {
        const unsigned long first = 10 * k;
        put(first + 1, k, 1.0);
        if (k % 2 == 0) {
            put(first + 6, k, -1.0);
        } else {
            put(first + 2, k, -0.5);
            put(first + 3, k, -0.5);
            put(first - 10 + 6, k, k % 4 == 1 ? 0.25 : 0.0);
        }
    }
    Sparse N;
    N.triplet2sparse(rows, cols, values, 10 * count, count);
    return N;
}

void measure(unsigned long count)
{
    Sparse N = constraints(count);
    N.format(FormSorted, true);
    qxutil::RunInfo run;
    Sparse Null, Compl, Range, unused;
    std::vector<unsigned long> rows(N.getNnz());
    std::vector<double> values(N.getNnz());
    BENCH("null space/" + std::to_string(count) + " constraints")
        .ours([&] {
            qxNull(run, N, Sparse(), Sparse(), true, Null, true, Compl, true, Range, unused, false, unused, false,
                   unused, false, NullFunSparse, false);
        })
        .peer("one pass over the entries",
              [&] {
                  std::copy_n(N.getRow(), rows.size(), rows.begin());
                  std::copy_n(N.getDoubleVal(), values.size(), values.begin());
                  qxbench::keep(values.back());
              })
        .check(
            [&] {
                // |N^H Null| by the product of the library, and the sizes.
                const Sparse P = transpose(N, ConjTrans) * Null;
                double d = Null.getN() + Compl.getN() == N.getM() && Compl.getN() == count ? 0.0 : 1.0;
                for (unsigned long k = 0; k < P.getNnz(); ++k)
                    d = std::max(d, std::abs(P.getDoubleVal()[k]));
                return d;
            },
            1e-12)
        .items(double(N.getNnz()), "entries");
}

#ifdef QX_HAVE_SPQR
/// The same basis from a sparse QR factorisation, N = Q R: the last columns of Q, left as Householder vectors.
class SparseQR
{
public:
    explicit SparseQR(const Sparse& N)
    {
        cholmod_l_start(&common_);
        matrix_.nrow = N.getM();
        matrix_.ncol = N.getN();
        matrix_.nzmax = N.getNnz();
        matrix_.p = N.getColPtr();
        matrix_.i = N.getRow();
        matrix_.x = N.getDoubleVal();
        matrix_.itype = CHOLMOD_LONG;
        matrix_.xtype = CHOLMOD_REAL;
        matrix_.dtype = CHOLMOD_DOUBLE;
        matrix_.sorted = 1;
        matrix_.packed = 1;
    }
    ~SparseQR() { cholmod_l_finish(&common_); }
    SparseQR(const SparseQR&) = delete;
    SparseQR& operator=(const SparseQR&) = delete;

    /// The rank.
    unsigned long factorise()
    {
        SuiteSparseQR_C_factorization* factors =
            SuiteSparseQR_C_factorize(SPQR_ORDERING_DEFAULT, SPQR_DEFAULT_TOL, &matrix_, &common_);
        const auto rank = static_cast<unsigned long>(common_.SPQR_istat[4]);
        SuiteSparseQR_C_free(&factors, &common_);
        return rank;
    }

private:
    cholmod_common common_{};
    cholmod_sparse matrix_{};
};

void againstQR(unsigned long count)
{
    Sparse N = constraints(count);
    N.format(FormSorted, true);
    SparseQR qr(N);
    qxutil::RunInfo run;
    Sparse Null, Compl, Range, unused;
    unsigned long rank = 0;
    const int threads = qxbase::setAvailableThreads(1);
    BENCH("null space against sparse QR/" + std::to_string(count) + " constraints")
        .ours([&] {
            qxNull(run, N, Sparse(), Sparse(), true, Null, true, Compl, true, Range, unused, false, unused, false,
                   unused, false, NullFunSparse, false);
        })
        .peer("SPQR, basis left as Householder vectors", [&] { rank = qr.factorise(); })
        .check([&] { return rank == Compl.getN() ? 0.0 : 1.0; }, 0.0)
        .items(double(N.getNnz()), "entries");
    qxbase::setAvailableThreads(threads);
}
#endif

} // namespace

void qxbench::benchmarks()
{
#ifdef QX_HAVE_SPQR
    uses("SPQR", std::to_string(SPQR_MAIN_VERSION) + "." + std::to_string(SPQR_SUB_VERSION) + "." + std::to_string(SPQR_SUBSUB_VERSION));
    againstQR(1000);
    againstQR(sized(100000ul, 2000ul));
#endif
    for (const unsigned long count : {1000ul, 10000ul, 100000ul, 1000000ul})
        if (!quick() || count <= 1000)
            measure(count);
}
