// SPDX-License-Identifier: LicenseRef-qxkernel
// The matching of variables to equations and the marks of one search.

#include "dae.hpp"

namespace {

void mark(std::vector<bool>& marks, std::vector<int>& marked, int i)
{
    const auto at = static_cast<std::size_t>(i);
    if (at >= marks.size())
        marks.resize(at + 1, false);
    if (marks[at])
        return;
    marked.push_back(i);
    marks[at] = true;
}

bool isMarked(std::vector<bool>& marks, int i)
{
    const auto at = static_cast<std::size_t>(i);
    if (at >= marks.size())
        marks.resize(at + 1, false);
    return marks[at];
}

// What a search marks is mostly a small part of all: the list of the marks makes clearing as cheap as setting.
void unmark(std::vector<bool>& marks, std::vector<int>& marked)
{
    for (const int i : marked)
        marks[static_cast<std::size_t>(i)] = false;
    marked.clear();
}

} // namespace

Dae::Matching::Matching(int nVars, int nEqs)
    : varMatch_(static_cast<std::size_t>(nVars), -1), eqMatch_(static_cast<std::size_t>(nEqs), -1),
      varMarks_(static_cast<std::size_t>(nVars), false), eqMarks_(static_cast<std::size_t>(nEqs), false)
{
}

void Dae::Matching::ensureVarCapacity(int var)
{
    const std::size_t n = static_cast<std::size_t>(var) + 1;
    if (varMatch_.size() < n) {
        varMarks_.resize(n, false);
        varMatch_.resize(n, -1);
    }
}

int Dae::Matching::getVarMatch(int var)
{
    ensureVarCapacity(var);
    return varMatch_[static_cast<std::size_t>(var)];
}

void Dae::Matching::setVarMatch(int var, int eq)
{
    ensureVarCapacity(var);
    if (eq >= static_cast<int>(eqMatch_.size()))
        eqMatch_.resize(static_cast<std::size_t>(eq) + 1, -1);
    int& match = varMatch_[static_cast<std::size_t>(var)];
    size_ += (eq >= 0) - (match >= 0);
    // Along a path an equation gets its new variable before the old one leaves it.
    if (match >= 0 && eqMatch_[static_cast<std::size_t>(match)] == var)
        eqMatch_[static_cast<std::size_t>(match)] = -1;
    match = eq;
    if (eq >= 0)
        eqMatch_[static_cast<std::size_t>(eq)] = var;
}

int Dae::Matching::getEqMatch(int eq) const
{
    return eq < static_cast<int>(eqMatch_.size()) ? eqMatch_[static_cast<std::size_t>(eq)] : -1;
}

bool Dae::Matching::isEqMatched(int eq) const
{
    return getEqMatch(eq) >= 0;
}

void Dae::Matching::clearMatch()
{
    varMatch_.assign(varMatch_.size(), -1);
    eqMatch_.assign(eqMatch_.size(), -1);
    size_ = 0;
}

bool Dae::Matching::isVarMarked(int var)
{
    return isMarked(varMarks_, var);
}

bool Dae::Matching::isEqMarked(int eq)
{
    return isMarked(eqMarks_, eq);
}

void Dae::Matching::markVar(int var)
{
    mark(varMarks_, markedVars_, var);
}

void Dae::Matching::markEq(int eq)
{
    mark(eqMarks_, markedEqs_, eq);
}

void Dae::Matching::removeAllMarks()
{
    unmark(varMarks_, markedVars_);
    unmark(eqMarks_, markedEqs_);
}
