// SPDX-License-Identifier: LicenseRef-qxkernel
// One formula, several roads to its values at a few points. The input chooses the formula and the values of its variables.
//
// Reference: a walk over the nodes that applies each function to value objects. The same bits must come from
//   - the tree and the node, which run a program;
//   - a set of trees that has the formula twice and a part of it;
//   - the text of the node, read again;
//   - the ready host, in one block and in blocks of two points;
//   - symbolic text: the formula scanned, printed and read again.
// A difference is a fault, with three exceptions: to the ready host a NaN is no value, it counts a point with one as a failure;
// the sign of a sum in parentheses prints without them, so that text is another formula; and where several parts of a formula
// fail, another one of them may be told first (a commutative operation takes its operands in either order).

#include "bytes.hpp"
#include "exprtree.hpp"
#include "evaltreeset.hpp"
#include "formulas.hpp"
#include "tests/eval/host.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdio>
#include <cstdlib>

using namespace qxtest;

namespace {

constexpr std::size_t points = 5;

std::string leaf(fuzz::Bytes& bytes)
{
    static const char* const leaves[] = {"x", "y", "z", "g", "x", "y", "2", "3", "0.5", "0", "1", "1.7", "1e-9", "4"};
    return leaves[bytes.below(14)];
}

std::string formula(fuzz::Bytes& bytes, int depth)
{
    static const char* const ones[] = {
        "sqrt", "log",  "exp",  "sin",  "cos",   "tan",   "asin",  "acos", "atan",  "abs",  "real", "imag",
        "conj", "arg",  "sign", "sinh", "cosh",  "tanh",  "asinh", "acosh", "atanh", "log2", "log10", "sec",
        "csc",  "cot",  "floor", "ceil", "round", "acoth", "asech", "acsch"};
    static const char* const twos[] = {"min", "max", "atan2", "realdot"};
    static const char* const signs[] = {"+", "-", "*", "/", "^", "<", ">=", "=="};
    if (depth == 0 || bytes.empty())
        return leaf(bytes);
    const unsigned choice = bytes.next();
    switch (choice % 10) {
    case 0:
    case 1: return std::string(ones[choice / 10 % 24]) + '(' + formula(bytes, depth - 1) + ')';
    case 2: return std::string(ones[8 + choice / 10 % 24]) + '(' + formula(bytes, depth - 1) + ')';
    case 3: return "(-" + formula(bytes, depth - 1) + ')';
    case 4: {
        const std::string a = formula(bytes, depth - 1);
        return std::string(twos[choice / 10 % 4]) + '(' + a + ',' + formula(bytes, depth - 1) + ')';
    }
    case 5: return leaf(bytes);
    case 6: return "d(" + formula(bytes, std::min(depth - 1, 2)) + ",x)";
    default: {
        const std::string a = formula(bytes, depth - 1);
        return '(' + a + signs[choice / 10 % 8] + formula(bytes, depth - 1) + ')';
    }
    }
}

double number(fuzz::Bytes& bytes)
{
    static const double special[] = {0.0, -0.0, 1.0, -1.0, 1e300, -1e300, 1e-310, 0x1p60};
    const unsigned b = bytes.next();
    return b < 32 ? special[b % 8] : (static_cast<double>(b) - 140.0) / 40.0;
}

/// Numbers at the points, or one number for all of them; real, or complex with some on the axis. One number on the axis is
/// real to the ready host, so it is given to all as a real one: a real array by it is multiplied by its reciprocal, by a
/// complex one it is divided.
void setVariable(Host& host, const std::string& name, fuzz::Bytes& bytes)
{
    const unsigned kind = bytes.next();
    const std::size_t n = kind % 4 == 0 ? 1 : points;
    if (kind % 16 > 11) {
        for (std::size_t i = 0; i < n; ++i) {
            const double re = number(bytes);
            host.complexes[name].push_back({re, bytes.coin() ? number(bytes) : 0.0});
        }
        if (n == 1 && host.complexes[name][0].imag() == 0.0) {
            host.reals[name] = {host.complexes[name][0].real()};
            host.complexes.erase(name);
        }
    } else {
        for (std::size_t i = 0; i < n; ++i)
            host.reals[name].push_back(number(bytes));
    }
}

/// The value of a node by the definition: the arguments in order, then the function.
ValRepPtr walk(const EvalNodePtr& node, const HostPtr& host, const ValRepCachePtr& cache, unsigned flags)
{
    if (const auto* const proxy = dynamic_cast<const ProxyNode*>(node.get()))
        return walk(proxy->getTarget(), host, cache, flags);
    const auto* const op = dynamic_cast<const OpNode*>(node.get());
    if (op == nullptr)
        return node->eval(host, cache, flags);
    std::vector<ValRepPtr> values;
    for (const EvalNodePtr& arg : op->getArgs())
        values.push_back(walk(arg, host, cache, flags));
    return op->apply(values.data(), flags);
}

/// What comes of a formula: numbers, or a failure.
struct Outcome
{
    std::string failed; ///< the identifier; empty if there are numbers
    std::vector<cplx> values;
};

std::vector<cplx> numbersOf(const ValRepPtr& value)
{
    const CValRepReaderPtr read = value->getComplexReader();
    std::vector<cplx> all;
    for (std::size_t i = 0; i < points; ++i)
        all.push_back((*read)(value->isScalar() ? 0 : static_cast<int>(i), 0));
    return all;
}

template <class Work>
Outcome outcomeOf(Work&& work)
{
    try {
        return {"", work()};
    } catch (const qxbase::Exception& e) {
        return {e.getId(), {}};
    }
}

bool sameBits(double a, double b) { return std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b) || (std::isnan(a) && std::isnan(b)); }

