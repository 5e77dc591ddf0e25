// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "array.hpp"
#include "optimstate.hpp"
#include "prop.hpp"
#include "qxexport.hpp"
#include "sparse.hpp"

#include <boost/shared_ptr.hpp>

#include <string>

/// The quadratic part of a quadratic program, implemented by the host.
class QX_API OptimQPCallback
{
public:
    virtual ~OptimQPCallback();
    /// Hx = H x over the first ncolH variables. status and failures as for OptimNPCallback::eval.
    virtual void hessMult(int& status, int ncolH, const double* x, double* Hx) = 0;
    /// Asked before each product; true ends the run with a qxbase::CancelException.
    virtual bool isCancelled() { return false; }
};

/// Driver of the optimizer for linear and quadratic programs:
///
///     minimise (maximise)  c^T x + 1/2 x^T H x     with   bl <= (x, A x) <= bu
///
/// H acts on the first ncolH variables and is positive semidefinite (negative when maximised). Bounds may be elastic: they
/// may then be violated at a price, the properties "elastic", "elasticobj" and "elasticw".
///
/// Failures, from "optimqp", in the order of the checks: "Internal_error_optim" (no library, no callback, a state of the
/// other class); "Symbol_not_found_in_library"; "The_number_of_optimization_variables_must_be_greater_than_0";
/// "Internal_error_optim" for a complex or symmetric A; "The_number_of_initial_values_does_not_match_size_of_constraint_matrix" (x, and the
/// columns of A), "The_number_of_lower_bounds_does_not_match_size_of_constraint_matrix",
/// "The_number_of_upper_bounds_does_not_match_size_of_constraint_matrix",
/// "Size_of_elastic_vector_does_not_match_size_of_constraint_matrix",
/// "Size_of_state_vector_does_not_match_size_of_constraint_matrix",
/// "The_number_of_initial_values_is_not_equal_to_the_number_of_lambda_values" (rc); "Internal_error_optim" (ncolH, cObj);
/// "Out_of_memory_in_optimization". A run that has begun: as for OptimNP, with "Out_of_memory_in_optimization",
/// "Unknown_error_occurred_during_optimization" for what the callback raised that is no qxbase::Exception, and
/// "Internal_error_optim" for an exit code without a text.
///
/// Threads: as for OptimNP.
class QX_API OptimQP
{
public:
    using Callback = boost::shared_ptr<OptimQPCallback>;
    using StatePtr = boost::shared_ptr<OptimState>;
    using Ints = Array<int, 1>;
    using Doubles = Array<double, 1>;

    /// Solves. callback and state are lent.
    ///
    /// In:      n variables; A (m, n) real, stored by columns or by rows, entries of the same place are summed, m may be 0;
    ///          ncolH, 0 to n; cObj (n) or empty; bounds bl, bu and eType over variables, then rows (n + m): 0 not elastic,
    ///          1 the lower bound, 2 the upper one, 3 both. coldStart false starts from x and hs
    /// In, out: x, the variables and A x (n + m); hs their states
    /// Out:     rc reduced costs, those of the rows being the multipliers (n + m); inform the exit code; nInf, sInf number
    ///          and sum of infeasibilities; iterations; objective; message. Written whenever the optimizer has returned
    ///
    /// prop is not checked here: see OptimState::checkQP.
    static void solve(const Callback& callback, const StatePtr& state, const qxbase::Prop& prop, int n, bool coldStart,
                      const Sparse& A, int ncolH, const Doubles& cObj, Doubles& x, const Doubles& bl, const Doubles& bu,
                      const Ints& eType, Ints& hs, Doubles& rc, int& inform, int& nInf, double& sInf, int& iterations,
                      double& objective, std::string& message);
};
