// SPDX-License-Identifier: LicenseRef-qxkernel
#include "problem.hpp"

#include "support/csv.hpp"
#include "support/options.hpp"

#include <algorithm>
#include <cctype>
#include <cmath>

namespace examples {

namespace {

std::string trimmed(const std::string& text)
{
    const std::size_t first = text.find_first_not_of(" \t");
    return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

bool isName(const std::string& text)
{
    return !text.empty() && std::isdigit(static_cast<unsigned char>(text[0])) == 0 &&
           std::all_of(text.begin(), text.end(),
                       [](char c) { return c == '_' || std::isalnum(static_cast<unsigned char>(c)) != 0; });
}

double boundOf(const std::string& text, const std::string& typed)
{
    double value = 0.0;
    if (!fromText(trimmed(text), value) || std::isnan(value))
        throw UsageError("'" + typed + "': " + trimmed(text) + " is no bound");
    return value;
}

/// Parts between commas outside brackets.
std::vector<std::string> listOf(const std::string& typed)
{
    std::vector<std::string> parts(1);
    int depth = 0;
    for (const char c : typed) {
        depth += c == '[' ? 1 : c == ']' ? -1 : 0;
        if (c == ',' && depth == 0)
            parts.emplace_back();
        else
            parts.back() += c;
    }
    return parts;
}

} // namespace

std::vector<Variable> parseVariables(const std::string& typed)
{
    std::vector<Variable> variables;
    for (const std::string& part : listOf(typed)) {
        Variable v;
        std::string head = trimmed(part);
        if (const std::size_t in = head.find(" in "); in != std::string::npos) {
            const std::string range = trimmed(head.substr(in + 4));
            const std::size_t comma = range.find(',');
            if (range.size() < 2 || range.front() != '[' || range.back() != ']' || comma == std::string::npos)
                throw UsageError("'" + part + "': a range is [low,high]");
            v.low = boundOf(range.substr(1, comma - 1), part);
            v.high = boundOf(range.substr(comma + 1, range.size() - comma - 2), part);
            if (v.low > v.high)
                throw UsageError("'" + part + "': no number is in this range");
            head = trimmed(head.substr(0, in));
        }
        if (const std::size_t equals = head.find('='); equals != std::string::npos) {
            if (!fromText(trimmed(head.substr(equals + 1)), v.start) || !std::isfinite(v.start))
                throw UsageError("'" + part + "': " + trimmed(head.substr(equals + 1)) + " is no start");
            head = trimmed(head.substr(0, equals));
        }
        if (!isName(head))
            throw UsageError("'" + part + "': a variable is NAME=START in [LOW,HIGH]");
        for (const Variable& other : variables)
            if (other.name == head)
                throw UsageError("the variable " + head + " is there twice");
        v.name = head;
        v.start = std::clamp(v.start, v.low, v.high);
        variables.push_back(v);
    }
    return variables;
}

Constraint parseConstraint(const std::string& typed)
{
    // The relations, and the texts between them.
    std::vector<std::string> sides(1), relations;
    for (std::size_t k = 0; k < typed.size(); ++k) {
        const char c = typed[k];
        if (c != '<' && c != '>' && c != '=') {
            sides.back() += c;
            continue;
        }
        relations.emplace_back(1, c);
        if (k + 1 < typed.size() && typed[k + 1] == '=')
            ++k;
        sides.emplace_back();
    }
    for (std::string& side : sides) {
        side = trimmed(side);
        if (side.empty())
            throw UsageError("'" + typed + "': a constraint is two formulas with <=, >= or = between them");
    }
    Constraint c;
    c.text = trimmed(typed);
    if (relations.size() == 1) {
        c.middle = sides[0];
        c.isEquation = relations[0] == "=";
        (relations[0] == ">" ? c.left : c.right) = sides[1];
    } else if (relations.size() == 2 && relations[0] == relations[1] && relations[0] != "=") {
        c.middle = sides[1];
        c.left = relations[0] == "<" ? sides[0] : sides[2];
        c.right = relations[0] == "<" ? sides[2] : sides[0];
    } else {
        throw UsageError("'" + typed + "': a constraint is two formulas with <=, >= or = between them, or three with "
                                       "two <= or two >=");
    }
    return c;
}

} // namespace examples
