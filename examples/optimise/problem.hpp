// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include <limits>
#include <map>
#include <string>
#include <vector>

namespace examples {

constexpr double kUnbounded = std::numeric_limits<double>::infinity();

/// A variable as typed: "x", "x=1", "x=1 in [0,2]", "x in [0,inf]". Without a start: 0, or what is nearest in the bounds.
struct Variable
{
    std::string name;
    double start = 0.0;
    double low = -kUnbounded, high = kUnbounded;
};

/// A constraint as typed: "x^2+y^2<=2", "x+y=1", "1<=x*y<=4".
struct Constraint
{
    std::string text;
    std::string left, middle, right; ///< left <= middle <= right; an empty side is no bound
    bool isEquation = false;         ///< middle = right
};

/// An optimization as a user types it.
struct Problem
{
    std::string objective;
    bool maximise = false;
    std::vector<Variable> variables;
    std::vector<Constraint> constraints;
    std::map<std::string, std::string> definitions;
};

/// Reads "x=-1.2, y=1 in [0,2]". Raises UsageError.
std::vector<Variable> parseVariables(const std::string& typed);
/// Reads a constraint. Raises UsageError.
Constraint parseConstraint(const std::string& typed);

} // namespace examples
