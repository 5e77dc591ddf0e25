// SPDX-License-Identifier: LicenseRef-qxkernel
#include "explain.hpp"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <string_view>

namespace examples {
namespace {

// The wording belongs to the program, the identifier to the library. {key} stands for an argument of the entry.
struct Wording
{
    const char* id;
    const char* text;
};

constexpr Wording kWordings[] = {
    {"funeval", "{fun}: has no value for this argument"},
    {"sqrt", "{fun}: the argument is not a number or below zero"},
    {"log", "{fun}: the argument is not a number or below zero"},
    {"nan", "{fun}: the argument is not a number"},
    {"erf", "{fun}: takes real arguments only"},
    {"impl", "{fun}: takes real arguments only"},
    {"pow", "power: has no value for this base and exponent"},
    {"div", "division by zero"},
    {"range", "{fun}: the argument is out of range"},
    {"trans", "{fun}: the width of the step must be real"},
    {"piecewise_cmplx", "{fun}: takes real arguments only"},
    {"piecewise_range", "{fun}: the argument is out of range"},
    {"interp_range", "{fun}: the argument lies outside its table"},
    {"interp_cmplx", "{fun}: takes real arguments only"},
    {"bessel_range", "{fun}: the argument is out of range"},
    {"bessel_cmplx", "{fun}: takes a real order"},
    {"vareval", "in the definition  {var} = {defexpr}"},
    {"diffvareval", "in the derivative of {var}"},
    {"expreval", "in the formula     {exprs}"},
    {"varcmplx", "{var} is complex"},
    {"circvar", "the definition of {var} leads back to itself: {Circle}"},
    {"Unknown_variable_name", "{Name} is neither a column nor a definition"},
    {"Unknown_function_name", "there is no function {Name}"},
    {"Wrong_number_of_function_arguments", "{Name} takes another number of arguments: {Expected}, not {Found}"},
    {"Complex_number_in_real_expression", "the value is complex: {Value} (--complex allows complex values)"},
    {"Syntax_error_in_expression", "this is no formula: {Expression}"},
    {"Strings_are_only_allowed_in_function_arguments", "a text between quotes can only be an argument of a function"},
    {"Can_only_diff_wrt_variables", "the second argument of d must be the name of a variable"},
    {"Internal_error_callback", "calls with texts as arguments need a Java virtual machine"},
    {"Unexpected_NaN", "the value is undefined"},
    {"Infinite_value", "the value is infinite: a division by zero, or a number too large"},
};

std::string filled(std::string text, const qxbase::ExceptionArgs& args)
{
    for (const auto& [key, value] : args) {
        const std::string place = "{" + key + "}";
        const std::size_t at = text.find(place);
        if (at != std::string::npos)
            text.replace(at, place.size(), value);
    }
    return text;
}

std::string plain(const std::string& id, const qxbase::ExceptionArgs& args)
{
    std::string text = id;
    for (const auto& [key, value] : args)
        text += " " + key + "=" + value;
    return text;
}

// Entries that say where.
constexpr const char* kPlaces[] = {"In_formula", "In_definition", "In_derivative", "Evaluation_failed_at_point"};

std::string valueOf(const qxbase::ExceptionArgs& args, const std::string& key)
{
    for (const auto& [k, value] : args)
        if (k == key)
            return value;
    return {};
}

// Below a formula that cannot be read: a caret where, and what could stand there. `indent` is the column of the formula.
std::string placeIn(const qxbase::ExceptionArgs& args, std::size_t indent)
{
    const std::string excerpt = valueOf(args, "Excerpt"); // the line of the formula, and below it a caret
    const std::size_t end = excerpt.find('\n');
    if (end == std::string::npos)
        return {};
    const std::string line = excerpt.substr(0, end), blanks = '\n' + std::string(indent, ' ');
    return (line == valueOf(args, "Expression") ? "" : blanks + line) + blanks + excerpt.substr(end + 1) + " expected " +
           valueOf(args, "Expected");
}

std::string lineOf(const std::string& id, const qxbase::ExceptionArgs& args)
{
    for (const Wording& w : kWordings) {
        if (id != w.id)
            continue;
        std::string line = filled(w.text, args);
        const std::string_view text(w.text);
        line += placeIn(args, 2 + text.find('{')); // 2: as explain() indents
        for (const auto& [key, value] : args)
            if (key == "Nearest")
                line += "; is " + value + " meant?";
        return line;
    }
    return plain(id, args);
}

} // namespace

std::string explain(const qxbase::Exception& failure)
{
    std::string story;
    for (std::size_t i = 0; i < failure.size(); ++i) {
        const std::string& id = failure.getId(i);
        if (std::none_of(std::begin(kPlaces), std::end(kPlaces), [&](const char* place) { return id == place; }))
            story += "\n  " + lineOf(id, failure.getArgs(i));
    }
    return story;
}

std::string argumentOf(const qxbase::Exception& failure, const std::string& id, const std::string& key)
{
    for (std::size_t i = failure.size(); i-- > 0;)
        if (failure.getId(i) == id)
            for (const auto& [k, value] : failure.getArgs(i))
                if (k == key)
                    return value;
    return {};
}

} // namespace examples
