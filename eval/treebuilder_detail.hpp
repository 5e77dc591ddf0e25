#pragma once

#include "fwd.hpp"

#include <string>

namespace qxeval {

/// Reads an expression text and makes its nodes; the root is returned. Iterative.
/// Raises "Syntax_error_in_expression" with "Expression"; what the evaluator raises for functions it does not know.
EvalNodePtr buildNodes(const std::string& text, const VarEvaluatorPtr& evaluator);

} // namespace qxeval
