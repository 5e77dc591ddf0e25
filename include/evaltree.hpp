// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "depinfo.hpp"
#include "evalnodes.hpp"
#include "fwd.hpp"
#include "qxexport.hpp"
#include "qxlock.hpp"

#include <atomic>
#include <boost/shared_ptr.hpp>
#include <string>
#include <utility>
#include <vector>

namespace qxutil {
class RunInfo;
}

/// An expression: its text, or the operation on other trees that it stands for, and the graph of nodes made from it at the
/// first use.
///
/// Parsing happens once, under a lock: several threads may evaluate one tree, each with its own evaluator and cache. Its
/// nodes come from the NodeMaker of the evaluator that parsed it and live as long as the tree. Trees nested or chained a
/// million deep are parsed, evaluated and released on a small machine stack.
///
/// Fails, all operations: std::bad_alloc passes through; the tree is as it was, and usable.
class QX_API EvalTree
{
public:
    /// Derivatives by variable name.
    using Pairs = std::vector<std::pair<std::string, EvalTreePtr>>;

    /// The empty text; it does not parse.
    EvalTree();
    /// An expression text, or with isVar the name of one variable, whatever its characters.
    EvalTree(const std::string& text, bool isVar);
    /// The tree on a node; its text is the node's.
    explicit EvalTree(const EvalNodePtr& node);
    EvalTree(const EvalNodePtr& node, const std::string& text);
    /// A copy has its own id and lock and shares the nodes.
    EvalTree(const EvalTree& other);
    EvalTree& operator=(const EvalTree& other);
    ~EvalTree();

    /// Combined trees; nothing is parsed before they are. The operands are kept.
    static EvalTreePtr plus(const EvalTreePtr& a, const EvalTreePtr& b);
    static EvalTreePtr minus(const EvalTreePtr& a, const EvalTreePtr& b);
    static EvalTreePtr times(const EvalTreePtr& a, const EvalTreePtr& b);
    static EvalTreePtr uminus(const EvalTreePtr& a);

    /// Builds the nodes; does nothing the second time.
    /// Raises "Syntax_error_in_expression" with "Expression" for a text that is none, what the evaluator raises for an
    /// unknown function, and "Evaluation_internal_error" when the evaluator parses this very tree while it is parsed.
    /// A failed parse leaves the tree unparsed.
    void parse(const VarEvaluatorPtr& evaluator);
    /// The root of the graph; parses first.
    EvalNodePtr getRoot(const VarEvaluatorPtr& evaluator);

    /// The value over the points that evaluator and cache describe. Failures of elements give a NaN value whose record
    /// tells where it came from, ending in the line "expreval" with the text of this expression.
    /// run: lent; cancelling it raises qxbase::CancelException between two operations or blocks, on this thread. Variables
    /// have kept the values that they had, and those that were not finished are computed by the next evaluation.
    ValRepPtr eval(const VarEvaluatorPtr& evaluator, const ValRepCachePtr& cache, unsigned flags,
                   const qxutil::RunInfo* run = nullptr);

    /// The text of the expression; a tree on a node prints it.
    std::string getExpr() const;
    unsigned long getId() const { return id_; }
    bool isParsed() const { return parsed_.load(std::memory_order_acquire); }

    /// The derivative as a tree with the text "d(expr,var)", shared through the NodeMaker: by the chain rule, each
    /// argument's derivative times the function's partial one (FunObj::diffRule). The same node within one version.
    /// Cost: linear in the distinct nodes of the graph, whatever is shared. Of nodes (operations, variables, constants; not
    /// the proxies that share operations) the result has at most five for each one of the value, shared ones counted once,
    /// where no long rules stand one upon the other: a stack of nothing but quotients of two variable operands, of general
    /// powers or of asec needs up to 8, of asech 12. A gradient costs that for each variable.
    /// Raises what parse raises, "Evaluation_internal_error" without a root, "circvar" for a variable that is defined
    /// through itself, "Can_only_diff_wrt_variables" from a derivative within the expression.
    EvalTreePtr diff(const std::string& var, const VarEvaluatorPtr& evaluator);
    /// The same for an expression of basic variables and standard functions, without an evaluator.
    static EvalTreePtr diffStatic(const EvalTreePtr& tree, const std::string& var, const NodeMakerPtr& nodeMaker);
    /// The simplified expression as a tree with the text "simplify(expr)".
    EvalTreePtr simplify(const VarEvaluatorPtr& evaluator);
    /// Part of the variables the value, or the derivatives with respect to them, depend on; see EvalNode.
    DepInfo depends(const std::vector<std::string>& vars, const VarEvaluatorPtr& evaluator);
    DepInfo jacDepends(const std::vector<std::string>& vars, const VarEvaluatorPtr& evaluator);

    /// The derivatives with respect to all basic variables, without those that are zero; memoised per version.
    const Pairs& linearize(const VarEvaluatorPtr& evaluator);
    /// Appends the derivatives with respect to the given variables, without those that are zero.
    void linearize(const VarEvaluatorPtr& evaluator, const std::vector<std::string>& vars, Pairs& pairs);

    /// Collects the basic variables.
    void gatherBVars(const VarEvaluatorPtr& evaluator, NodeIdSet& seen, NameSet& names);
    /// Their names, sorted.
    std::vector<std::string> getBVarNames(const VarEvaluatorPtr& evaluator);

private:
    friend class EvalTreeSet;
    enum Kind { Plain = 0, Plus = 1, Minus = 2, Times = 3, Negation = 4, Variable = 5 };

    EvalTree(Kind kind, const EvalTreePtr& left, const EvalTreePtr& right);

    void parseOne(const VarEvaluatorPtr& evaluator);
    const EvalNodePtr& requireRoot(const VarEvaluatorPtr& evaluator);
    void addStory(ValRepPtr& result, unsigned flags) const;

    std::string expr_;
    Kind kind_ = Plain;
    EvalTreePtr left_, right_;
    bool isVar_ = false;
    bool parsing_ = false;
    std::atomic<bool> parsed_{false};
    EvalNodePtr root_;
    boost::shared_ptr<qxbase::NestedLock> lock_;
    unsigned long id_;
};
