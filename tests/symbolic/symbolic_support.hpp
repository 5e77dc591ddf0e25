// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "exprimpl.hpp"
#include "exprtree.hpp"
#include "qxexception.hpp"
#include "support/failure.hpp"

#include <boost/make_shared.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

/// Shared by the tests of the symbolic engine.
namespace qxtest {

using Node = ExprImpl::Node;
using NodePtr = ExprImpl::NodePtr;
using Number = ExprImpl::Number;

/// The arguments of the exception that work() raises.
template <class Work>
qxbase::ExceptionArgs argsOf(Work&& work)
{
    const qxbase::Exception e = failureOf(work);
    return e.size() == 0 ? qxbase::ExceptionArgs() : e.getArgs(0);
}

inline std::string printedInfix(const std::string& infix)
{
    ExprImpl e;
    e.scan(infix);
    return e.toString();
}

inline std::string printedPrefix(const std::string& prefix)
{
    ExprImpl e;
    e.scanInfix(prefix);
    return e.toString();
}

inline std::string simplified(const std::string& infix, bool evalFuncs = false)
{
    ExprImpl e;
    e.scan(infix);
    e.simp(evalFuncs);
    return e.toString();
}

/// The text of the derivative of infix by a variable, read and canonicalised first.
inline std::string derivative(const std::string& infix, const std::string& by, const ExprImpl::RulePairs& rules = {})
{
    ExprTree tree(rules);
    tree.scan(infix);
    tree.simp(false);
    tree.diff(by);
    std::string text;
    tree.print(text);
    return text;
}

/// Distinct nodes of the graph below root and the links between them: what a walk over a shared graph costs.
inline std::size_t graphSize(const NodePtr& root)
{
    std::set<const Node*> seen{root.get()};
    std::vector<NodePtr> open{root};
    std::size_t links = 0;
    while (!open.empty()) {
        const NodePtr node = open.back();
        open.pop_back();
        for (int i = 0, n = node->getChildCount(); i < n; ++i, ++links)
            if (seen.insert(node->getChild(i).get()).second)
                open.push_back(node->getChild(i));
    }
    return seen.size() + links;
}

constexpr const char* syntaxError = "Syntax_error_in_expression";
constexpr const char* internalError = "Internal_error_symbolic_processing";

} // namespace qxtest
