// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include <cstdio>
#include <vector>

/// A program as IPOPT takes it: minimise f(x) with xl <= x <= xu, gl <= g(x) <= gu.
///
/// The functions return false where they are undefined or the run is to end; they raise nothing.
class Program
{
public:
    virtual ~Program() = default;

    virtual bool objective(const double* x, double& f) = 0;
    virtual bool gradient(const double* x, double* df) = 0;
    virtual bool constraints(const double* x, double* g) = 0;
    virtual bool jacobian(const double* x, double* values) = 0;
    /// Of objectiveFactor f + sum of lambda_i g_i, lower triangle; called only when exactHessian.
    virtual bool hessian(double objectiveFactor, double* values) = 0;

    /// One iteration is over. False ends the run.
    virtual bool proceed(double f, double violation) = 0;

    int n() const { return static_cast<int>(xl.size()); }
    int m() const { return static_cast<int>(gl.size()); }

    std::vector<double> xl, xu, gl, gu;
    std::vector<int> jacobianRow, jacobianColumn; ///< from 1; at least one entry
    bool exactHessian = false;
    std::vector<int> hessianRow, hessianColumn;   ///< from 1
    bool isQuadratic = false;                     ///< all derivatives of second order, and the Jacobian, are constant
};

struct Settings
{
    double tolerance = 1e-6;
    double feasibility = 1e-6;
    int iterations = 3000;
    int memory = 10;       ///< steps that the approximation of the Hessian remembers
    bool scale = true;
    bool warm = false;
    double infinity = 1e20;
    std::FILE* print = nullptr;
    int printEvery = 1;
    int* iterationsDone = nullptr; ///< where the count stands while the run goes on
};

/// Start and end of a run. lambda, zL, zU: multipliers of constraints and bounds, grad f + J^T lambda - zL + zU = 0.
struct Point
{
    std::vector<double> x, lambda, zL, zU;
};

struct Outcome
{
    int status;     ///< IPOPT's
    int iterations;
};

/// Runs IPOPT; without a file nothing is printed. point gives start and multipliers and takes the end.
Outcome runIpopt(Program& program, const Settings& settings, Point& point);
