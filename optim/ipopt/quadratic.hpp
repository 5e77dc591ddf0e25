// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "optim/entrypoints_detail.hpp"
#include "optim/ipopt/program.hpp"

#include <vector>

/// A quadratic problem for IPOPT: c^T x + 1/2 x^T H x over A x in its bounds, with slacks for elastic bounds.
///
/// H is known by its products only. Up to 2000 columns it is built once from unit vectors, so that IPOPT has second
/// derivatives and the sign of H can be looked at; beyond, its effect is approximated.
class QuadraticProgram : public Program
{
public:
    struct Caller
    {
        OptimHessianFunction* function;
        char* cu;
        const int* lencu;
        int* iu;
        const int* leniu;
        double* ru;
        const int* lenru;
        HiddenLength cuLength;
    };
    struct Parts
    {
        int m, n, ncolH;
        double objectiveAdd;
        std::vector<double> c;             ///< n
        std::vector<double> A;             ///< by columns
        std::vector<int> rowOf, columnOf;  ///< of each entry, from 0
        std::vector<double> lower, upper;  ///< n + m
        std::vector<int> elastic;          ///< n + m: 1 the lower bound gives way, 2 the upper one, 3 both
        bool maximise;
        double infinity;
    };

    QuadraticProgram(Parts parts, const Caller& caller);

    /// Builds H where that is possible. False: the caller stopped.
    bool build();
    /// Whether H, as far as it was built, is positive (negative, when maximised) semidefinite but for rounding.
    bool isConvex() const;
    /// Elastic bounds give way from now on: f counts with weight `forF`, each unit of violation costs `weight`.
    void makeElastic(double forF, double weight);
    bool hasElasticBounds() const;
    void widenEqualities(double by);

    bool objective(const double* x, double& f) override;
    bool gradient(const double* x, double* df) override;
    bool constraints(const double* x, double* g) override;
    bool jacobian(const double* x, double* values) override;
    bool hessian(double objectiveFactor, double* values) override;
    bool proceed(double f, double violation) override;

    bool isStopped() const { return stopped_; }
    bool isUnbounded() const { return unbounded_; }
    /// The caller's objective, in his sign, and its gradient.
    bool value(const double* x, double& f, std::vector<double>& df);
    /// (x, A x).
    std::vector<double> withRows(const double* x) const;
    const Parts& parts() const { return parts_; }

private:
    bool multiply(const double* x, std::vector<double>& Hx);
    void addSlack(int row, double coefficient);
    double sign() const { return parts_.maximise ? -1.0 : 1.0; }

    Parts parts_;
    Caller caller_;
    std::vector<double> jacobianValue_, hessianValue_, Hx_;
    std::vector<double> slackCost_;
    double forF_ = 1.0;
    bool built_ = false, stopped_ = false, unbounded_ = false, first_ = true;
};
