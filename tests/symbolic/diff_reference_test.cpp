// SPDX-License-Identifier: LicenseRef-qxkernel
// The rows of the rule table at 100 points each, against 50-digit references.
#include "symbolic_support.hpp"

#include "eval_text.hpp"
#include "support/reference_lines.hpp"

#include <cmath>
#include <set>

using namespace qxtest;

namespace {

const std::set<std::string> oneArgument{
    "abs",  "acos", "acosh", "acot", "acoth", "acsc", "acsch", "asec", "asech", "asin", "asinh",
    "atan", "atanh", "cos",  "cosh", "cot",   "coth", "csc",   "csch", "erf",   "exp",  "log",
    "log10", "log2", "sec",  "sech", "sign",  "sin",  "sinh",  "sqrt", "tan",   "tanh"};
const std::set<std::string> twoArguments{"atan2", "besselj", "max", "min"};

} // namespace

// With bessely, besseli and besselk, whose rows do not read, these are the 39 rows of the table.
TEST(DiffRules, AgreeWithFiftyDigitReferencesInEveryArgument)
{
    std::map<std::string, std::string> texts;
    Tally tally;
    for (const ReferenceLine& line : readReferences(QX_REFERENCE_FILE, "d")) {
        const bool two = twoArguments.count(line.name) > 0;
        if (!two && oneArgument.count(line.name) == 0)
            continue;
        const std::vector<double>& n = line.numbers;
        const std::string by = n[0] == 1.0 ? "u" : "v", key = line.name + " by " + by;
        if (texts.count(key) == 0)
            texts[key] = derivative(line.name + (two ? "(u,v)" : "(u)"), by);
        const Point at{{"u", n[1]}, {"v", n[2]}, {"pi", std::acos(-1.0)}};
        tally.add(key, relativeError(evalText(texts[key], at), n[3]), texts[key] + "   " + line.text);
    }

    EXPECT_EQ(tally.rows().size(), oneArgument.size() + 3 * 2 + 1); // besselj by its order: 0
    for (const auto& [name, row] : tally.rows()) {
        EXPECT_EQ(row.points, 10) << name;
        EXPECT_LE(row.worst, 1e-12) << name << ": " << row.where;
    }
}

TEST(DiffRules, OrderOfABesselFunctionCountsAsAConstant)
{
    EXPECT_EQ(derivative("besselj(x,y)", "x"), "0");
    // The order goes through the rule as it stands: only the argument is differentiated.
    const Point at{{"x", 1.3}};
    const std::string text = derivative("besselj(x+1,2*x)", "x");
    const auto J = [](double nu, double x) { return evalText("besselj(" + std::to_string(nu) + ",x)", {{"x", x}}); };
    EXPECT_NEAR(evalText(text, at), J(1.3, 2.6) - J(3.3, 2.6), 1e-13) << text;
}
