// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "graph.hpp"
#include "problem.hpp"
#include "values.hpp"

#include <memory>
#include <vector>

namespace examples {

/// One function of the problem: the objective or a constraint.
struct Row
{
    std::string text;
    double low = -kUnbounded, high = kUnbounded;
    bool isLinear = false;
    double constant = 0.0; ///< of a linear row: its value is constant + A x
};

/// Entry of a Jacobian: row 0 is the objective.
struct Entry
{
    int row, column;
    double value;
};

/// A problem made ready for an optimizer: which derivatives are constant, and all others as one list of expressions that is
/// evaluated together with the functions.
class Model
{
public:
    /// Raises qxbase::Exception for formulas that cannot be read or differentiated.
    explicit Model(const Problem& problem);

    const Problem& problem() const { return problem_; }
    int n() const { return static_cast<int>(problem_.variables.size()); }
    const std::vector<Row>& rows() const { return rows_; }
    const std::vector<Entry>& linear() const { return linear_; }
    const std::vector<Entry>& nonlinear() const { return nonlinear_; } ///< values are of no meaning
    /// A quadratic or linear objective with linear constraints.
    bool isQuadratic() const { return quadratic_; }
    /// Its second derivatives, both triangles.
    const std::vector<Entry>& hessian() const { return hessian_; }

    /// All functions without their linear entries (F, one each) and the nonlinear entries (G). False where undefined.
    bool evaluate(const double* x, double* F, double* G) const;
    /// All functions as they were typed.
    bool total(const double* x, std::vector<double>& F) const;
    /// Largest violation of a constraint by these values.
    double violation(const std::vector<double>& F) const;
    /// The full gradient of one row at x, dense.
    bool gradientOf(int row, const double* x, std::vector<double>& g) const;
    std::vector<double> start() const;

private:
    void addRow(const EvalNodePtr& node, Row row);
    EvalNodePtr nodeOf(const Constraint& constraint, Row& row) const;
    void findHessian(const EvalNodePtr& objective);

    Problem problem_;
    Graph graph_;
    std::vector<Row> rows_;
    std::vector<Entry> linear_, nonlinear_, hessian_;
    std::vector<EvalNodePtr> expressions_; ///< of the nonlinear rows, then of the nonlinear entries
    std::vector<int> nonlinearRows_;
    bool quadratic_ = false;
    std::unique_ptr<Values> values_;
    mutable std::vector<double> out_;
};

} // namespace examples
