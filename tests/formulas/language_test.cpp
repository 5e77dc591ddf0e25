// SPDX-License-Identifier: LicenseRef-qxkernel
#include "language.hpp"

#include "evaltree.hpp"
#include "exprimpl.hpp"
#include "formulas.hpp"
#include "funfactory.hpp"
#include "evalfun.hpp"

#include "support/failure.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace {

const std::vector<qx::FunctionInfo> kFunctions = qx::languageFunctions();
const std::set<std::string> kKeywords{"d", "pd", "depends", "jacdepends", "islinear"};

int count(const std::string& arguments)
{
    return 1 + static_cast<int>(std::count(arguments.begin(), arguments.end(), ','));
}

double valueOf(const std::string& text, double x, double other)
{
    qx::Formulas f({"x", "y", "w", "n"});
    const auto formula = f.add(text);
    qx::Points p(1);
    p.set("x", x).set("y", other).set("w", other).set("n", other);
    std::vector<double> value(1);
    f.compile().evaluate(p, formula, value, {.onFailure = qx::OnFailure::nan});
    return value[0];
}

bool canBeSaid(const std::string& text)
{
    try {
        valueOf(text, 0.3, 0.7);
        return true;
    } catch (const qxbase::Exception&) {
        return false;
    }
}

} // namespace

TEST(Language, HasARowForEveryFunctionWithItsArgumentsInOrderOfNames)
{
    std::vector<FunObjPtr> standard;
    makeStandardFunctions(standard);
    standard.push_back(makeFunObj(PLUSSQ));
    std::map<std::string, int> wanted;
    for (const FunObjPtr& f : standard)
        wanted[f->getName()] = f->nArgs();

    std::map<std::string, int> listed;
    for (const qx::FunctionInfo& f : kFunctions) {
        if (kKeywords.count(f.name) == 0) {
            EXPECT_TRUE(listed.emplace(f.name, count(f.arguments)).second) << f.name;
        }
    }

    EXPECT_EQ(listed, wanted);
    EXPECT_TRUE(std::is_sorted(kFunctions.begin(), kFunctions.end(), [](auto& a, auto& b) { return a.name < b.name; }));
    EXPECT_EQ(kFunctions.size(), wanted.size() + kKeywords.size());
}

TEST(Language, KeywordsAreNamesThatNoFunctionMayTake)
{
    for (const std::string& name : kKeywords) {
        qx::Formulas f({"x"});
        EXPECT_EQ(qxtest::idOf([&] { f.function(name, {.parameters = {"a"}, .real = [](auto, auto) {}}); }), "Name_in_use") << name;
        EXPECT_TRUE(std::any_of(kFunctions.begin(), kFunctions.end(), [&](auto& k) { return k.name == name; })) << name;
    }
}

TEST(Language, FormulasThatTheLanguageCanSayHoldAtPoints)
{
    int said = 0;
    for (const qx::FunctionInfo& f : kFunctions) {
        if (kKeywords.count(f.name) != 0 || !canBeSaid(f.formula))
            continue;
        SCOPED_TRACE(f.name + ": " + f.formula);
        ++said;
        int compared = 0;
        for (const double x : {0.3, 0.6, -0.4, 1.7, -2.2})
            for (const double other : {0.7, 2.0, 3.0}) {
                if (f.domain.starts_with("|x| < w") && !(std::fabs(x) < other))
                    continue;
                const double value = valueOf(f.name + "(" + f.arguments + ")", x, other), wanted = valueOf(f.formula, x, other);
                if (std::isnan(value) && std::isnan(wanted))
                    continue;
                ++compared;
                EXPECT_NEAR(value, wanted, 1e-13 * std::max(1.0, std::fabs(wanted))) << "at " << x << ", " << other;
            }
        EXPECT_GT(compared, 2);
    }
    EXPECT_GT(said, 35);
}

TEST(Language, DerivativesAreThoseThatCentralDifferencesFind)
{
    const double h = 1e-6;
    int compared = 0;
    for (const qx::FunctionInfo& f : kFunctions) {
        if (f.derivative.empty())
            continue;
        const std::string byFirst = f.derivative.substr(0, f.derivative.find("; "));
        const std::string call = f.name + "(" + f.arguments + ")";
        if (!f.arguments.starts_with("x") || !canBeSaid(byFirst)) // second derivatives of steps have no name in the language
            continue;
        for (const double x : {0.3, 0.6, 1.7}) {
            const double left = valueOf(call, x - h, 2.3), right = valueOf(call, x + h, 2.3);
            if (std::isnan(left) || std::isnan(right))
                continue;
            ++compared;
            EXPECT_NEAR(valueOf(byFirst, x, 2.3), (right - left) / (2 * h), 1e-7) << call << " at " << x << ": " << byFirst;
        }
    }
    EXPECT_GT(compared, 100);
}

TEST(Language, AccuraciesAreThoseOfTheTestedTables)
{
    std::map<std::string, std::string> accuracy;
    for (const qx::FunctionInfo& f : kFunctions)
        accuracy[f.name] = f.accuracy;

    EXPECT_EQ(accuracy["sqrt"], "0.5 ulp from 1e-300 to 1e+300; correctly rounded");
    EXPECT_EQ(accuracy["log10"], "1 ulp from 1e-300 to 1e+300; complex 4 ulp a component");
    EXPECT_EQ(accuracy["atan2"], "1 ulp");
    EXPECT_EQ(accuracy["erf"], "1 ulp from -6 to 6");
    EXPECT_EQ(accuracy["besselk"], "1 ulp for -20 <= nu <= 20, 0.001 <= x <= 700");
    EXPECT_EQ(accuracy["mod"], "");
}

TEST(Language, OperatorsReadAsTheirParenthesesSay)
{
    for (const qx::OperatorInfo& o : qx::languageOperators())
        EXPECT_EQ(qxInfixToPrefix(o.example), qxInfixToPrefix(o.reads)) << o.example;
}

TEST(Language, OperatorsAreListedFromTheWeakestToTheStrongest)
{
    // Of two neighbours in strength the stronger one takes the operand between them, on whichever side it stands.
    struct Sign
    {
        const char* text;
        int strength;
    };
    const Sign signs[] = {{"||", 1}, {"&&", 2}, {"<", 3}, {"==", 3}, {"+", 4}, {"-", 4}, {"*", 5}, {"/", 5}, {"^", 7}};
    for (const Sign& a : signs)
        for (const Sign& b : signs) {
            const std::string first = std::string("x") + a.text + "y", text = first + b.text + "z";
            const bool right = b.strength > a.strength;
            const std::string wanted = right ? std::string("x") + a.text + "(y" + b.text + "z)" : "(" + first + ")" + b.text + "z";
            EXPECT_EQ(qxInfixToPrefix(text), qxInfixToPrefix(wanted)) << text;
        }
    const auto operators = qx::languageOperators();
    for (const Sign& s : signs)
        EXPECT_TRUE(std::any_of(operators.begin(), operators.end(), [&](const qx::OperatorInfo& o) {
            return o.strength == s.strength && (" " + o.sign + " ").find(std::string(" ") + s.text + " ") != std::string::npos;
        })) << s.text;
    EXPECT_TRUE(std::is_sorted(operators.begin(), operators.end(), [](auto& a, auto& b) { return a.strength < b.strength; }));
}
