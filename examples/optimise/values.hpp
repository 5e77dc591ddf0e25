// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "graph.hpp"

#include <memory>

namespace examples {

/// The values of expressions at one point after another.
class Values
{
public:
    virtual ~Values() = default;
    /// out: one number for each expression. False where one of them has no finite real value.
    virtual bool at(const double* x, double* out) = 0;
};

/// The compiler's list of definitions where real arithmetic suffices, the evaluation of trees otherwise.
/// The graph is lent and must outlive the result.
std::unique_ptr<Values> makeValues(const Graph& graph, const std::vector<EvalNodePtr>& expressions);

/// The values of expressions without variables. Raises qxbase::Exception where one has none.
std::vector<double> constantValues(const Graph& graph, const std::vector<EvalNodePtr>& expressions);
inline double constantValue(const Graph& graph, const EvalNodePtr& expression)
{
    return constantValues(graph, {expression}).front();
}

} // namespace examples
