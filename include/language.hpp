// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "qxexport.hpp"

#include <string>
#include <vector>

/// What the expression language knows, for references and editors: read from the same tables as the engine and its tests.
namespace qx {

/// A function that formulas may call.
struct FunctionInfo
{
    std::string name;
    std::string arguments;  ///< names parted by ", "
    std::string formula;    ///< in the language itself where it can say it, otherwise in words
    std::string domain;     ///< where a real argument has a real value, and what is elsewhere
    std::string derivative; ///< by each argument in turn, parted by "; ", as the function's rule makes it; empty for "d" and others
                            ///< that look at formulas
    std::string accuracy;   ///< bound in units in the last place and the range of its test; empty where none was measured
};

/// All functions that formulas may call, by name.
QX_API std::vector<FunctionInfo> languageFunctions();

/// A sign of the language with its place among the others.
struct OperatorInfo
{
    std::string sign;
    int strength;        ///< 1 binds weakest; signs of equal strength group from the left
    std::string meaning;
    std::string example;
    std::string reads;   ///< the example with all its parentheses
};

/// All operators, from the weakest to the strongest.
QX_API std::vector<OperatorInfo> languageOperators();

} // namespace qx
