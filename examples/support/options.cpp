// SPDX-License-Identifier: LicenseRef-qxkernel
#include "options.hpp"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <charconv>
#include <sstream>
#include <utility>

namespace examples {
namespace {

/// The usage line names the words that are no options.
class WordsFirst : public CLI::Formatter
{
public:
    explicit WordsFirst(std::string words) : words_(std::move(words)) { column_width(28); }
    std::string make_usage(const CLI::App*, std::string name) const override
    {
        return "usage: " + name + (words_.empty() ? "" : " " + words_) + " [options]\n";
    }

private:
    std::string words_;
};

} // namespace

Options::Options(std::string program, const std::string& words, const std::string& purpose)
    : program_(std::move(program)), app_(std::make_unique<CLI::App>(purpose, program_))
{
    app_->formatter(std::make_shared<WordsFirst>(words));
    app_->set_help_flag("--help", "show this text");
    app_->set_version_flag("--version", program_ + " of qxkernel " QX_EXAMPLES_VERSION, "show the version");
    app_->allow_extras(); // judged in read()
}

Options::~Options() = default;

void Options::flag(const std::string& name, const std::string& help, bool& target)
{
    app_->add_flag(name, target, help)->disable_flag_override();
}

void Options::value(const std::string& name, const std::string& argument, const std::string& help, Take take)
{
    values(name, argument, help, std::move(take));
    app_->get_option(name.substr(0, name.find(',')))->expected(1);
}

void Options::values(const std::string& name, const std::string& argument, const std::string& help, Take take)
{
    const std::string shown = name.substr(name.find("--"));
    app_->add_option_function<std::vector<std::string>>(
            name,
            [take = std::move(take), shown](const std::vector<std::string>& all) {
                try {
                    for (const std::string& v : all)
                        take(v);
                } catch (const UsageError& e) {
                    throw UsageError(shown + ": " + e.what());
                }
            },
            help)
        ->type_name(argument)
        ->allow_extra_args(false);
}

void Options::text(const std::string& name, const std::string& argument, const std::string& help, std::string& target)
{
    value(name, argument, help, [&target](const std::string& v) { target = v; });
}

std::vector<std::string> Options::read(int argc, const char* const* argv)
{
    try {
        app_->parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        std::ostringstream text;
        if (e.get_exit_code() != static_cast<int>(CLI::ExitCodes::Success))
            throw UsageError(e.what());
        app_->exit(e, text, text);
        help_ = text.str();
        return {};
    }
    std::vector<std::string> words = app_->remaining();
    const auto mark = std::find(words.begin(), words.end(), "--");
    const auto unknown = std::find_if(words.begin(), mark, [](const std::string& w) { return w.rfind("--", 0) == 0; });
    if (unknown != mark)
        throw UsageError("unknown option " + unknown->substr(0, unknown->find('=')) + ", see " + program_ + " --help");
    if (mark != words.end())
        words.erase(mark);
    return words;
}

int wholeNumber(const std::string& text, int least, int most)
{
    int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value < least || value > most)
        throw UsageError("'" + text + "' is no whole number from " + std::to_string(least) + " to " +
                         std::to_string(most));
    return value;
}

double positiveNumber(const std::string& text)
{
    double value = 0.0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || !(value > 0.0) || value > 1e300)
        throw UsageError("'" + text + "' is no positive number");
    return value;
}

std::vector<std::string> split(const std::string& text, char separator)
{
    std::vector<std::string> parts;
    std::size_t start = 0;
    while (true) {
        const std::size_t end = std::min(text.find(separator, start), text.size());
        const std::string part = text.substr(start, end - start);
        const std::size_t first = part.find_first_not_of(' ');
        parts.push_back(first == std::string::npos ? "" : part.substr(first, part.find_last_not_of(' ') - first + 1));
        if (end == text.size())
            return parts;
        start = end + 1;
    }
}

} // namespace examples
