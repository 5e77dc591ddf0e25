// SPDX-License-Identifier: LicenseRef-qxkernel
// The motions of a damped structure: eigenvalues of a quadratic problem by a generalised one.
//
// A chain of n masses m, held at one end by springs k, with a damper d at its free end:
//
//     M x'' + C x' + K x = 0,    x = v e^(s t)    =>    (s^2 M + s C + K) v = 0
//
// With w = s v this is A z = s B z of twice the size, B = diag(I, M), A = [0 I; -K -C]. It is not symmetric, and M may be
// singular (a joint without mass): s is then infinite.
//
// Builds on: dense matrices alone (arrayutil.hpp).
// Run:       spectrum 12 --damper 0,0.5,1,2 --plot spectrum.svg
//
//   1. A and B are written down for each damper.
//   2. qxarray::eig solves the pencil by the QZ iteration, which is repeated in other ways if it does not converge.
//   3. s = alpha / beta: the imaginary part is a frequency, the real part how fast the motion dies away.
//
// To try: a damper of sqrt(k m) = 1 swallows every wave that reaches it; with a larger one the end is as if it were held.

#include "support/chart.hpp"
#include "support/csv.hpp"
#include "support/fileerror.hpp"
#include "support/options.hpp"
#include "support/program.hpp"

#include "array.hpp"
#include "arrayutil.hpp"

#include <algorithm>
#include <complex>
#include <fstream>
#include <iostream>

namespace {

using namespace examples;
using Dense = Array<double, 2>;
using Eigenvalues = std::vector<std::complex<double>>;

struct Task
{
    int masses = 12;
    std::vector<double> dampers = {0.0, 0.5, 1.0, 2.0};
    bool masslessEnd = false;
    std::string plot;
};

Task readTask(Options& options, int argc, char** argv)
{
    Task t;
    options.value("--damper", "D,D,...", "strengths of the damper at the free end, in units of sqrt(k m) (0,0.5,1,2)",
                  [&](const std::string& v) {
                      t.dampers.clear();
                      for (const std::string& word : split(v, ',')) {
                          double d = 0.0;
                          if (!fromText(word, d) || !(d >= 0.0))
                              throw UsageError("'" + word + "' is no strength of a damper");
                          t.dampers.push_back(d);
                      }
                  });
    options.flag("--massless", "the last joint has no mass", t.masslessEnd);
    options.text("--plot", "FILE.svg", "draw the eigenvalues in the complex plane", t.plot);
    const std::vector<std::string> words = options.read(argc, argv);
    if (words.size() > 1)
        throw UsageError("one number of masses is needed, see spectrum --help");
    if (!words.empty())
        t.masses = wholeNumber(words.front(), 1, 400);
    return t;
}

Eigenvalues spectrumOf(const Task& task, double damper)
{
    const auto n = static_cast<unsigned long>(task.masses);
    Dense A(2 * n, 2 * n), B(2 * n, 2 * n);
    A = 0.0;
    B = 0.0;
    for (unsigned long i = 0; i < n; ++i) {
        A(i, n + i) = 1.0;
        B(i, i) = 1.0;
        B(n + i, n + i) = task.masslessEnd && i + 1 == n ? 0.0 : 1.0;
        A(n + i, i) = i + 1 < n ? -2.0 : -1.0; // -K
        if (i > 0)
            A(n + i, i - 1) = A(n + i - 1, i) = 1.0;
    }
    A(2 * n - 1, 2 * n - 1) = -damper; // -C

    Array<double, 1> re, im, beta;
    qxarray::eig(A, B, re, im, beta, 3);
    Eigenvalues s;
    for (unsigned long i = 0; i < 2 * n; ++i)
        if (beta[i] != 0.0)
            s.emplace_back(re[i] / beta[i], im[i] / beta[i]);
    std::sort(s.begin(), s.end(), [](const auto& a, const auto& b) {
        return std::make_pair(std::abs(a.imag()), a.imag()) < std::make_pair(std::abs(b.imag()), b.imag());
    });
    return s;
}

void run(const Task& task)
{
    CsvWriter table;
    ChartPanel plane{"s = decay + i frequency, one colour a damper", {}};
    std::vector<double> damper;
    Eigenvalues values;
    for (const double d : task.dampers) {
        ChartSeries dots{{}, {}, true};
        for (const std::complex<double>& s : spectrumOf(task, d)) {
            damper.push_back(d);
            values.push_back(s);
            dots.x.push_back(s.real());
            dots.y.push_back(s.imag());
        }
        plane.series.push_back(std::move(dots));
    }
    table.add("damper", damper);
    table.add("s", values);
    table.write(std::cout);
    if (task.plot.empty())
        return;
    std::ofstream out(task.plot);
    writeChart(out, std::to_string(task.masses) + " masses, a damper at the end", "decay", {{plane}});
    if (!out.flush())
        throw FileError(task.plot, "cannot be written");
}

} // namespace

int main(int argc, char** argv)
{
    Options options("spectrum", "[MASSES]", "Eigenvalues of a damped chain of masses, as CSV.");
    return guarded(options, [&] {
        const Task task = readTask(options, argc, argv);
        if (options.helpWanted())
            std::cout << options.help();
        else
            run(task);
        return 0;
    });
}
