// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "exprvar.hpp"
#include "qxexception.hpp"
#include "qxexport.hpp"

#include <boost/shared_ptr.hpp>
#include <iosfwd>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

class ExprTree;

namespace qxutil {
class RunInfo;
}

/// A system of differential-algebraic equations F(t, z, z', z'', ...) = 0 held as text, and the reduction of its
/// structural index.
///
/// An unknown may occur with derivatives in time of any order. `reduceIndex` differentiates those equations whose highest
/// derivatives cannot all be solved for, until each equation can be matched to a highest derivative of its own, and puts
/// new unknowns, the dummy derivatives, in the place of as many derivatives as there are new equations. What comes out has
/// as many equations as unknowns and index one at most in structure: its highest derivatives can be matched to all
/// equations, and the dummies of each variable are its top orders, without a gap, so that the orders that are left are the
/// number of initial values. The values of the numbers in it may still make a structurally sound system singular: nothing
/// here looks at values.
///
/// Which derivatives become dummies is decided by order first and then by the order of `addVar`: of two derivatives of
/// the same order the one of the variable that was added first goes. Add first what is to be computed from the
/// constraints, last what is to be integrated. Where that choice would leave the system singular or with a gap, the
/// matching decides instead: of an equation differentiated c times, the c top orders of the variable that its last
/// derivative is matched to.
///
/// Usual order of calls: `addVar` and `addEq` in any order, `reduceIndex`, `simplify` if wanted, then reading. A call that
/// fails or is cancelled leaves variables and equations as they were.
///
/// Names that occur in equations but were not added are constant parameters; the time is known by its name.
/// A given function (second flag of `addVar`) has the time derivative 0, also where a constraint that holds it is
/// differentiated. If its derivatives matter, add it as an unknown that is not matched (third flag): its derivatives then
/// stay in the equations as derivatives, for the host to give. With x' = y and x = f: f given becomes x_dummy1 = 0, f
/// excluded x_dummy1 = f'.
/// Fails: qxbase::Exception with the source "dae" and what the reading and differentiation of expressions raise.
/// std::bad_alloc passes through; no identifier stands for it.
/// Threads: belongs to one thread. Cost: linear in the text of the equations, before and after, as long as the searches
/// for augmenting paths stay short; see dae/README.md.
/// Source: Pantelides, SIAM J. Sci. Stat. Comput. 9 (1988) 213-231; Mattsson and Soderlind, SIAM J. Sci. Comput. 14
/// (1993) 677-692.
class QX_API Dae
{
public:
    struct Var;
    struct Eq;
    class Matching;

    /// A variable and an order of differentiation: (index in getVars(), order of the derivative of that entry).
    using VarOrder = std::pair<int, int>;

    /// An empty system with a store of its own.
    explicit Dae(const std::string& timeName);
    ~Dae();
    Dae(const Dae&) = delete;
    Dae& operator=(const Dae&) = delete;

    /// Adds a variable and returns its index. The first of the three flags that is true decides what it is: a constant
    /// with a value, a function given from outside (its time derivative is taken as 0), an unknown that is never
    /// matched, whose derivatives stay. With none it is an unknown. A name added twice names the first entry.
    int addVar(const std::string& name, bool isConstant = false, bool isFunction = false, bool isExcluded = false,
               double value = 0.0);
    /// Adds the equation text = 0, given as prefix text (see ExprImpl::InfixParser); "(DIFF) x t" is x'. Raises what the
    /// reader raises; the system is then as it was.
    void addEq(const std::string& text);

    /// Reduces the index to one at most, in structure, and puts the equations in the order of the variables that they
    /// are matched to. Optional info: told about the progress, and asked whether to stop (qxbase::CancelException).
    ///
    /// Raises
    ///   "The DAE is structurally inconsistent." with "Variables", "Equations": their numbers differ;
    ///   "The DAE is locally over-determined with inconsistent right-hand sides.": a part of the system has more
    ///   equations than unknowns in them;
    ///   "Index_reduction_failed" with "Equation": its differentiation does not end; with "New_equations": there are not
    ///   as many derivatives that could be replaced in them.
    /// The first two also have "Unmatched_equations" and "Unmatched_variables" where there are any: texts and names,
    /// separated by "; ", ten at most. The second has "Overdetermined_equations" and "Overdetermined_variables" too: such a
    /// part, with one equation more than unknowns in it.
    void reduceIndex(qxutil::RunInfo* info = nullptr);
    /// The first part of reduceIndex: everything but the new order. May be called again on what it gave.
    void pantelides(qxutil::RunInfo* info = nullptr);

    /// Removes what need not be solved for, after the index has been reduced or without.
    ///
    /// All equations are brought to canonical form. An equation of two unknowns that says they are equal replaces one by
    /// the other (TypeReplaced); an equation that is linear in an unknown defines it, and the definition goes wherever
    /// the unknown stood (TypeEliminated), if this makes the system no larger: the definition holds one unknown at most,
    /// or the unknown stands in one other equation at most. Unknowns that occur with a derivative are not removed; their
    /// type becomes TypeFurther. An equation that has become 0 = 0 stays.
    /// Raises "The DAE is locally over-determined with inconsistent right-hand sides." with "Equation" if one has become
    /// c = 0 with a number c that is not 0.
    void simplify(qxutil::RunInfo* info = nullptr);

    // Steps of the reduction.

    /// Gives each variable's ExprVar the kind that goes with its type, and enters it in the index of variables.
    void syncVars();
    /// Fills the occurrences of all unknowns and equations anew, by the unknowns of any order, and matches the equations
    /// that are not matched yet, in order.
    void extendMatching(Matching& matching);
    /// Searches a path along which equation eq can be matched in addition to all that are, and changes the matching
    /// along it. Each equation tries its unmatched variables first, then the others; both in the order of its
    /// occurrences. Leaves marked what it has seen: after a failure, the equations that compete for the marked variables.
    bool augmentPath(Matching& matching, int eq) const;
    void clearOccurrences();

