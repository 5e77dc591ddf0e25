// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace CLI {
class App;
}

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
/// CLI11 reads the line. What is added here: a word that begins with one "-" is no mistake, since formulas may begin with a
/// minus sign; and what a program says of a value is told with the option's name. "--name value" and "--name=value" are the
/// same; "--" ends the options. Every program has --help and --version.
class Options
{
public:
    using Take = std::function<void(const std::string&)>;

    Options(std::string program, const std::string& words, const std::string& purpose);
    ~Options();

    /// Several names of one option are parted by commas: "-o,--output".
    void flag(const std::string& name, const std::string& help, bool& target);
    /// Takes one value; take raises UsageError for one that it cannot use.
    void value(const std::string& name, const std::string& argument, const std::string& help, Take take);
    /// The same for an option that may be given again.
    void values(const std::string& name, const std::string& argument, const std::string& help, Take take);
    void text(const std::string& name, const std::string& argument, const std::string& help, std::string& target);

    /// Reads all; gives the words that are no options, in order. Raises UsageError with the option's name.
    std::vector<std::string> read(int argc, const char* const* argv);
    /// --help or --version was there: print help() and nothing else.
    bool helpWanted() const { return !help_.empty(); }
    const std::string& help() const { return help_; }
    const std::string& program() const { return program_; }

private:
    std::string program_;
    std::string help_;
    std::unique_ptr<CLI::App> app_;
};

/// A whole number in [least, most]; raises UsageError otherwise.
int wholeNumber(const std::string& text, int least, int most);
/// A number above 0, decimal point whatever the locale; raises UsageError otherwise.
double positiveNumber(const std::string& text);
/// The parts of a text between separators, blanks around them removed.
std::vector<std::string> split(const std::string& text, char separator);

} // namespace examples
