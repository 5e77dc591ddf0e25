// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "host.hpp"

#include <map>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace examples {

/// The evaluation graph of formulas of some variables: reading, derivatives, how simple a formula is.
///
/// Nodes are seen through proxies and definitions: what counts are constants, variables and operations.
/// Raises what reading and differentiating raise, as qxbase::Exception.
class Graph
{
public:
    /// Names and definitions are kept.
    Graph(std::vector<std::string> variables, const std::map<std::string, std::string>& definitions);

    const std::vector<std::string>& variables() const { return variables_; }
    Host& host() const { return *host_; }
    const VarEvaluatorPtr& evaluator() const { return evaluator_; }
    const NodeMakerPtr& nodeMaker() const { return nodeMaker_; }

    EvalNodePtr read(const std::string& text) const;
    /// The node behind proxies and definitions.
    EvalNodePtr seen(const EvalNodePtr& node) const;
    /// The number of a variable, or -1 for another node.
    int variableOf(const EvalNode& node) const;

    /// The nodes of an expression, arguments before operations, each once. Of any depth.
    std::vector<EvalNodePtr> nodesOf(const std::vector<EvalNodePtr>& roots) const;

    /// The derivatives by all variables that the expression has, ascending: one reverse accumulation over the graph, each
    /// node once, with the functions' own rules of differentiation.
    /// Source: Griewank, Walther, Evaluating Derivatives, 2nd ed., SIAM 2008, section 3.2.
    std::vector<std::pair<int, EvalNodePtr>> gradient(const EvalNodePtr& root) const;

    /// The degree of each as a polynomial of the variables, or kNoPolynomial. An upper bound: x-x has degree 1.
    std::vector<int> degrees(const std::vector<EvalNodePtr>& roots) const;
    int degree(const EvalNodePtr& root) const { return degrees({root}).front(); }
    static constexpr int kNoPolynomial = 1000;

private:
    std::vector<std::string> variables_;
    Definitions definitions_;
    NodeMakerPtr nodeMaker_;
    boost::shared_ptr<Host> host_;
    VarEvaluatorPtr evaluator_; ///< the same object
};

/// The arguments of an operation; none for another node.
const EvalNodes& argumentsOf(const EvalNode& node);

} // namespace examples