    // Reading. An index out of range raises "Internal_error_symbolic_processing" with "Index".

    /// The unknowns in a tree with the orders of their derivatives, by (index, order). Raises "Unknown_variable_name"
    /// with "Name" for an unknown of the store that was never added.
    void getVarOccurrences(const ExprTree& tree, std::vector<VarOrder>& pairs) const;
    /// The text of equation i.
    std::string getEq(int i) const;
    /// The name with one ' for each order.
    std::string getVarName(int i) const;
    /// The definition of an eliminated variable as text; raises "Internal_error_symbolic_processing" for any other. All
    /// variables in it are still there.
    std::string getVarElimExpr(int i) const;
    const std::vector<Var>& getVars() const { return vars_; }
    const std::vector<Eq>& getEqs() const { return eqs_; }
    const boost::shared_ptr<ExprVarStore>& getStore() const { return store_; }
    const std::string& getTimeName() const { return timeName_; }
    /// Index of the time among the variables; -1 if it was not added.
    int getTimeIndex() const { return timeIndex_; }

    /// The unknowns, one name a line, a blank line, the equations, one a line.
    void log(std::ostream& stream) const;
    /// Who occurs where and who is matched to whom, for diagnosis.
    void outputGraph(const Matching& matching, std::ostream& stream) const;

private:
    class Snapshot;
    class TextEquations;
    class DummyDerivatives;
    class Simplification;

    void reduce(qxutil::RunInfo* info);
    int checkRegular(const std::vector<std::vector<VarOrder>>& rows);
    qxbase::ExceptionArgs overDeterminedPart(Matching& matching) const;
    bool replaceDerivatives(const std::vector<VarOrder>& chosen, const std::vector<std::vector<VarOrder>>& pairs,
                            int nFreePairs, qxutil::RunInfo* info);
    void orderByVariables();
    [[noreturn]] void raiseUnmatched(int line, const std::string& id, Matching& matching,
                                     qxbase::ExceptionArgs args = {}) const;
    void syncVar(int i);
    int findVar(const ExprVar& var) const;

    std::string timeName_;
    boost::shared_ptr<ExprVar> timeVar_;
    int timeIndex_ = -1;
    boost::shared_ptr<ExprVarStore> store_;
    std::vector<Var> vars_;
    std::vector<Eq> eqs_;
    std::unordered_map<const ExprVar*, int> varIndex_;
};

/// A variable, or a derivative in time of one.
struct QX_API Dae::Var
{
    enum Type : int {
        TypeUnknown = 0,
        TypeFunction = 1,   ///< given from outside
        TypeConstant = 2,   ///< has a value
        TypeFurther = 3,    ///< an unknown like type 0: one that occurs with a derivative, as simplify found
        TypeEliminated = 4, ///< defined by an expression, by simplify
        TypeReplaced = 5,   ///< another variable stands for it, by simplify
        TypeExcluded = 6    ///< an unknown that is not to be matched
    };

    Var(const boost::shared_ptr<ExprVar>& exprVar, int derivOrder, int varType, double varValue);
    /// The derivative of n orders more, of the same type.
    Var(const Var& source, int n);

    /// An unknown in the sense of the algorithms.
    bool isUnknown() const { return type == TypeUnknown || type == TypeFurther; }
    /// The name with one ' for each order.
    std::string getName() const;

    boost::shared_ptr<ExprVar> var;
    int order = 0; ///< of the derivative that this entry stands for
    int type = TypeUnknown;
    double value = 0.0;
    int deriv = -1; ///< index of the entry of this one's time derivative
    std::vector<int> occurrences; ///< equations
    boost::shared_ptr<ExprTree> elimExpr; ///< definition of an eliminated variable
};

/// An equation expr = 0.
struct QX_API Dae::Eq
{
    explicit Eq(const boost::shared_ptr<ExprTree>& tree = boost::shared_ptr<ExprTree>()) : expr(tree) {}

    boost::shared_ptr<ExprTree> expr;
    int deriv = -1; ///< index of the equation that is this one's time derivative
    std::vector<int> occurrences; ///< variables
};

/// Which equation each variable is matched to, and the marks of a search. All tables grow on demand.
class QX_API Dae::Matching
{
public:
    /// Capacities to begin with.
    explicit Matching(int nVars = 0, int nEqs = 0);

    /// The equation matched to a variable; -1: none.
    int getVarMatch(int var);
    void setVarMatch(int var, int eq);
    /// Whether some variable is matched to the equation.
    bool isEqMatched(int eq) const;
    /// The variable matched to the equation; -1: none.
    int getEqMatch(int eq) const;
    void clearMatch();
    /// Number of matched variables. Cost: constant.
    int size() const { return size_; }

    bool isVarMarked(int var);
    bool isEqMarked(int eq);
    void markVar(int var);
    void markEq(int eq);
    /// Cost: the number of marks, not of bits.
    void removeAllMarks();
    /// In the order of marking.
    const std::vector<int>& getMarkedVars() const { return markedVars_; }
    const std::vector<int>& getMarkedEqs() const { return markedEqs_; }

    int getVarCapacity() const { return static_cast<int>(varMatch_.size()); }
    void ensureVarCapacity(int var);

private:
    std::vector<int> varMatch_;
    std::vector<int> eqMatch_;
    std::vector<bool> varMarks_;
    std::vector<bool> eqMarks_;
    std::vector<int> markedVars_;
    std::vector<int> markedEqs_;
    int size_ = 0;
};
