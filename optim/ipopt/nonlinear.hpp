// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "optim/ipopt/program.hpp"
#include "optim/ipopt/userfunctions.hpp"

/// The functions of a nonlinear problem with their linear part, arranged as IPOPT takes them: the row of the objective
/// apart, the other rows as constraints.
class NonlinearProgram : public Program
{
public:
    struct Parts
    {
        int n, nF, objectiveRow; ///< from 1; 0: none
        double objectiveAdd;
        std::vector<int> iA, jA, iG, jG;
        std::vector<double> A, xl, xu, Fl, Fu;
        bool maximise;
    };

    NonlinearProgram(Parts parts, UserFunctions& functions);

    bool objective(const double* x, double& f) override;
    bool gradient(const double* x, double* df) override;
    bool constraints(const double* x, double* g) override;
    bool jacobian(const double* x, double* values) override;
    bool hessian(double objectiveFactor, double* values) override;
    bool proceed(double f, double violation) override;

    /// F with the linear part at the last defined point.
    const std::vector<double>& total() const { return total_; }
    /// The gradient of the objective, in the caller's sign, minus J^T times pi (over all rows but the objective's).
    std::vector<double> reducedGradient(const std::vector<double>& pi) const;

    /// The last iterate with all its values.
    const std::vector<double>& acceptedPoint() const { return acceptedX_; }
    const std::vector<double>& acceptedTotal() const { return acceptedF_; }
    /// Brings point and values to x; false where they cannot be had.
    bool moveTo(const double* x) { return update(x); }
    bool isUnbounded() const { return unbounded_; }
    bool isStuck() const { return stuck_; }
    /// No function has a nonlinear part, or none of the constraints.
    bool isLinear() const { return parts_.iG.empty(); }
    bool hasLinearConstraints() const;
    /// The constraint of row i of F, both from 0; -1 for the objective.
    int constraintOf(int row) const;
    void widenEqualities(double by);

private:
    bool update(const double* x);
    double sign() const { return parts_.maximise ? -1.0 : 1.0; }

    Parts parts_;
    UserFunctions& functions_;
    std::vector<double> total_, acceptedX_, acceptedF_;
    std::vector<std::size_t> constraintA_, constraintG_; ///< entries that belong to constraints
    bool unbounded_ = false, stuck_ = false;
    int undefinedInARow_ = 0;
    double bestF_, leastViolation_;
};
