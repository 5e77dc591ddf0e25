// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include <functional>
#include <string>
#include <vector>

/// The benchmark harness: ratios against a peer in the same process and run, after the answers have been compared.
///
/// A program bench_<name>.cpp defines benchmarks() and writes its cases there:
///
///     void qxbench::benchmarks()
///     {
///         BENCH("yPlusAMulx/poisson3d-64")                 // group/case: each group gets its own table and mean
///             .ours([&] { yPlusAMulx(y, A, x, NoTrans); })
///             .peer("Eigen 3.4", [&] { ye.noalias() += Ae * xe; })
///             .check([&] { return maxRelDiff(y, ye); }, 1e-14)
///             .bytes(16.0 * nnz + 24.0 * n)
///             .atMost(1.0);                                // the goal: ours takes at most this many times the peer's time
///     }
///
/// A case runs where its statement ends, so lambdas may capture locals by reference. The harness gives main().
namespace qxbench {

using Work = std::function<void()>;
using Difference = std::function<double()>;

/// One peer of a case: what ours is measured against and how the two answers are compared.
struct Peer
{
    std::string name;
    Work run;
    Difference difference;      ///< called after ours and this peer have run once; empty: nothing to compare
    double tolerance = 0.0;
    double goal = 0.0;          ///< largest allowed time ratio ours/peer; 0: none
};

/// A benchmark under construction. It is measured by its destructor, at the end of the statement that made it.
///
/// A difference that is NaN or above its tolerance, or work that raises, gets no time: the row says so, the program ends
/// with status 1; with --strict a missed goal does the same. check() and atMost() belong to the peer named last before them.
class Case
{
public:
    explicit Case(std::string name);
    ~Case();
    Case(const Case&) = delete;
    Case& operator=(const Case&) = delete;

    Case& ours(Work work);
    Case& peer(const std::string& name, Work work);
    /// The largest deviation between the answers, by whatever measure fits, and what it may be. A case without a peer
    /// compares with a reference of its own.
    Case& check(Difference difference, double tolerance);
    /// Bytes that one call must move at least: gives GB/s and the share of the read bandwidth measured in this run.
    Case& bytes(double perCall);
    /// Points, entries, nodes, ... of one call: gives the rate in millions a second.
    Case& items(double perCall, const std::string& unit = "items");
    /// Threads that ours uses: the read bandwidth is measured with as many.
    Case& threads(int n);
    Case& atMost(double timeRatio);
    /// Compares the fastest rounds instead of the medians: for work that takes seconds, and for ratios near 1, on a machine
    /// that others use too.
    Case& fastest();

private:
    friend struct Measurement;
    Peer& current();

    std::string name_;
    Work ours_;
    std::vector<Peer> peers_;
    Peer alone_;
    double bytes_ = 0.0;
    double items_ = 0.0;
    std::string itemUnit_;
    int threads_ = 1;
    bool fastest_ = false;
};

/// Keeps the compiler from dropping a result that nothing else reads.
template <class T> inline void keep(const T& value)
{
    asm volatile("" : : "r,m"(value) : "memory");
}

/// Whether this is a quick run, to see that everything works: cases take small sizes then, and times say little.
bool quick();

/// The size of a case: `full`, or `small` in a quick run.
template <class T> inline T sized(T full, T small)
{
    return quick() ? small : full;
}

/// Notes the version of a peer, or of anything else that times depend on, for the heading and the JSON.
void uses(const std::string& name, const std::string& version);

/// Defined by each benchmark program.
void benchmarks();

} // namespace qxbench

#define BENCH(name) ::qxbench::Case(name)
