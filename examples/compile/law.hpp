// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "exprcomp.hpp"
#include "formulas/formula.hpp"

#include <string>
#include <vector>

/// Formulas of named inputs, as text: what becomes a class.
struct LawText
{
    std::vector<std::string> inputs;
    std::vector<examples::Formula> definitions;
    std::vector<examples::Formula> outputs;
    std::vector<std::string> gradient;      ///< inputs by which each output is differentiated
    bool prefix = false;                    ///< texts are in prefix form
};

/// A formula that cannot be compiled. what() names it and shows it with a caret below the place, if there is one.
class LawError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// Feeds all formulas to the compiler, inputs in their order; gives the names of the outputs, each followed by those of its
/// derivatives, "d(q,x)". Formulas may use inputs, definitions and each other. Raises LawError.
std::vector<std::string> feed(const LawText& law, ExprComp& compiler);
