// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "dae.hpp"

#include <cstddef>
#include <functional>
#include <vector>

namespace qxutil {
class RunInfo;
}

/// The structural half of the index reduction: who occurs where, who is matched to whom. Knows nothing of text.
namespace qxdae {

/// The variables (entries of order 0) in an equation with the orders of their derivatives.
using Row = std::vector<Dae::VarOrder>;

/// What the structure asks of the equations. Behind it stands the text of a Dae, or, in a test, plain tables.
class Equations
{
public:
    virtual ~Equations() = default;
    /// Sorted, without repeats.
    virtual void getOccurrences(int eq, Row& pairs) = 0;
    /// The time derivative of an equation; it gets the next free number.
    virtual Dae::Eq differentiate(int eq) = 0;
};

/// One search for an augmenting path from equation eq over the occurrences of eqs; see Dae::augmentPath. Iterative.
bool augmentPath(const std::vector<Dae::Eq>& eqs, Dae::Matching& matching, int eq);

/// Searches from each equation that is not matched yet, in order, with the outcome of augmentPath from each.
void augmentAll(const std::vector<Dae::Eq>& eqs, Dae::Matching& matching);

/// How many equations can be matched at all. Source: Hopcroft and Karp, SIAM J. Comput. 2 (1973) 225-231.
int countMatched(const std::vector<Dae::Eq>& eqs);

void clearOccurrences(std::vector<Dae::Var>& vars, std::vector<Dae::Eq>& eqs);

/// Number of unknowns, each counted once whatever derivatives of it there are.
int countUnknowns(const std::vector<Dae::Var>& vars);

/// Enters in each equation its unknowns, and the equation in each of them, whatever the orders of the derivatives.
/// rows[i]: what occurs in equation i, sorted.
void fillOccurrences(std::vector<Dae::Var>& vars, std::vector<Dae::Eq>& eqs, const std::vector<Row>& rows);

/// Differentiates equations until each of those there at the beginning has a derivative, or is itself, matched to the
/// highest derivative of an unknown.
///
/// For each equation in turn: if no augmenting path starts at it, the equations seen in the search outnumber the highest
/// derivatives in them by one. They are differentiated, and so are those variables, which keeps their matching; then the
/// derivative of the equation is tried.
///
/// Derivatives of variables get entries at the end of vars, linked by `deriv`; links that vars had before are not
/// trusted, but their entries are used again. occurrences are valid for the highest derivatives at the end.
class Pantelides
{
public:
    Pantelides(std::vector<Dae::Var>& vars, std::vector<Dae::Eq>& eqs, Equations& equations);

    /// The equation whose differentiation has no end, because it has been differentiated more often than there are
    /// unknowns, derivatives counted; -1 if all went well. Optional info is asked whether to stop. complete: it is known
    /// that all equations can be matched to highest derivatives at once, so that no search would fail.
    int run(qxutil::RunInfo* info, bool complete = false);
    /// Occurrences of each equation as last reported.
    const std::vector<Row>& getPairs() const { return pairs_; }
    /// For each equation differentiated c times, in order: the c top orders of the variable that its last derivative is
    /// matched to, highest first, as (any entry of the variable, order). Equations that are matched to nothing add none.
    /// Each variable keeps as many orders as the smallest offsets leave it, without a gap.
    Row getMatchedDerivatives(int nOriginal) const;

private:
    bool matchOrDifferentiate(int eq, qxutil::RunInfo* info);
    bool findShortestPath(int eq);
    void lookAtNewEquations();
    int derivativeOf(int var);
    int appendDerivative(int var);
    void dropInactive();
    void differentiateMarked(qxutil::RunInfo* info);
    bool isActive(int var) const;
    bool hasUnknown(int eq) const;

    std::vector<Dae::Var>& vars_;
    std::vector<Dae::Eq>& eqs_;
    Equations& equations_;
    Dae::Matching matching_;
    // Written with first derivatives only, the system has at most as many unknowns as there are entries of unknowns
    // before the first differentiation, and no equation of such a system is differentiated more often than that.
    std::ptrdiff_t limit_ = 0;
    std::vector<int> oldDeriv_;      // links that vars had before
    std::vector<int> justDifferentiated_;
    std::vector<int> reachedFrom_;   // the equation from which a search came to each variable
    std::vector<Row> pairs_;
    Row found_;
};

/// As many derivatives as there are equations from nOriginal on, fewer if there are no more. In passes, one at most for each
/// of these equations in each pass: its derivative of the highest order that is not chosen yet, among equals the one of
/// the variable that was added first. pairs[i]: what occurs in equation i.
Row chooseHighestOrders(const std::vector<Dae::Var>& vars,
                                               const std::vector<Row>& pairs, int nOriginal);

/// Whether the chosen derivatives of each unknown are its highest ones, without a gap.
bool areTopOrders(const Row& chosen, const std::vector<Row>& pairs,
                  const std::function<bool(int)>& isUnknown);

/// How many equations can be matched to the highest derivatives of unknowns.
int countHighestMatched(const std::vector<Row>& pairs, const std::function<bool(int)>& isUnknown);

} // namespace qxdae
