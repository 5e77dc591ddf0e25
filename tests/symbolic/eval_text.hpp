// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include <map>
#include <string>

/// A slow reader and evaluator of infix text, independent of the code under test: recursive descent over the characters.
namespace qxtest {

using Point = std::map<std::string, double>;

/// A value with the size of what cancelled on the way to it.
struct Wide
{
    double value;
    double condition; ///< amplification of relative rounding errors of the operands, estimated
    double scale() const;
};

/// Text with + - * / ^ (left associative), signs, comparisons, parentheses, calls of elementary functions of one or two
/// arguments, `if`. Throws std::runtime_error for anything else.
Wide evalWide(const std::string& text, const Point& at);
inline double evalText(const std::string& text, const Point& at) { return evalWide(text, at).value; }

} // namespace qxtest