bool same(const Outcome& a, const Outcome& b)
{
    if (a.failed.empty() != b.failed.empty() || a.values.size() != b.values.size())
        return false;
    for (std::size_t i = 0; i < a.values.size(); ++i)
        if (!sameBits(a.values[i].real(), b.values[i].real()) || !sameBits(a.values[i].imag(), b.values[i].imag()))
            return false;
    return true;
}

std::string shown(const Outcome& o)
{
    std::string all = o.failed;
    for (const cplx& z : o.values) {
        char text[80];
        std::snprintf(text, sizeof text, " (%a, %a)", z.real(), z.imag());
        all += text;
    }
    return all;
}

void require(const Outcome& wanted, const Outcome& got, const char* road, const std::string& text)
{
    if (same(wanted, got))
        return;
    std::fprintf(stderr, "%s\n  walk: %s\n  %s: %s\n", text.c_str(), shown(wanted).c_str(), road, shown(got).c_str());
    std::abort();
}

Outcome byTree(const EvalTreePtr& tree, const HostPtr& host, unsigned flags)
{
    return outcomeOf([&] { return numbersOf(tree->eval(host, makeCache(), flags)); });
}

bool isNumber(const cplx& z) { return !std::isnan(z.real()) && !std::isnan(z.imag()); }

/// One NaN for all that are none.
std::vector<cplx> numbersOrNaN(std::vector<cplx> values)
{
    for (cplx& z : values)
        if (!isNumber(z))
            z = cplx(std::nan(""), std::nan(""));
    return values;
}

/// The formula as the ready host computes it, NaN where it fails; "failed" only if the count of failures is another.
Outcome byFormulas(const std::string& text, const Host& host, std::size_t block)
{
    qx::Points at(points);
    for (const auto& [name, v] : host.reals)
        v.size() == 1 ? at.set(name, v[0]) : at.set(name, v);
    for (const auto& [name, v] : host.complexes)
        v.size() == 1 ? at.set(name, v[0]) : at.set(name, v);
    qx::Formulas f({"x", "y", "z"});
    f.define("g", host.definitions.at("g"));
    const auto formula = f.add(text);
    const auto program = f.compile();
    std::vector<cplx> out(points);
    const qx::Failures failures = program.evaluate(at, formula, out, {.threads = 1, .onFailure = qx::OnFailure::nan, .block = block});
    const auto missing = static_cast<std::size_t>(std::count_if(out.begin(), out.end(), [](const cplx& z) { return !isNumber(z); }));
    return failures.count == missing ? Outcome{"", numbersOrNaN(out)} : Outcome{"failed", {}};
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size > 200)
        return 0;
    fuzz::Bytes bytes(data, size);
    const HostPtr host = boost::make_shared<Host>();
    for (const char* name : {"x", "y", "z"})
        setVariable(*host, name, bytes);
    host->definitions["g"] = formula(bytes, 2).find('g') == std::string::npos ? "x*y-sqrt(z)" : "sin(x)+z";
    const unsigned flags = EvalValues | (bytes.coin() ? unsigned(EvalKeepReal) : 0u) | (bytes.coin() ? unsigned(EvalIgnoreElementErrors) : 0u);
    const std::string text = formula(bytes, 5);

    const EvalTreePtr tree = treeOf(text);
    EvalNodePtr root;
    try {
        root = tree->getRoot(host);
    } catch (const qxbase::Exception&) {
        return 0; // d(abs(x),x) of a step, say
    }
    const Outcome wanted = outcomeOf([&] { return numbersOf(walk(root, host, makeCache(), flags)); });

    require(wanted, outcomeOf([&] { return numbersOf(root->eval(host, makeCache(), flags)); }), "node", text);
    require(wanted, byTree(tree, host, flags), "tree", text);

    EvalTreeSet set({treeOf("x"), tree, treeOf("(" + text + ")*2"), treeOf(text)});
    for (int turn = 0; turn < 2; ++turn) {
        std::vector<ValRepPtr> values;
        set.eval(host, makeCache(), flags, values);
        for (const std::size_t i : {1u, 3u})
            require(wanted, outcomeOf([&] { return numbersOf(values[i]); }), "set", text);
        require(byTree(set.getTrees()[2], host, flags), outcomeOf([&] { return numbersOf(values[2]); }), "set of the double", text);
    }

    require(wanted, byTree(treeOf(tree->getExpr()), host, flags), "text of the node", text);

    if (text.find("(-(") == std::string::npos) {
        ExprTree symbolic;
        symbolic.scan(text);
        std::string printed;
        symbolic.print(printed);
        require(wanted, byTree(treeOf(printed), host, flags), "symbolic text", text + "  printed  " + printed);
    }

    Outcome alone = byTree(tree, host, EvalValues);
    alone.values = numbersOrNaN(alone.values);
    for (const std::size_t block : {points, std::size_t(2)}) {
        const Outcome got = byFormulas(text, *host, block);
        if (alone.failed.empty() || !got.failed.empty())
            require(alone, got, "ready host", text);
        else if (std::all_of(got.values.begin(), got.values.end(), isNumber))
            require(alone, got, "ready host, where the tree fails", text);
    }
    return 0;
}
