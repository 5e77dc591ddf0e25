// SPDX-License-Identifier: LicenseRef-qxkernel
// Assembly of sparse matrices from triplets: once, and again with other values.

#include "assemblypattern.hpp"
#include "harness.hpp"
#include "sparse_workloads.hpp"

#include <omp.h>

using namespace qxbench;

namespace {

template <class I>
struct EigenTriplet
{
    const Triplets* t;
    Index k;
    I row() const { return I(t->row[k]); }
    I col() const { return I(t->col[k]); }
    double value() const { return t->val[k]; }
};

/// Walks a triplet list in Eigen's form without a copy.
template <class I>
struct EigenWalk
{
    EigenTriplet<I> at;
    EigenTriplet<I>* operator->() { return &at; }
    EigenWalk& operator++()
    {
        ++at.k;
        return *this;
    }
    bool operator!=(const EigenWalk& other) const { return at.k != other.at.k; }
};

template <class I>
void assembleByEigen(const Triplets& t, EigenMatrix<I>& E)
{
    if (E.cols() == 0)
        E.resize(I(t.n), I(t.n));
    E.setFromTriplets(EigenWalk<I>{{&t, 0}}, EigenWalk<I>{{&t, t.row.size()}});
}

/// Against the peers, with 64-bit indices as ours has them and with 32-bit ones. `warm`: in memory that is there already.
void onceOneThread(const Triplets& t, bool warm)
{
    const std::string group = warm ? "assembly, 1 thread, warm memory on huge pages/" : "assembly, 1 thread/";
    Sparse A;
    EigenMatrix<long> E;
    EigenMatrix<int> E32;
    CsPtr C;
    CsIntPtr C32;
    std::vector<int> row32(t.row.begin(), t.row.end()), col32(t.col.begin(), t.col.end());
    const long count = long(t.row.size()), n = long(t.n);
    double* const val = const_cast<double*>(t.val.data());
    // The list holds the transpose of what CXSparse calls it: columns are its rows, so that both lay down the same.
    cs_dl list = {count, n, n, reinterpret_cast<long*>(const_cast<Index*>(t.col.data())),
                  reinterpret_cast<long*>(const_cast<Index*>(t.row.data())), val, count};
    cs_di list32 = {int(count), int(n), int(n), col32.data(), row32.data(), val, int(count)};

    BENCH(group + t.name)
        .ours([&] { withThreads(1, [&] { A = assemble(t); }); })
        .peer("CXSparse", [&] {
            C.reset(cs_dl_compress(&list));
            cs_dl_dupl(C.get());
        })
        .check([&] { return relative(fingerprint(A), fingerprint(*C)); }, 1e-12)
        .atMost(warm ? 1.0 : 0.8)
        .peer("CXSparse, int indices", [&] {
            C32.reset(cs_di_compress(&list32));
            cs_di_dupl(C32.get());
        })
        .check([&] { return relative(fingerprint(A), fingerprint(*C32)); }, 1e-12)
        .peer("Eigen", [&] { assembleByEigen(t, E); })
        .check([&] { return relative(fingerprint(A), fingerprint(E)); }, 1e-12)
        .atMost(0.8)
        .peer("Eigen, int indices", [&] { assembleByEigen(t, E32); })
        .check([&] { return relative(fingerprint(A), fingerprint(E32)); }, 1e-12)
        .atMost(0.8)
        .items(double(t.row.size()), "triplets");
}

void onceTwoThreads(const Triplets& t)
{
    Sparse A, A1;
    BENCH("assembly, 2 threads/" + t.name)
        .ours([&] { withThreads(2, [&] { A = assemble(t); }); })
        .peer("1 thread", [&] { withThreads(1, [&] { A1 = assemble(t); }); })
        .check([&] { return relative(fingerprint(A), fingerprint(A1)); }, 0.0)
        .atMost(1 / 1.6)
        .threads(2);
}

/// The loop that codes write themselves, with the place of each triplet kept: each thread has half of the entries and the
/// list of those triplets that go there.
class HandWritten
{
public:
    HandWritten(const Triplets& t, const Sparse& A, int threads) : value_(A.getNnz()), mine_(std::size_t(threads))
    {
        std::vector<std::vector<std::pair<Index, Index>>> columns(t.n); // (row, place), sorted
        for (Index j = 0; j < t.n; ++j) {
            for (Index p = A.getColPtr()[j]; p < A.getColPtr()[j + 1]; ++p)
                columns[j].push_back({A.getRow()[p], p});
            std::sort(columns[j].begin(), columns[j].end());
        }
        for (Index k = 0; k < t.row.size(); ++k) {
            const Index p = std::lower_bound(columns[t.col[k]].begin(), columns[t.col[k]].end(), std::pair(t.row[k], Index{0}))->second;
            place_.push_back(unsigned(p));
            mine_[std::size_t(p * mine_.size() / value_.size())].push_back(unsigned(k));
        }
    }
    void oneThread(const std::vector<double>& values)
    {
        std::fill(value_.begin(), value_.end(), 0.0);
        for (std::size_t k = 0; k < values.size(); ++k)
            value_[place_[k]] += values[k];
    }
    void allThreads(const std::vector<double>& values)
    {
        const std::size_t n = value_.size(), threads = mine_.size();
#pragma omp parallel num_threads(int(threads))
        {
            const auto t = std::size_t(omp_get_thread_num());
            std::fill(value_.begin() + long((t * n + threads - 1) / threads), value_.begin() + long(((t + 1) * n + threads - 1) / threads), 0.0);
            for (const unsigned k : mine_[t])
                value_[place_[k]] += values[k];
        }
    }
    double differenceTo(const Sparse& A) const
    {
        double largest = 0.0;
        for (std::size_t p = 0; p < value_.size(); ++p)
            largest = std::max(largest, std::abs(A.getDoubleVal()[p] - value_[p]));
        return largest;
    }

private:
    std::vector<unsigned> place_;
    std::vector<double> value_;
    std::vector<std::vector<unsigned>> mine_;
};

void again(const Triplets& t)
{
    for (const int threads : {1, 2}) {
        AssemblyPattern pattern;
        Sparse A, anew;
        withThreads(threads, [&] { pattern = AssemblyPattern(t.row, t.col, t.n, t.n); });
        pattern.assemble(t.val, A);
        HandWritten loop(t, A, threads);
        BENCH("assembly again, " + std::to_string(threads) + (threads == 1 ? " thread/" : " threads/") + t.name)
            .ours([&] { withThreads(threads, [&] { pattern.assemble(t.val, A); }); })
            .peer("hand-written scatter", [&] { threads == 1 ? loop.oneThread(t.val) : loop.allThreads(t.val); })
            .check([&] { return loop.differenceTo(A); }, 0.0)
            .atMost(1.3)
            .peer("assembling anew", [&] { withThreads(threads, [&] { anew = assemble(t); }); })
            .check([&] { return relative(fingerprint(A), fingerprint(anew)); }, 0.0)
            .items(double(t.row.size()), "triplets")
            .threads(threads);
        anew = Sparse();
        Sparse checked;
        BENCH("assembly again, indices compared, " + std::to_string(threads) + (threads == 1 ? " thread/" : " threads/") + t.name)
            .ours([&] { withThreads(threads, [&] { pattern.assemble(t.row, t.col, t.val, checked); }); })
            .peer("hand-written scatter", [&] { threads == 1 ? loop.oneThread(t.val) : loop.allThreads(t.val); })
            .check([&] { return loop.differenceTo(checked); }, 0.0)
            .threads(threads);
    }
}

void peak(const Triplets& t)
{
    withThreads(1, [&] {
        Sparse A = assemble(t);
        const double result = 16.0 * double(A.getNnz());
        A = Sparse();
        reportPeak(("assembly of " + t.name).c_str(), result, [&] { A = assemble(t); });
    });
}

} // namespace

void qxbench::benchmarks()
{
    introducePeers();
    const std::function<Triplets()> lists[] = {[] { return fourTimes(poisson2d()); },
                                               [] { return fourTimes(hex27()); },
                                               [] { return fourTimes(randomColumns()); },
                                               [] { return fourCursors(hex27()); },
                                               [] { return hexahedra(true); },
                                               [] { return hexahedra(false); },
                                               [] { return tetrahedra(); }};
    for (const auto& make : lists) {
        const Triplets t = make();
        onceOneThread(t, false);
        onceTwoThreads(t);
        peak(t);
    }
    for (const auto& make : {lists[4], lists[5], lists[6]})
        again(make());
    for (const auto& make : {lists[3], lists[4], lists[5]}) {
        const Triplets t = make();
        const WarmMemory warm(t.row.size() * 64);
        onceOneThread(t, true);
    }
}
