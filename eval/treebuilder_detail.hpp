// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "fwd.hpp"

#include <map>
#include <string>

namespace qxeval {

/// Names that stand for nodes.
using BoundNames = std::map<std::string, EvalNodePtr>;

/// Reads an expression text and makes its nodes; the root is returned. Iterative. An identifier is a variable node, or the
/// node that it is bound to.
/// Raises "Syntax_error_in_expression" with "Expression"; what the evaluator raises for functions it does not know.
EvalNodePtr buildNodes(const std::string& text, const VarEvaluatorPtr& evaluator, const BoundNames& bound = {});

} // namespace qxeval
