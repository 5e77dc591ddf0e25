// SPDX-License-Identifier: LicenseRef-qxkernel
#include "language.hpp"

#include "eval/funlookup_detail.hpp"
#include "evalnodes.hpp"
#include "evaltree.hpp"
#include "exprimpl.hpp"
#include "nodemaker.hpp"

#include <algorithm>
#include <boost/make_shared.hpp>
#include <map>
#include <sstream>

namespace qx {

namespace {

std::vector<std::string> words(const std::string& list)
{
    std::vector<std::string> parts;
    std::istringstream in(list);
    for (std::string part; std::getline(in >> std::ws, part, ',');)
        parts.push_back(part);
    return parts;
}

std::string text(double x)
{
    std::ostringstream out;
    out << x;
    return out.str();
}

/// Accuracy by name, from the tables that the tests read.
std::map<std::string, std::string> accuracies()
{
    std::map<std::string, std::string> known;
#define QX_ACC(name, from, to, ulp, notes) \
    known[#name] = text(ulp) + " ulp from " + text(from) + " to " + text(to) + (*notes ? std::string("; ") + notes : "");
#define QX_ACC2(name, ulp, notes) known[#name] = text(ulp) + " ulp" + (*notes ? std::string("; ") + notes : "");
#define QX_ACC_COMPLEX(name, smallest, largest, distance, ulp, notes) \
    known[#name] += "; complex " + text(ulp) + " ulp a component";
#include "functions/accuracy.def"
#undef QX_ACC
#undef QX_ACC2
#undef QX_ACC_COMPLEX
    const auto special = [&](const char* name, const std::string& kind, double ulp, const char* range) {
        if (std::string(name).starts_with("qxbessel") && kind == "OrderAndReal")
            known[std::string(name).substr(2)] = text(ulp) + " ulp for " + range;
    };
#define QX_ACC(name, arguments, table, ulp, range) special(#name, #arguments, ulp, range);
#include "base/accuracy.def"
#undef QX_ACC
    known["bessel"] = known["besselj"];
    return known;
}

/// The text without the parentheses that the reader does not need.
std::string bare(std::string text)
{
    const std::string meaning = qxInfixToPrefix(text);
    for (std::size_t open = 0; (open = text.find('(', open)) != std::string::npos;) {
        std::size_t close = open;
        for (int depth = 0; close < text.size(); ++close) {
            depth += text[close] == '(' ? 1 : text[close] == ')' ? -1 : 0;
            if (depth == 0)
                break;
        }
        std::string shorter = text;
        shorter.erase(close, 1).erase(open, 1);
        InfixError error;
        if (qxInfixToPrefix(shorter, error) == meaning)
            text = shorter;
        else
            ++open;
    }
    return text;
}

/// The derivatives by all arguments, as the function's rule makes them.
std::string derivatives(const FunObj& f, const std::vector<std::string>& arguments)
{
    const auto maker = boost::make_shared<NodeMaker>();
    EvalNodes nodes;
    for (const std::string& a : arguments)
        nodes.push_back(maker->makeVarNode(a));
    std::string all;
    for (int k = 1; k <= static_cast<int>(nodes.size()); ++k) {
        const EvalNodePtr derivative = f.diffRule(nodes, k, maker);
        all += (all.empty() ? "" : "; ") + (derivative ? bare(EvalTree(derivative).getExpr()) : "0");
    }
    return all;
}

} // namespace

std::vector<FunctionInfo> languageFunctions()
{
    std::vector<FunctionInfo> list = {
#define QX_FUNCTION(name, arguments, formula, domain) {name, arguments, formula, domain, "", ""},
#include "formulas/language.def"
#undef QX_FUNCTION
    };
    const qxeval::FunTable known = qxeval::standardFunctions();
    const std::map<std::string, std::string> measured = accuracies();
    for (FunctionInfo& f : list) {
        if (const auto object = known.find(f.name); object != known.end())
            f.derivative = derivatives(*object->second, words(f.arguments));
        if (const auto row = measured.find(f.name); row != measured.end())
            f.accuracy = row->second;
    }
    return list;
}

std::vector<OperatorInfo> languageOperators()
{
    return {
        {"||", 1, "or: 1 if one of the two is not 0", "x || y && 0", "(x || (y && 0))"},
        {"&&", 2, "and: 1 if none of the two is 0", "x < 1 && y", "((x < 1) && y)"},
        {"== != < <= > >=", 3, "comparisons, 1 or 0; the last four by the real parts", "x+1 > y*2", "((x+1) > (y*2))"},
        {"+ -", 4, "sum and difference", "x-y-1", "((x-y)-1)"},
        {"* /", 5, "product and quotient", "x/y*2", "((x/y)*2)"},
        {"+ - !", 6, "signs, and not: 1 for 0, else 0", "-x+y", "((-x)+y)"},
        {"+ - !", 6, "a power binds stronger than the sign before it", "-x^2", "(-(x^2))"},
        {"^", 7, "power; groups from the left like the others", "x^y^2", "((x^y)^2)"},
        {"^", 7, "an exponent may have a sign of its own", "x^-y^2", "((x^(-y))^2)"},
        {"[ ]", 7, "a value with a unit", "x^2[m]", "((x^2)[m])"},
    };
}

} // namespace qx
