// SPDX-License-Identifier: LicenseRef-qxkernel
#include "report.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <iomanip>
#include <map>
#include <ostream>
#include <sstream>
#include <thread>

namespace qxbench {
namespace {

std::string format(const char* pattern, double value)
{
    char text[64];
    std::snprintf(text, sizeof text, pattern, value);
    return text;
}

std::string time(double seconds)
{
    static const struct { double limit; double scale; const char* unit; } units[] = {
        {1e-6, 1e9, "ns"}, {1e-3, 1e6, "us"}, {1.0, 1e3, "ms"}, {INFINITY, 1.0, "s"}};
    for (const auto& u : units)
        if (seconds < u.limit)
            return format("%.3g ", seconds * u.scale) + u.unit;
    return "nan";
}

// Every time stands with its spread as a percentage: 1.93 ms 2%
std::string time(const Spread& s)
{
    return time(s.median) + format(" %2.0f%%", s.median > 0.0 ? 100.0 * s.mad / s.median : 0.0);
}

std::string ahead(const Row& r)
{
    if (std::abs(r.ratio.median - 1.0) <= std::max(0.01, 2.0 * r.ratio.mad))
        return "level";
    return r.ratio.median < 1.0 ? "ours " + format("%.3gx", 1.0 / r.ratio.median)
                                : "peer " + format("%.3gx", r.ratio.median);
}

std::vector<std::string> cells(const Row& r)
{
    std::vector<std::string> c{r.name, r.peer};
    if (!r.failure.empty()) {
        c.push_back(r.failure);
        return c;
    }
    const bool peer = !r.peer.empty();
    c.push_back(time(r.ours));
    c.push_back(peer ? time(r.theirs) : "");
    c.push_back(peer ? format("%.3g", r.ratio.median) + format(" +- %.2g", r.ratio.mad) : "");
    c.push_back(peer ? ahead(r) : "");
    c.push_back(r.goal > 0.0 ? format("%.3g ", r.goal) + (r.missesGoal() ? "MISSED" : "met") : "");
    c.push_back(r.items > 0.0 ? format("%.4g", r.items / r.ours.median * 1e-6) + " M" + r.itemUnit + "/s" : "");
    c.push_back(r.bytes > 0.0 ? format("%.1f", r.bytes / r.ours.median * 1e-9) : "");
    c.push_back(r.bytes > 0.0 ? format("%.0f %%", 100.0 * r.bytes / r.ours.median / r.bandwidth) : "");
    c.push_back(r.difference >= 0.0 ? format("%.1e", r.difference) : "");
    return c;
}

const std::vector<std::string> kHeadings{"case", "peer", "ours", "peer's", "ours/peer", "ahead", "goal",
                                         "rate", "GB/s", "of stream", "check"};

void printGroup(std::ostream& out, const std::vector<const Row*>& rows)
{
    std::vector<std::vector<std::string>> lines{kHeadings};
    for (const Row* r : rows)
        lines.push_back(cells(*r));
    std::vector<std::size_t> width(kHeadings.size(), 0);
    for (std::size_t k = 0; k < width.size(); ++k) {
        bool used = false;
        for (std::size_t i = 0; i < lines.size(); ++i)
            // The text of a failure runs over the columns that it leaves empty.
            if (k < lines[i].size() && !(i > 0 && !rows[i - 1]->failure.empty() && k == 2)) {
                width[k] = std::max(width[k], lines[i][k].size());
                used = used || (i > 0 && !lines[i][k].empty());
            }
        if (!used && k > 2)
            width[k] = 0;
    }
    for (const auto& line : lines) {
        std::ostringstream text;
        for (std::size_t k = 0; k < line.size(); ++k)
            if (width[k] > 0)
                text << std::left << std::setw(static_cast<int>(width[k]) + 2) << line[k];
        std::string s = text.str();
        out << s.erase(s.find_last_not_of(' ') + 1) << '\n';
    }

    double logs = 0.0;
    std::map<std::string, int> count;
    const Row* worst = nullptr;
    int n = 0;
    for (const Row* r : rows)
        if (r->failure.empty() && !r->peer.empty()) {
            logs += std::log(r->ratio.median);
            ++n;
            if (!worst || r->ratio.median > worst->ratio.median)
                worst = r;
        }
    if (n > 0)
        out << "geometric mean " << format("%.3g", std::exp(logs / n)) << " over " << n << ", worst "
            << format("%.3g", worst->ratio.median) << " (" << worst->name << " against " << worst->peer << ")\n";
}

std::string json(const std::string& text)
{
    std::string s = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\')
            s += '\\';
        s += static_cast<unsigned char>(c) < 0x20 ? ' ' : c; // line ends of an exception's text
    }
    return s + '"';
}

std::string json(double value)
{
    return std::isfinite(value) ? format("%.17g", value) : "null";
}

std::string json(const Spread& s)
{
    return "{\"median\": " + json(s.median) + ", \"mad\": " + json(s.mad) + "}";
}

std::string cpuModel()
{
    std::ifstream info("/proc/cpuinfo");
    std::string line;
    while (std::getline(info, line))
        if (line.rfind("model name", 0) == 0 && line.find(": ") != std::string::npos)
            return line.substr(line.find(": ") + 2);
    return "unknown cpu";
}

} // namespace

