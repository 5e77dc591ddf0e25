// SPDX-License-Identifier: LicenseRef-qxkernel
#include "report.hpp"

#include "support/csv.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ostream>

namespace examples {

namespace {

std::string shortNumber(double value)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.8g", value + 0.0);
    return text;
}

/// Where a value stands: "lower bound", "upper bound", "fixed", or nothing.
const char* activeBound(double value, double low, double high)
{
    const double near = 1e-6 * std::max(1.0, std::fabs(value));
    if (low == high)
        return "fixed";
    if (value - low <= near)
        return "lower bound";
    return high - value <= near ? "upper bound" : "";
}

void printLine(std::ostream& out, std::size_t width, const std::string& name, double value, double multiplier,
               const char* active)
{
    char line[200];
    std::snprintf(line, sizeof line, "  %-*s  %16s", static_cast<int>(width), name.c_str(), shortNumber(value).c_str());
    out << line;
    if (*active != '\0') {
        std::snprintf(line, sizeof line, "  %-11s  multiplier %s", active, shortNumber(multiplier).c_str());
        out << line;
    }
    out << '\n';
}

std::string plainExit(const std::string& exit)
{
    std::string text = exit;
    std::replace(text.begin(), text.end(), '_', ' ');
    return text;
}

} // namespace

void printReport(std::ostream& out, const Model& model, const Solution& s)
{
    const Problem& problem = model.problem();
    std::size_t width = 8;
    for (const Variable& v : problem.variables)
        width = std::max(width, v.name.size());
    for (std::size_t i = 1; i < model.rows().size(); ++i)
        width = std::max(width, std::min<std::size_t>(model.rows()[i].text.size(), 40));

    out << (s.cancelled ? "Cancelled; the best point so far." : plainExit(s.exit)) << '\n';
    out << (problem.maximise ? "maximum" : "minimum") << "  " << shortNumber(s.F[0]) << "  of  " << problem.objective << '\n';
    out << "variables\n";
    for (std::size_t j = 0; j < problem.variables.size(); ++j) {
        const Variable& v = problem.variables[j];
        printLine(out, width, v.name, s.x[j], s.xMultiplier[j], activeBound(s.x[j], v.low, v.high));
    }
    if (model.rows().size() > 1)
        out << "constraints\n";
    for (std::size_t i = 1; i < model.rows().size(); ++i) {
        const Row& row = model.rows()[i];
        const char* active = activeBound(s.F[i], row.low, row.high);
        printLine(out, width, row.text, s.F[i], s.multiplier[i], row.low == row.high ? "equation" : active);
    }
    if (s.violation > 1e-6)
        out << "largest violation  " << shortNumber(s.violation) << '\n';
    out << (s.quadratic ? "quadratic problem, " : "") << s.iterations << " iterations";
    if (!s.quadratic)
        out << ", " << s.evaluations << " evaluations";
    out << '\n';
}

std::string jsonText(const std::string& text)
{
    std::string out = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\')
            out += '\\';
        if (static_cast<unsigned char>(c) >= 0x20) {
            out += c;
        } else {
            char code[8];
            std::snprintf(code, sizeof code, "\\u%04x", static_cast<unsigned>(c));
            out += code;
        }
    }
    return out + "\"";
}

std::string jsonNumber(double value) { return std::isfinite(value) ? toText(value) : "null"; }

void printJson(std::ostream& out, const Model& model, const Solution& s)
{
    const Problem& problem = model.problem();
    out << "{\"solved\": " << (s.solved ? "true" : "false") << ", \"cancelled\": " << (s.cancelled ? "true" : "false")
        << ", \"exit\": " << jsonText(s.exit) << ", \"code\": " << s.code << ", \"maximise\": "
        << (problem.maximise ? "true" : "false") << ",\n \"objective\": {\"formula\": " << jsonText(problem.objective)
        << ", \"value\": " << jsonNumber(s.F[0]) << "},\n \"variables\": [";
    for (std::size_t j = 0; j < problem.variables.size(); ++j) {
        const Variable& v = problem.variables[j];
        out << (j > 0 ? ",\n  " : "\n  ") << "{\"name\": " << jsonText(v.name) << ", \"value\": " << jsonNumber(s.x[j])
            << ", \"low\": " << jsonNumber(v.low) << ", \"high\": " << jsonNumber(v.high)
            << ", \"multiplier\": " << jsonNumber(s.xMultiplier[j])
            << ", \"active\": " << jsonText(activeBound(s.x[j], v.low, v.high)) << "}";
    }
    out << "],\n \"constraints\": [";
    for (std::size_t i = 1; i < model.rows().size(); ++i) {
        const Row& row = model.rows()[i];
        out << (i > 1 ? ",\n  " : "\n  ") << "{\"text\": " << jsonText(row.text) << ", \"value\": " << jsonNumber(s.F[i])
            << ", \"low\": " << jsonNumber(row.low) << ", \"high\": " << jsonNumber(row.high)
            << ", \"multiplier\": " << jsonNumber(s.multiplier[i])
            << ", \"active\": " << jsonText(activeBound(s.F[i], row.low, row.high)) << "}";
    }
    out << "],\n \"violation\": " << jsonNumber(s.violation) << ", \"iterations\": " << s.iterations
        << ", \"evaluations\": " << s.evaluations << ", \"quadratic\": " << (s.quadratic ? "true" : "false") << "}\n";
}

} // namespace examples
