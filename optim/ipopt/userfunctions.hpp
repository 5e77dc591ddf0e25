// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "optim/entrypoints_detail.hpp"

#include <vector>

/// The caller's functions F and the entries G of their Jacobian, at one point at a time, with what the caller leaves out
/// completed by differences.
///
/// A point is evaluated once: asking again for the same x costs nothing. Non-finite values count as undefined, since IPOPT
/// must never see one. After the caller has asked for a stop he is not called again.
class UserFunctions
{
public:
    enum class State { Defined, Undefined, Stopped };

    struct Caller
    {
        OptimUserFunction* function;
        int n, nF;
        char* cu;
        const int* lencu;
        int* iu;
        const int* leniu;
        double* ru;
        const int* lenru;
        HiddenLength cuLength;
    };

    /// iG, jG: pattern of the Jacobian, from 1. interval: relative step of differences, which stay within xl and xu.
    /// withDerivatives false: all of G comes from differences.
    UserFunctions(const Caller& caller, std::vector<int> iG, std::vector<int> jG, std::vector<double> xl,
                  std::vector<double> xu, double interval, bool withDerivatives);

    State at(const double* x);
    /// Of the last defined point.
    const std::vector<double>& point() const { return x_; }
    const std::vector<double>& F() const { return F_; }
    const std::vector<double>& G() const { return G_; }
    bool isStopped() const { return stopped_; }
    /// Whether some point was undefined since the last call of this.
    bool takeUndefined();

    /// Values only, at a point of the caller's own. Not kept.
    State valuesAt(const double* x, std::vector<double>& F);
    /// The first entry of G that central differences contradict, or -1. At the last defined point.
    int findWrongDerivative(double step);
    /// Tells the caller that the run is over.
    void finish(int status);

private:
    State call(const double* x, bool needG, std::vector<double>& F, std::vector<double>& G);
    State complete(const double* x, const std::vector<double>& F, std::vector<double>& G);
    void group(const std::vector<int>& missing);
    double stepFor(const double* x, int j, double interval) const;

    Caller caller_;
    std::vector<int> iG_, jG_;
    std::vector<double> xl_, xu_;
    double interval_;
    bool withDerivatives_;
    bool first_ = true, stopped_ = false, undefined_ = false;
    bool known_ = false;     ///< x_, F_, G_ belong together
    std::vector<double> x_, F_, G_, lastUndefined_;
    std::vector<double> newF_, newG_, shifted_, shiftedF_;
    std::vector<int> missing_;              ///< entries of G without a derivative
    std::vector<std::vector<int>> groups_;  ///< of these, such that columns of a group share no row
};
