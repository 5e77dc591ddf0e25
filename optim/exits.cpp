// SPDX-License-Identifier: LicenseRef-qxkernel
#include "optim/exits_detail.hpp"

namespace qxoptim {

namespace {

/// Codes first .. last with the words of the nonlinear and of the quadratic driver; null: not an exit of that one.
struct Row
{
    int first, last;
    ExitState state;
    const char* nonlinear;
    const char* quadratic;
};

constexpr auto End = ExitState::End;
constexpr auto Stopped = ExitState::Stopped;
constexpr auto Failed = ExitState::Failed;

// The texts are an interface: keys and sentences, full stops and missing ones stay as they are.
constexpr Row kRows[] = {
    {0, 0, End, "Finished successfully.", "Finished successfully."},
    {1, 1, End, "Optimality conditions satisfied.", "Optimality conditions satisfied."},
    {2, 2, End, "Feasible point found.", "Feasible point found."},
    {3, 3, Stopped, "Requested_accuracy_could_not_be_achieved.", nullptr},
    {4, 4, End, "Weak_QP_minimizer.", "Weak QP minimizer."},
    {10, 10, Stopped, "The_problem_appears_to_be_infeasible.", "The problem appears to be infeasible."},
    {11, 11, Stopped, "Infeasible_linear_constraints.", "Infeasible linear constraints."},
    {12, 12, Stopped, "Infeasible_linear_equalities.", "Infeasible linear equalities."},
    {13, 13, Stopped, "Nonlinear_infeasibilities_minimized.", nullptr},
    {14, 14, Stopped, "Infeasibilities_minimized.", "Infeasibilities minimized."},
    {20, 20, Stopped, "The_problem_appears_to_be_unbounded.", "The problem appears to be unbounded."},
    {21, 21, Stopped, "Unbounded_objective.", "Unbounded objective."},
    {22, 22, Stopped, "Constraint_violation_limit_reached.", nullptr},
    {30, 30, Stopped, "Resource_limit_error.", "Resource limit error."},
    {31, 31, Stopped, "Iteration_limit_reached.", "Iteration limit reached."},
    {32, 32, Stopped, "Major_iteration_limit_reached.", nullptr},
    {33, 33, Stopped, "The_superbasics_limit_is_too_small.", "The superbasics limit is too small."},
    {40, 40, Stopped, "Terminated_after_numerical_difficulties.", "Terminated after numerical difficulties."},
    {41, 41, Stopped, "Current_point_cannot_be_improved.", nullptr},
    {42, 42, Stopped, "Singular_basis.", "Singular basis."},
    {43, 43, Stopped, "Cannot_satisfy_the_general_constraints.", "Cannot satisfy the general constraints."},
    {44, 44, Stopped, "Ill-conditioned_null-space_basis.", "Ill-conditioned null-space basis."},
    {50, 50, Failed, "Error_in_the_user-supplied_functions.", "Error in the user-supplied functions."},
    {51, 51, Failed, "Incorrect_objective_derivatives.", nullptr},
    {52, 52, Failed, "Incorrect_constraint_derivatives.", nullptr},
    {53, 53, Failed, nullptr, "The QP Hessian is indefinite."},
    {60, 60, Stopped, "Undefined_user-supplied_functions.", nullptr},
    {61, 61, Stopped, "Undefined_function_at_the_first_feasible_point.", nullptr},
    {62, 62, Stopped, "Undefined_function_at_the_initial_point.", nullptr},
    {63, 63, Stopped, "Unable_to_proceed_into_undefined_region.", nullptr},
    {70, 70, Stopped, "User_requested_termination.", "User requested termination."},
    {71, 72, Stopped, "Terminated_during_function_evaluation.", nullptr},
    {73, 73, Stopped, "Terminated_during_function_evaluation.", "Terminated during user callback."},
    {74, 74, Stopped, "Terminated_from_monitor_routine.", "Terminated from monitor routine."},
    {80, 84, Failed, "Insufficient_storage_allocated.", "Insufficient storage allocated."},
    {90, 90, Failed, "Input_arguments_out_of_range.", "Input arguments out of range."},
    {91, 91, Failed, "Invalid_input_argument.", "Invalid input argument."},
    {92, 92, Failed, "Basis_file_dimensions_do_not_match_this_problem.",
     "Basis file dimensions do not match this problem."},
    {140, 140, Failed, "System_error.", "System error"},
    {141, 141, Failed, "Wrong_number_of_basic_variables.", "Wrong number of basic variables."},
    {142, 142, Failed, "Error_in_basis_package.", "Error in basis package"},
};

} // namespace

Exit judgeExit(int code, bool np)
{
    for (const Row& row : kRows) {
        const char* text = np ? row.nonlinear : row.quadratic;
        if (code >= row.first && code <= row.last && text != nullptr)
            return {row.state, text};
    }
    return {Failed, {}};
}

} // namespace qxoptim
