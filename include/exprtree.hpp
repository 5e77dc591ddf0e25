// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "exprvar.hpp"
#include "qxexport.hpp"

#include <boost/shared_ptr.hpp>
#include <iosfwd>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

template <class T, int N>
class Array;
class ExprImpl;

namespace qxutil {
class RunInfo;
}

/// A variable and the order of a derivative of it: 0 the variable itself.
using ExprVarOrder = std::pair<boost::shared_ptr<ExprVar>, int>;

/// Orders by name, then by order, so that results do not depend on addresses; equal names of two stores by object.
struct QX_API ExprVarOrderLess
{
    bool operator()(const ExprVarOrder& a, const ExprVarOrder& b) const;
};

using ExprVarOccurrences = std::set<ExprVarOrder, ExprVarOrderLess>;
using ExprVarMap = std::map<ExprVarOrder, boost::shared_ptr<ExprVar>, ExprVarOrderLess>;

/// The handle through which everything outside this subsystem uses symbolic expressions.
///
/// Usual order of calls: construct, `scan`, `simp`, `diff`, `print`. `getVarOccurrences`, `replaceVars` and `solveFor`
/// expect a simplified tree.
///
/// Ownership: copying is cheap and shares the nodes until one of the copies is rewritten; the other one does not see that.
/// Threads: a store and all trees on it belong to one thread at a time.
/// Fails: see ExprImpl, to which all operations forward; the tree is then as it was, and so are texts and lists of the
/// caller. std::bad_alloc passes through.
class QX_API ExprTree
{
public:
    /// Pairs of (function text, derivative text) for ExprImpl::FuncRules::addDiffRule, both prefix texts.
    using RulePairs = std::vector<std::pair<std::string, std::string>>;

    /// The constant 0 on a new store.
    ExprTree();
    explicit ExprTree(const RulePairs& rules);
    ExprTree(const boost::shared_ptr<ExprVarStore>& store, const RulePairs& rules);
    ExprTree(const ExprTree& other);
    ExprTree& operator=(const ExprTree& other);
    ~ExprTree();

    /// Reads what a user writes (infix). A failure leaves the tree as it was.
    void scan(const std::string& text);
    /// Reads prefix text.
    void scanInfix(const std::string& text);
    void print(std::string& text) const;

    /// Optional info is asked whether to stop.
    void simp(bool evalFuncs, const qxutil::RunInfo* info = nullptr);
    /// Substitutes names by definitions (prefix texts) and simplifies.
    void simp(const std::vector<std::string>& names, const std::vector<std::string>& exprs);
    /// Derivative by the variable of that name, simplified.
    void diff(const std::string& name, const qxutil::RunInfo* info = nullptr);
    /// This tree becomes a/b or a-b on the two roots, which are shared.
    void divide(const ExprTree& a, const ExprTree& b);
    void minus(const ExprTree& a, const ExprTree& b);
    /// True, and the value, if the root is a Constant.
    bool toReal(double& value) const;
    /// Solves tree = 0 for one variable if it is linear in it in the first place where it occurs; see ExprImpl::solveFor.
    bool solveFor(const boost::shared_ptr<ExprVar>& var, ExprTree& out) const;

    /// Reads text and appends the name of each variable to names, with repeats, depth first; units do not count.
    void getVars(const std::string& text, std::vector<std::string>& names);
    /// Reads text, renames variables and functions (later pairs override earlier ones) and writes text back. All
    /// renamings happen at once: a swap of two names swaps them.
    void rename(std::string& text, const std::vector<std::string>& oldVars, const std::vector<std::string>& newVars,
                const std::vector<std::string>& oldFuncs, const std::vector<std::string>& newFuncs);
    /// Replaces variables and their time derivatives: map goes from (variable, order) to a variable.
    void replaceVars(const ExprVarMap& map, const std::string& timeName);
    /// Reads text, appends each argument of each outermost function call to oldArgs as text, and puts string literals in
    /// their place: the next of names, or '' if names is empty. Raises "Internal_error_symbolic_processing" when a
    /// further name is needed.
    void replaceArgs(std::string& text, const std::vector<std::string>& names, std::vector<std::string>& oldArgs);
    /// Inserts the unknowns (variables of type 3 and 4) with the order of their derivatives.
    void getVarOccurrences(ExprVarOccurrences& set) const;
    /// Combines index tables: + is or, * is and, - is "left and not right", each element 0 or 1. values[i] belongs to
    /// names[i]. Raises "Unknown_variable_name" and "Unimplemented_operator", both with "Name", and
    /// "Internal_error_symbolic_processing" for tables of different shape.
    void boolEval(const std::vector<std::string>& names, const std::vector<Array<int, 2>>& values,
                  Array<int, 2>& result) const;
    /// Turns Sum and Term nodes back into unary and binary operations.
    void makeBinary();

    const boost::shared_ptr<ExprImpl>& getImpl() const { return impl_; }
    const boost::shared_ptr<ExprVarStore>& getStore() const { return store_; }

private:
    boost::shared_ptr<ExprVarStore> store_;
    boost::shared_ptr<ExprImpl> impl_;
};

QX_API std::ostream& operator<<(std::ostream& stream, const ExprTree& tree);