Machine thisMachine(const std::string& commit)
{
    Machine m;
#ifdef __clang__
    m.compiler = "clang " __clang_version__;
#else
    m.compiler = "gcc " __VERSION__;
#endif
    m.flags = QX_BENCH_FLAGS;
    m.cpu = cpuModel();
    m.cores = static_cast<int>(std::thread::hardware_concurrency());
    m.commit = commit;
    char date[32];
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    std::strftime(date, sizeof date, "%Y-%m-%d", &local);
    m.date = date;
    return m;
}

void printTables(std::ostream& out, const Machine& m, const std::vector<Row>& rows)
{
    out << m.compiler << "  " << m.flags << "  " << m.cpu << "  " << m.cores << " cores  " << m.date;
    if (!m.commit.empty())
        out << "  commit " << m.commit;
    for (const auto& [name, version] : m.versions)
        out << "  " << name << ' ' << version;
    if (m.quick)
        out << "\nA QUICK RUN: small sizes, few rounds; the times say little.";
    std::map<int, double> bandwidth;
    int rounds = 0;
    for (const Row& r : rows) {
        if (r.bandwidth > 0.0)
            bandwidth[r.threads] = r.bandwidth;
        rounds = std::max(rounds, r.rounds);
    }
    out << "\nmedian of up to " << rounds << " interleaved rounds, +- and % are median absolute deviations";
    for (const auto& [threads, value] : bandwidth)
        out << ", stream read " << format("%.1f", value * 1e-9) << " GB/s on " << threads
            << (threads == 1 ? " thread" : " threads");
    out << '\n';

    std::vector<std::string> groups;
    for (const Row& r : rows)
        if (std::find(groups.begin(), groups.end(), r.group) == groups.end())
            groups.push_back(r.group);
    for (const std::string& group : groups) {
        std::vector<const Row*> members;
        for (const Row& r : rows)
            if (r.group == group)
                members.push_back(&r);
        out << '\n' << group << (members.front()->threads > 1 ? "" : "  (1 thread)") << '\n';
        printGroup(out, members);
    }
}

void writeJson(std::ostream& out, const std::string& program, const Machine& m, const std::vector<Row>& rows)
{
    out << "{\n  \"program\": " << json(program) << ",\n  \"machine\": {\"compiler\": " << json(m.compiler)
        << ", \"flags\": " << json(m.flags) << ", \"cpu\": " << json(m.cpu) << ", \"cores\": " << m.cores
        << ", \"date\": " << json(m.date) << ", \"commit\": " << json(m.commit)
        << ", \"quick\": " << (m.quick ? "true" : "false") << "},\n  \"versions\": {";
    const char* separator = "";
    for (const auto& [name, version] : m.versions) {
        out << separator << json(name) << ": " << json(version);
        separator = ", ";
    }
    out << "},\n  \"rows\": [";
    separator = "\n";
    for (const Row& r : rows) {
        out << separator << "    {\"group\": " << json(r.group) << ", \"case\": " << json(r.name)
            << ", \"peer\": " << json(r.peer) << ", \"threads\": " << r.threads;
        if (!r.failure.empty()) {
            out << ", \"failure\": " << json(r.failure);
        } else {
            out << ", \"rounds\": " << r.rounds << ", \"ours_s\": " << json(r.ours);
            if (!r.peer.empty())
                out << ", \"peer_s\": " << json(r.theirs) << ", \"ratio\": " << json(r.ratio);
            if (r.goal > 0.0)
                out << ", \"goal\": " << json(r.goal) << ", \"met\": " << (r.missesGoal() ? "false" : "true");
            if (r.items > 0.0)
                out << ", \"items\": " << json(r.items) << ", \"unit\": " << json(r.itemUnit);
            if (r.bytes > 0.0)
                out << ", \"bytes\": " << json(r.bytes) << ", \"stream_bytes_per_s\": " << json(r.bandwidth);
        }
        if (r.difference >= 0.0 || std::isnan(r.difference))
            out << ", \"difference\": " << json(r.difference);
        out << '}';
        separator = ",\n";
    }
    out << "\n  ]\n}\n";
}

} // namespace qxbench
