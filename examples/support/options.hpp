// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace examples {

/// A command line that cannot be used; what() is one line for the user.
class UsageError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// The options of a program, declared once: the declarations read the command line and make the help text.
///
///     Options options("evaluate", "POINTS.csv FORMULA...", "Evaluates formulas at the points of a table.");
///     options.flag("--complex", "values may be complex", complex);
///     options.value("--threads", "N", "threads to use", [&](const std::string& v) { threads = wholeNumber(v, 1, 1024); });
///     const std::vector<std::string> words = options.read(argc, argv);
///
/// "--name value" and "--name=value" are the same; "--" ends the options. A word that begins with "-" and is no option is
/// refused only when it begins with "--": formulas may begin with a minus sign.
class Options
{
public:
    Options(std::string program, std::string words, std::string purpose);

    void flag(const std::string& name, const std::string& help, bool& target);
    void value(const std::string& name, const std::string& argument, const std::string& help,
               std::function<void(const std::string&)> take);
    void text(const std::string& name, const std::string& argument, const std::string& help, std::string& target);

    /// Reads all; gives the words that are no options, in order. Raises UsageError with the option's name.
    std::vector<std::string> read(int argc, const char* const* argv);
    /// --help or --version was there: print help() and nothing else.
    bool helpWanted() const { return helpWanted_ || versionWanted_; }
    std::string help() const;

private:
    struct Option
    {
        std::string name;
        std::string argument;           // empty: a flag
        std::string help;
        std::function<void(const std::string&)> take;
    };
    const Option& find(const std::string& name) const;

    std::string program_;
    std::string words_;
    std::string purpose_;
    std::vector<Option> options_;
    bool helpWanted_ = false;
    bool versionWanted_ = false;
};

/// A whole number in [least, most]; raises UsageError otherwise.
int wholeNumber(const std::string& text, int least, int most);
/// A number above 0, decimal point whatever the locale; raises UsageError otherwise.
double positiveNumber(const std::string& text);
/// The parts of a text between separators, blanks around them removed.
std::vector<std::string> split(const std::string& text, char separator);

} // namespace examples
