// SPDX-License-Identifier: LicenseRef-qxkernel
// Assembly of sparse matrices from triplets.

#include "harness.hpp"
#include "sparse_workloads.hpp"

using namespace qxbench;

namespace {

struct EigenTriplet
{
    const Triplets* t;
    Index k;
    long row() const { return long(t->row[k]); }
    long col() const { return long(t->col[k]); }
    double value() const { return t->val[k]; }
};

/// Walks a triplet list in Eigen's form without a copy.
struct EigenWalk
{
    EigenTriplet at;
    EigenTriplet* operator->() { return &at; }
    EigenWalk& operator++()
    {
        ++at.k;
        return *this;
    }
    bool operator!=(const EigenWalk& other) const { return at.k != other.at.k; }
};

void measure(const Triplets& t)
{
    Sparse A, A1;
    EigenMatrix<long> E(long(t.n), long(t.n));
    CsPtr C;
    cs_dl triplet = {long(t.row.size()), long(t.n), long(t.n), reinterpret_cast<long*>(const_cast<Index*>(t.col.data())),
                     reinterpret_cast<long*>(const_cast<Index*>(t.row.data())), const_cast<double*>(t.val.data()),
                     long(t.row.size())};
    const auto one = [&] { withThreads(1, [&] { A1 = assemble(t); }); };

    BENCH("assembly, 1 thread/" + t.name)
        .ours(one)
        .peer("CXSparse", [&] {
            C.reset(cs_dl_compress(&triplet));
            cs_dl_dupl(C.get());
        })
        .check([&] { return relative(fingerprint(A1), fingerprint(*C)); }, 1e-12)
        .atMost(1 / 1.3)
        .peer("Eigen", [&] { E.setFromTriplets(EigenWalk{{&t, 0}}, EigenWalk{{&t, t.row.size()}}); })
        .check([&] { return relative(fingerprint(A1), fingerprint(E)); }, 1e-12)
        .atMost(1 / 1.5)
        .items(double(t.row.size()), "triplets");
    BENCH("assembly, 2 threads/" + t.name)
        .ours([&] { withThreads(2, [&] { A = assemble(t); }); })
        .peer("1 thread", one)
        .check([&] { return relative(fingerprint(A), fingerprint(A1)); }, 0.0)
        .atMost(1 / 1.6)
        .threads(2);
    A = A1 = Sparse();
    E = EigenMatrix<long>();
    C.reset();
    double result = 0.0;
    withThreads(1, [&] {
        A = assemble(t);
        result = 16.0 * double(A.getNnz());
        A = Sparse();
        reportPeak(("assembly of " + t.name).c_str(), result, [&] { A = assemble(t); });
    });
}

} // namespace

void qxbench::benchmarks()
{
    measure(fourTimes(poisson2d()));
    measure(fourTimes(poisson3d()));
    measure(fourTimes(hex27()));
    measure(fourTimes(randomColumns()));
    measure(hexahedra(60));
}
