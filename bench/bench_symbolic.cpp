// SPDX-License-Identifier: LicenseRef-qxkernel
// Reading against muParser's set-up, derivatives in canonical form against GiNaC, and growth with the size of the text.

#include "exprimpl.hpp"
#include "harness.hpp"

#include <ginac/ginac.h>
#include <muParser.h>

#include <boost/make_shared.hpp>
#include <cmath>
#include <string>
#include <vector>

namespace {

struct Formula
{
    std::string name;
    std::string text;
};

std::string nest(int depth, const char* even, const char* odd, const char* end)
{
    std::string text = "x";
    for (int i = 0; i < depth; ++i)
        text = (i % 2 ? odd : even) + ("(" + text) + end + ")";
    return text;
}

template <class Piece>
std::string joined(const std::string& first, int n, Piece piece)
{
    std::string text = first;
    for (int i = 0; i < n; ++i)
        text += piece(std::to_string(i + 2));
    return text;
}

/// 3 to 1000 operations: products, quotients, powers, nested calls.
std::vector<Formula> formulas()
{
    return {
        {"product-5", "x*y*sin(x)*exp(y)*log(x)"},
        {"quotient", "(x^2+y*x+1)/(x^3-2*x*y+5)"},
        {"powers", "(x+y)^3*(x-y)^2+x^y"},
        {"material", "200000*(1-0.3*((x-20)/1500)^2)*exp(-y/300)*sqrt(1+(x*y)^2)/(1+0.1*sin(x)+0.2*cos(y))"},
        {"nest-10", nest(10, "exp", "sin", "/2")},
        {"nest-50", nest(50, "cos", "sin", "+y")},
        {"fraction-20", [] {
             std::string text = "x";
             for (int i = 0; i < 20; ++i)
                 text = "1/(1+" + text + ")";
             return text;
         }()},
        {"product-50", joined("x", 50, [](const std::string& i) { return "*(x+" + i + ")"; })},
        {"polynomial-1000", joined("x", 333, [](const std::string& i) { return "+" + i + "*x^" + i; })},
        {"sum-1000", joined("x", 1000, [](const std::string& i) { return "+sin(" + i + "*x)"; })},
        {"linear", "2*x+3*y+1"},
        {"root", "sqrt(x^2+y^2+1)"},
        {"gauss", "exp(-((x-0.5)^2+(y-0.5)^2)/0.02)*cos(10*x)*cos(10*y)"},
        {"arrhenius", "100000*exp(-50000/(8.314*x))*(1-y)^2*y^0.5"},
        {"step", "0.5*(1+tanh((x-y)/0.1))"},
        {"rational-power", "(x^2+1)^1.5/(y+x)^0.5"},
        {"power-tower", "x^(y^x)"},
        {"horner-20", [] {
             std::string text = "1";
             for (int i = 0; i < 20; ++i)
                 text = "(" + text + ")*x+" + std::to_string(i + 2);
             return text;
         }()},
        {"real-gas", "8*x/(3*y-1)-3/y^2+log(3*y-1)*x"},
        {"wave", "sin(3*x-2*y)*exp(-0.1*x)/(1+x^2)"},
    };
}

/// A slow value of a result, through the other side's reader: both derivatives at one point.
double valueOf(const std::string& text, GiNaC::parser& reader, const GiNaC::exmap& at)
{
    return GiNaC::ex_to<GiNaC::numeric>(reader(text).subs(at).evalf()).to_double();
}

int distinctNodes(const ExprImpl::NodePtr& root)
{
    std::vector<ExprImpl::Node*> open{root.get()};
    std::unordered_map<ExprImpl::Node*, bool> seen{{root.get(), true}};
    while (!open.empty()) {
        ExprImpl::Node* node = open.back();
        open.pop_back();
        for (int i = 0; i < node->getChildCount(); ++i)
            if (seen.emplace(node->getChild(i).get(), true).second)
                open.push_back(node->getChild(i).get());
    }
    return static_cast<int>(seen.size());
}

void derivatives()
{
    for (const Formula& f : formulas()) {
        const GiNaC::symbol x("x"), y("y");
        GiNaC::symtab names;
        names["x"] = x;
        names["y"] = y;
        GiNaC::parser reader(names);
        const GiNaC::ex original = reader(f.text);
        ExprTree source;
        source.scan(f.text);
        source.simp(false);
        const ExprImpl::NodePtr root = source.getImpl()->getRoot();

        std::string ours;
        GiNaC::ex theirs;
        ExprImpl::NodePtr result;
        const auto difference = [&] {
            const GiNaC::exmap at{{x, GiNaC::numeric(0.7)}, {y, GiNaC::numeric(1.3)}};
            const double a = valueOf(ours, reader, at), b = GiNaC::ex_to<GiNaC::numeric>(theirs.subs(at).evalf()).to_double();
            return std::fabs(a - b) / std::fmax(1.0, std::fabs(b));
        };
        const auto differentiate = [&] {
            ExprImpl e(source.getStore(), root); // as a copy of the handle: the nodes are shared
            e.diff(source.getStore()->getVar("x"));
            result = e.getRoot();
        };
        differentiate();
        ours = result->toString();
        const int nodes = distinctNodes(result);
        std::vector<ExprImpl::NodePtr> fresh(static_cast<std::size_t>(nodes));
        // GiNaC keeps no derivatives: each call starts anew. Its normal() is left out where it does not end in minutes.
        auto bench = BENCH("derivative/" + f.name);
        bench.ours(differentiate).peer("GiNaC diff", [&] { theirs = original.diff(x); }).check(difference, 1e-8).atMost(1.0);
        if (f.name != "nest-50" && f.name != "sum-1000" && f.name != "nest-10")
            bench.peer("GiNaC diff+normal", [&] { theirs = original.diff(x).normal(); }).check(difference, 1e-6).atMost(1.0);
        bench
            .peer("one allocation a node",
                  [&] {
                      const auto rules = source.getImpl()->getRules();
                      for (auto& node : fresh)
                          node = boost::make_shared<ExprImpl::Term>(rules, ExprImpl::Nodes(), ExprImpl::Nodes(), 1);
                      for (auto& node : fresh)
                          node.reset();
                  })
            .atMost(10.0);
    }
}

void building()
{
    const std::vector<Formula> texts{
        {"linear", "a*x+b*y+c"},
        {"functions", "sin(x)*exp(-y^2)+sqrt(x^2+y^2+1)"},
        {"gauss", "exp(-((x-0.5)^2+(y-0.5)^2)/0.02)*cos(10*x)*cos(10*y)"},
        {"polynomial-200", joined("1", 200, [](const std::string& i) { return "+" + i + "*x^" + i; })}};
    for (const Formula& f : texts)
        BENCH("read/" + f.name)
            .ours([&] {
                ExprTree tree;
                tree.scan(f.text);
                tree.makeBinary();
            })
            .peer("muParser set-up",
                  [&] {
                      double x = 1, y = 2, a = 3, b = 4, c = 5;
                      mu::Parser parser;
                      parser.DefineVar("x", &x);
                      parser.DefineVar("y", &y);
                      parser.DefineVar("a", &a);
                      parser.DefineVar("b", &b);
                      parser.DefineVar("c", &c);
                      parser.SetExpr(f.text);
                      qxbench::keep(parser.Eval());
                  })
            .atMost(2.0);
}

/// Ten times the size may take 10^slope times as long: the peer does the small one ten times.
void growth()
{
    const auto sum = [](int n) {
        std::string text = "x0";
        for (int i = 1; i < n; ++i)
            text += "+" + std::to_string(i % 7 + 1) + "*x" + std::to_string(i);
        return text;
    };
    const auto simp = [](const std::string& text) {
        ExprTree tree;
        tree.scan(text);
        tree.simp(false);
    };
    for (int n = 1000; n <= qxbench::sized(1000000, 1000); n *= 10) {
        const std::string large = sum(n), small = sum(n / 10);
        BENCH("growth/scan+simp-" + std::to_string(n))
            .ours([&] { simp(large); })
            .peer("ten of a tenth",
                  [&] {
                      for (int i = 0; i < 10; ++i)
                          simp(small);
                  })
            .atMost(std::pow(10.0, 0.1))
            .items(n, "terms");
    }
}

} // namespace

void qxbench::benchmarks()
{
    building();
    derivatives();
    growth();
}
