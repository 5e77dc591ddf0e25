// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include <stdexcept>
#include <string>

namespace examples {

/// A named expression as typed: "name=expression", or an expression alone, which is then its own name.
struct Formula
{
    std::string name;
    std::string text;

    /// "==" does not part a name from an expression.
    static Formula parse(const std::string& typed);
};

/// A formula has no value; what() tells the story over several lines, first the formula and the point.
class EvaluationError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

} // namespace examples
