// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "array.hpp"
#include "optimstate.hpp"
#include "prop.hpp"
#include "qxexport.hpp"

#include <boost/shared_ptr.hpp>

#include <string>

/// The functions of a nonlinear program, implemented by the host.
class QX_API OptimNPCallback
{
public:
    virtual ~OptimNPCallback();
    /// Functions F (nF) and the entries G (lenG) of their Jacobian at x (n), those that are wanted; F without the linear
    /// part, G in the order of (iGfun, jGvar). status is 1 in the first call of a run and 0 in the others; set it to -1
    /// where the functions are undefined (the step is shortened), to -2 or below to stop. Whatever is raised here stops
    /// the run and leaves the driver.
    virtual void eval(int& status, int n, const double* x, bool needF, int nF, double* F, bool needG, int lenG,
                      double* G) = 0;
    /// Asked before each evaluation; true ends the run with a qxbase::CancelException.
    virtual bool isCancelled() { return false; }
    /// Told before an evaluation and at the end that `count` iterations are over, when that is news: the point evaluated last
    /// is where the last of them ended. Only of an optimizer that counts them in its workspace while it runs, as the free one does.
    virtual void onIteration(int count);
};

/// Driver of the optimizer for nonlinear programs:
///
///     minimise (maximise) F_objRow(x)   where   F_i(x) = f_i(x) + sum over k of A_k x_jAvar(k), iAfun(k) = i
///     with  xlow <= x <= xupp,  Flow <= F(x) <= Fupp
///
/// f comes from the callback, the linear part as triplets; indices are 1-based. Bounds of magnitude "infbound" and above
/// are none.
///
/// Failures, from "optimnp" unless said otherwise, in the order of the checks: "Internal_error_optim" (no library, no
/// callback, a state of the other class); "Symbol_not_found_in_library"; for sizes
/// "The_number_of_optimization_variables_must_be_greater_than_0", "No_objective_given",
/// "The_number_of_initial_values_is_not_equal_to_the_number_of_constraints" (x, F),
/// "The_number_of_initial_values_is_not_equal_to_the_number_of_states" (xstate; Fstate, xmul, Fmul),
/// "The_number_of_upper_or_lower_bounds_is_not_equal_to_the_number_of_constraints", "Internal_error_optim" (triplets);
/// "Out of memory in optimization". A run that has begun: what the callback raised, or "Out of memory in optimization" and
/// "Unknown exception in optimization" for what is no qxbase::Exception; qxbase::CancelException; the text of the exit
/// code as identifier, always for failures and with the property "stop" on for every early end;
/// "Unknown_error_occurred_during_optimization" ("Error code:") for a code without a text.
///
/// The state and its options live on; its print file is closed. Threads: one optimization at a time in a process; the
/// callback runs on the calling thread. BLAS works with one thread meanwhile, so that the same problem gives the same bits.
/// Source of the conventions: Gill, Murray, Saunders, SNOPT: An SQP algorithm for large-scale constrained optimization,
/// SIAM Review 47 (2005) 99-131.
class QX_API OptimNP
{
public:
    using Callback = boost::shared_ptr<OptimNPCallback>;
    using StatePtr = boost::shared_ptr<OptimState>;
    using Ints = Array<int, 1>;
    using Doubles = Array<double, 1>;

    /// Solves. callback and state are lent.
    ///
    /// In:      nF functions, n variables; iAfun, jAvar, A the linear part; iGfun, jGvar the pattern of f's Jacobian; bounds;
    ///          objRow the row of the objective; coldStart false starts from x, xstate, Fstate and the multipliers
    /// In, out: x (n); with a warm start xmul, xstate (n), F, Fmul, Fstate (nF), which must have these lengths always
    /// Out:     inform the exit code; nInf, sInf number and sum of infeasibilities; iterations, majors; message. They are
    ///          written whenever the optimizer has returned, also when something is raised then
    ///
    /// prop is not checked here: call OptimState::checkNP first, which also supplies the defaults; what it does not hold
    /// is left to the optimizer. An exit for want of storage is answered by longer workspaces, up to five attempts.
    static void solve(const Callback& callback, const StatePtr& state, const qxbase::Prop& prop, int nF, int n,
                      const Ints& iAfun, const Ints& jAvar, const Doubles& A, const Ints& iGfun, const Ints& jGvar,
                      Doubles& x, const Doubles& xlow, const Doubles& xupp, Doubles& xmul, Ints& xstate, Doubles& F,
                      const Doubles& Flow, const Doubles& Fupp, Doubles& Fmul, Ints& Fstate, int objRow, int& inform,
                      int& nInf, double& sInf, int& iterations, int& majors, std::string& message,
                      bool coldStart = true);

    /// Finds the structure of the Jacobian by evaluations of f near x: constant entries as triplets with values, the others
    /// as a pattern, in the form that solve takes. Memory: 40 bytes for each of nF n possible entries, at most 10^8.
    /// On exit codes other than 102 it sets inform and message and raises
    /// "Unknown_error_occurred_when_determining_sparsity_pattern" ("Message").
    static void pattern(const Callback& callback, const StatePtr& state, const qxbase::Prop& prop, int nF, int n,
                        const Doubles& x, const Doubles& xlow, const Doubles& xupp, int objRow, Ints& iAfun, Ints& jAvar,
                        Doubles& A, Ints& iGfun, Ints& jGvar, int& inform, std::string& message);
};
