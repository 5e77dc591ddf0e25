// SPDX-License-Identifier: LicenseRef-qxkernel
#include "harness.hpp"

#include "report.hpp"
#include "qxexception.hpp"
#include "qxversion.hpp"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <iostream>
#include <utility>

namespace qxbench {
namespace {

struct Run
{
    Effort effort;
    bool quick = false;
    bool strict = false;
    std::string filter;
    std::vector<Row> rows;
    std::vector<std::pair<std::string, std::string>> versions;
};
Run run;

void showProgress(const std::string& name)
{
    if (isatty(STDERR_FILENO) != 0)
        std::cerr << '\r' << name << "\033[K" << std::flush;
}

// What stopped a piece of work, as a text; empty when it ended well.
std::string failureOf(const Work& work)
{
    try {
        work();
        return {};
    } catch (const qxbase::Exception& e) {
        return "failed: " + e.toString();
    } catch (const std::exception& e) {
        return std::string("failed: ") + e.what();
    } catch (...) {
        return "failed";
    }
}

// Compares the answers of ours and one peer after one call of each.
std::string verdict(const Peer& peer, double& difference)
{
    if (!peer.difference)
        return {};
    std::string failure = failureOf([&] { difference = peer.difference(); });
    if (failure.empty() && !(difference <= peer.tolerance)) {
        char text[96];
        std::snprintf(text, sizeof text, "WRONG ANSWER: differs by %.3g, allowed %.3g", difference, peer.tolerance);
        failure = text;
    }
    return failure;
}

} // namespace

Case::Case(std::string name) : name_(std::move(name)) {}

Case& Case::ours(Work work)
{
    ours_ = std::move(work);
    return *this;
}

Case& Case::peer(const std::string& name, Work work)
{
    peers_.push_back({name, std::move(work), {}, 0.0, 0.0});
    return *this;
}

Peer& Case::current()
{
    return peers_.empty() ? alone_ : peers_.back();
}

Case& Case::check(Difference difference, double tolerance)
{
    current().difference = std::move(difference);
    current().tolerance = tolerance;
    return *this;
}

Case& Case::atMost(double timeRatio)
{
    current().goal = timeRatio;
    return *this;
}

Case& Case::bytes(double perCall)
{
    bytes_ = perCall;
    return *this;
}

Case& Case::items(double perCall, const std::string& unit)
{
    items_ = perCall;
    itemUnit_ = unit;
    return *this;
}

Case& Case::threads(int n)
{
    threads_ = n;
    return *this;
}

Case& Case::fastest()
{
    fastest_ = true;
    return *this;
}

struct Measurement
{
    static void of(const Case& c)
    {
        if (c.name_.find(run.filter) == std::string::npos)
            return;
        showProgress(c.name_);

        Row common;
        const std::size_t slash = c.name_.find('/');
        common.group = c.name_.substr(0, slash);
        common.name = slash == std::string::npos ? c.name_ : c.name_.substr(slash + 1);
        if (c.fastest_)
            common.group += ", fastest rounds";
        common.threads = c.threads_;
        common.bytes = c.bytes_;
        common.items = c.items_;
        common.itemUnit = c.itemUnit_;
        if (c.bytes_ > 0.0)
            common.bandwidth = readBandwidth(c.threads_);

        std::vector<Row> rows;
        std::vector<Work> works{c.ours_};
        std::vector<std::size_t> timed; // the row of each peer in works
        const std::vector<Peer>& peers = c.peers_.empty() ? std::vector<Peer>{c.alone_} : c.peers_;
        for (const Peer& p : peers) {
            Row r = common;
            r.peer = p.name;
            r.goal = p.goal;
            r.failure = failureOf(c.ours_);
            if (r.failure.empty() && p.run)
                r.failure = failureOf(p.run);
            if (r.failure.empty())
                r.failure = verdict(p, r.difference);
            if (r.failure.empty() && p.run) {
                works.push_back(p.run);
                timed.push_back(rows.size());
            }
            rows.push_back(std::move(r));
        }

        std::vector<std::vector<double>> times;
        const std::string failure = failureOf([&] { times = interleaved(works, run.effort); });
        for (Row& r : rows) {
            if (r.failure.empty())
                r.failure = failure;
            if (r.failure.empty()) {
                r.ours = spreadOf(times[0]);
                r.rounds = static_cast<int>(times[0].size());
            }
        }
        for (std::size_t k = 0; failure.empty() && k < timed.size(); ++k) {
            Row& r = rows[timed[k]];
            r.theirs = spreadOf(times[k + 1]);
            std::vector<double> ratios;
            for (std::size_t i = 0; i < times[0].size(); ++i)
                ratios.push_back(times[0][i] / times[k + 1][i]);
            r.ratio = spreadOf(std::move(ratios));
            if (c.fastest_) {
                r.ours.median = *std::min_element(times[0].begin(), times[0].end());
                r.theirs.median = *std::min_element(times[k + 1].begin(), times[k + 1].end());
                r.ratio.median = r.ours.median / r.theirs.median;
            }
        }
        for (Row& r : rows)
            run.rows.push_back(std::move(r));
    }
};

Case::~Case()
{
    Measurement::of(*this);
}

bool quick()
{
    return run.quick;
}

void uses(const std::string& name, const std::string& version)
{
    run.versions.emplace_back(name, version);
}

} // namespace qxbench

int main(int argc, char** argv)
{
    using namespace qxbench;
    std::string program = argv[0];
    program.erase(0, program.find_last_of('/') + 1);
    std::string commit;
    std::string json = std::string(QX_BENCH_OUTPUT) + "/" + program + ".json";
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (i + 1 < argc && word == "--filter")
            run.filter = argv[++i];
        else if (i + 1 < argc && word == "--rounds")
            run.effort.rounds = std::atoi(argv[++i]);
        else if (word == "--quick")
            run.quick = true;
        else if (word == "--strict")
            run.strict = true;
        else if (i + 1 < argc && word == "--commit")
            commit = argv[++i];
        else if (i + 1 < argc && word == "--json")
            json = argv[++i];
        else {
            std::cerr << "usage: " << program << " [--quick] [--strict] [--filter TEXT] [--rounds N] [--commit ID] [--json FILE]\n";
            return 2;
        }
    }

    if (run.quick)
        run.effort = quickEffort;
    uses("qxkernel", qxkernel::version());

    benchmarks();
    showProgress("");

    Machine machine = thisMachine(commit);
    machine.quick = run.quick;
    machine.versions = run.versions;
    std::cout << program << "  ";
    printTables(std::cout, machine, run.rows);
    std::ofstream file(json);
    writeJson(file, program, machine, run.rows);
    if (!file.flush()) {
        std::cerr << program << ": cannot write " << json << '\n';
        return 1;
    }
    for (const Row& r : run.rows)
        if (!r.failure.empty() || (run.strict && r.missesGoal()))
            return 1;
    return 0;
}
