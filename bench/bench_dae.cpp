// SPDX-License-Identifier: LicenseRef-qxkernel
// Growth of the time of index reduction with the size of the system: each case against itself at a tenth of the size.
//
//   RC ladder: n/2 stages of a resistor R and a capacitor C, currents and voltages as unknowns,
//       v_(k-1) - v_k = R i_k,   C v_k' = i_k - i_(k+1);   index 1, nothing is differentiated
//   Chain of pendulums: n masses on rods, each hung on the one before, in first-order form with a constraint each; index
//       3: five equations a mass, four of them differentiated once or twice
//   Random: each equation holds one unknown of its own and two others at random, no derivatives. Half of the time goes
//       into the final order of the equations, which is that of searches one by one; their share grows with the size
//
// The time includes reading the equations. Linear growth is a ratio of 10; the goal is a slope of at most 1.15 on a
// log-log plot, a ratio of 14.1.
#include "harness.hpp"

#include "dae.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numeric>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

std::string var(const char* name, int k) { return name + std::to_string(k); }

void addLadder(Dae& dae, int nEquations)
{
    const int n = nEquations / 2;
    for (int k = 1; k <= n; ++k) {
        dae.addVar(var("v", k));
        dae.addVar(var("i", k));
    }
    for (int k = 1; k <= n; ++k) {
        const std::string before = k == 1 ? "() sin 1 t" : var("v", k - 1);
        dae.addEq("- - " + before + " " + var("v", k) + " * R " + var("i", k));
        const std::string out = k == n ? "0" : var("i", k + 1);
        dae.addEq("- * C (DIFF) " + var("v", k) + " t - " + var("i", k) + " " + out);
    }
}

void addPendulums(Dae& dae, int n)
{
    for (int k = 1; k <= n; ++k)
        for (const char* name : {"x", "y", "u", "v", "p"})
            dae.addVar(var(name, k));
    // Component along one axis of the force of rod k on the mass below it.
    const auto distance = [](const char* axis, int k) {
        return k == 1 ? var(axis, 1) : "- " + var(axis, k) + " " + var(axis, k - 1);
    };
    const auto force = [&](const char* axis, int k) { return "* " + var("p", k) + " " + distance(axis, k); };
    for (int k = 1; k <= n; ++k) {
        for (const auto& [axis, rate] : {std::pair("x", "u"), std::pair("y", "v")}) {
            dae.addEq("- (DIFF) " + var(axis, k) + " t " + var(rate, k));
            const std::string below = k == n ? std::string("0") : force(axis, k + 1);
            dae.addEq("- + * m (DIFF) " + var(rate, k) + " t " + force(axis, k) + " " + below);
        }
        dae.addEq("- + ^ " + distance("x", k) + " 2 ^ " + distance("y", k) + " 2 * l l");
    }
}

void addRandom(Dae& dae, int n)
{
    std::mt19937 random(7);
    std::vector<int> own(static_cast<std::size_t>(n));
    std::iota(own.begin(), own.end(), 0);
    std::shuffle(own.begin(), own.end(), random);
    const auto any = [&] { return static_cast<int>(random() % static_cast<unsigned>(n)); };
    for (int k = 0; k < n; ++k)
        dae.addVar(var("x", k));
    for (const int k : own)
        dae.addEq("+ + " + var("x", k) + " () sin 1 " + var("x", any()) + " " + var("x", any()));
}

/// Reduces a system of size n; returns how far the number of equations is from what it must be.
template <class Add>
double reduce(Add add, int n, int wanted)
{
    Dae dae("t");
    add(dae, n);
    dae.reduceIndex();
    return std::abs(static_cast<double>(dae.getEqs().size()) - wanted);
}

template <class Add>
void growth(const std::string& name, Add add, int smallest, int largest, int equationsOfOne)
{
    for (int n = smallest; n <= largest; n *= 10) {
        double wrong = 0.0;
        double tenthWrong = 0.0;
        BENCH(name + "-" + std::to_string(n))
            .ours([&] { wrong = reduce(add, n, equationsOfOne * n); })
            .peer("a tenth of the size", [&] { tenthWrong = reduce(add, n / 10, equationsOfOne * (n / 10)); })
            .check([&] { return wrong + tenthWrong; }, 0.0)
            .items(n, equationsOfOne == 1 ? "equations" : "pendulums")
            .atMost(std::pow(10.0, 1.15));
    }
}

} // namespace

void qxbench::benchmarks()
{
    growth("growth of reduceIndex/rc-ladder", addLadder, 1000, qxbench::sized(100000, 2000), 1);
    growth("growth of reduceIndex/pendulums", addPendulums, 100, qxbench::sized(10000, 200), 9);
    growth("growth of reduceIndex/random", addRandom, 1000, qxbench::sized(100000, 2000), 1);
}
