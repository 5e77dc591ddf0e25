// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include <optional>
#include <span>
#include <string>
#include <utility>

/// The options of the optimizer: the one table behind registration, sending, the documentation and the drop-in library.
namespace qxoptim {

/// How an option travels: a word with an integer, a word with a number, or in a way of its own.
enum class Kind { Integer = 0, Real = 1, Own = 2 };

/// Which class of problem knows the option. Each: both, under different words.
enum class Home { Common, Quadratic, Nonlinear, Each };

/// What a property may be. Index: one of the choices, kept as its place in the list.
enum class RuleType { Integer, Real, OpenReal, AnyText, Choice, Index };

/// Value and description, for dialogs.
using Choice = std::pair<const char*, const char*>;

struct Option
{
    const char* property;
    Kind kind;
    Home home;
    const char* word;          ///< the option word of quadratic problems, or of both
    const char* nonlinearWord; ///< the option word of nonlinear problems
    RuleType rule;
    std::optional<double> fallback; ///< default of a number
    double low, high;               ///< range of a number
    const char* fallbackText;       ///< default of a text, or null
    std::span<const Choice> choices;
};

/// A value of an option of Kind::Own and the line that stands for it.
struct OptionLine
{
    const char* property;
    const char* value;
    const char* line;
};

/// All properties, in the order of their registration.
std::span<const Option> optionTable();
std::span<const OptionLine> optionLines();

const Option* findOption(const std::string& property);

} // namespace qxoptim
