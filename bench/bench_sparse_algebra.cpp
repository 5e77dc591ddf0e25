// SPDX-License-Identifier: LicenseRef-qxkernel
// Sums, products and transposition of sparse matrices.

#include "harness.hpp"
#include "sparse_workloads.hpp"

#include <suitesparse/cholmod.h>

using namespace qxbench;

namespace {

cholmod_common cholmod;

struct CholmodRelease
{
    void operator()(cholmod_sparse* a) const { cholmod_l_free_sparse(&a, &cholmod); }
};
using CholmodPtr = std::unique_ptr<cholmod_sparse, CholmodRelease>;

cholmod_sparse toCholmod(const Sparse& A)
{
    cholmod_sparse c = {};
    c.nrow = A.getM();
    c.ncol = A.getN();
    c.nzmax = A.getNnz();
    c.p = A.getColPtr();
    c.i = A.getRow();
    c.x = A.getDoubleVal();
    c.itype = CHOLMOD_LONG;
    c.xtype = CHOLMOD_REAL;
    c.dtype = CHOLMOD_DOUBLE;
    c.sorted = 1;
    c.packed = 1;
    return c;
}

double fingerprintOf(const cholmod_sparse& c)
{
    return fingerprint(c.ncol, static_cast<long*>(c.p), static_cast<long*>(c.i), static_cast<double*>(c.x));
}

/// The case on two threads against the same on one; results must have the same bits.
template <class F>
void scaling(const std::string& name, const F& compute, double goal)
{
    Sparse one, two;
    BENCH(name)
        .ours([&] { withThreads(2, [&] { two = compute(); }); })
        .peer("1 thread", [&] { withThreads(1, [&] { one = compute(); }); })
        .check([&] { return relative(fingerprint(two), fingerprint(one)); }, 0.0)
        .atMost(1 / goal)
        .threads(2);
}

void measure(const Triplets& t)
{
    Sparse A = assemble(t), C;
    A.format(FormSorted, false);
    Sparse B = transpose(A, Trans); // other values, for the random matrix another structure
    const EigenMatrix<long> Ea = toEigen<long>(A), Eb = toEigen<long>(B);
    const cs_dl csA = toCs(A), csB = toCs(B);
    cholmod_sparse chA = toCholmod(A), chB = toCholmod(B);
    EigenMatrix<long> E;
    CsPtr cs;
    CholmodPtr ch;
    double alpha[2] = {1, 0}, beta[2] = {1, 0};
    const auto oneThread = [&](const auto& compute) { return [&, compute] { withThreads(1, [&] { C = compute(); }); }; };
    const auto againstEigen = [&] { return relative(fingerprint(C), fingerprint(E)); };
    const auto againstCs = [&] { return relative(fingerprint(C), fingerprint(*cs)); };
    const auto againstCholmod = [&] { return relative(fingerprint(C), fingerprintOf(*ch)); };

    const auto product = [&] { return A * B; };
    BENCH("A*B, 1 thread/" + t.name)
        .ours(oneThread(product))
        .peer("CXSparse", [&] { cs.reset(cs_dl_multiply(&csA, &csB)); })
        .check(againstCs, 1e-12)
        .atMost(1.1)
        .peer("Eigen, which sorts", [&] { E = Ea * Eb; })
        .check(againstEigen, 1e-12)
        .atMost(1 / 2.5);
    const auto sortedProduct = [&] {
        Sparse P = A * B;
        P.format(FormSorted, false);
        return P;
    };
    BENCH("A*B with sorted columns, 1 thread/" + t.name)
        .ours(oneThread(sortedProduct))
        .peer("CXSparse, transposed twice", [&] {
            CsPtr unsorted(cs_dl_multiply(&csA, &csB)), turned(cs_dl_transpose(unsorted.get(), 1));
            unsorted.reset();
            cs.reset(cs_dl_transpose(turned.get(), 1));
        })
        .check(againstCs, 1e-12)
        .atMost(1.1)
        .peer("Eigen", [&] { E = Ea * Eb; })
        .check(againstEigen, 1e-12)
        .atMost(1 / 2.5)
        .peer("CHOLMOD", [&] { ch.reset(cholmod_l_ssmult(&chA, &chB, 0, 1, 1, &cholmod)); })
        .check(againstCholmod, 1e-12)
        .atMost(1.1);
    cs.reset();
    ch.reset();
    E = EigenMatrix<long>();
    C = Sparse();
    scaling("A*B, 2 threads/" + t.name, product, 1.6);

    const auto sum = [&] { return A + B; };
    BENCH("A+B, 1 thread/" + t.name)
        .ours(oneThread(sum))
        .peer("CXSparse", [&] { cs.reset(cs_dl_add(&csA, &csB, 1.0, 1.0)); })
        .check(againstCs, 1e-13)
        .atMost(1.1)
        .peer("Eigen", [&] { E = Ea + Eb; })
        .check(againstEigen, 1e-13)
        .atMost(1.1)
        .peer("CHOLMOD", [&] { ch.reset(cholmod_l_add(&chA, &chB, alpha, beta, 1, 0, &cholmod)); })
        .check(againstCholmod, 1e-13)
        .atMost(1.1);
    scaling("A+B, 2 threads/" + t.name, sum, 1.5);

    const auto transposed = [&] { return transpose(A, Trans); };
    BENCH("transpose, 1 thread/" + t.name)
        .ours(oneThread(transposed))
        .peer("CXSparse", [&] { cs.reset(cs_dl_transpose(&csA, 1)); })
        .check(againstCs, 0.0)
        .atMost(1.1)
        .peer("Eigen", [&] { E = Ea.transpose(); })
        .check(againstEigen, 0.0)
        .atMost(1.1)
        .peer("CHOLMOD", [&] { ch.reset(cholmod_l_transpose(&chA, 1, &cholmod)); })
        .check(againstCholmod, 0.0)
        .atMost(1.1);
    scaling("transpose, 2 threads/" + t.name, transposed, 1.5);

    cs.reset();
    ch.reset();
    E = EigenMatrix<long>();
    const auto peak = [&](const char* name, const auto& compute) {
        C = Sparse();
        withThreads(1, [&] { C = compute(); });
        const double bytes = 16.0 * double(C.getNnz());
        C = Sparse();
        withThreads(1, [&] { reportPeak((name + t.name).c_str(), bytes, [&] { C = compute(); }); });
    };
    peak("A*B ", product);
    peak("A+B ", sum);
}

} // namespace

void qxbench::benchmarks()
{
    introducePeers();
    uses("CHOLMOD", std::to_string(CHOLMOD_MAIN_VERSION) + "." + std::to_string(CHOLMOD_SUB_VERSION) + "." +
                        std::to_string(CHOLMOD_SUBSUB_VERSION));
    cholmod_l_start(&cholmod);
    for (const auto& workload : {poisson2d, poisson3d, hex27, randomColumns})
        measure(workload());
    cholmod_l_finish(&cholmod);
}
