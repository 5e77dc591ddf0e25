// SPDX-License-Identifier: LicenseRef-qxkernel
#include "options.hpp"

#include <algorithm>
#include <charconv>
#include <utility>

namespace examples {

Options::Options(std::string program, std::string words, std::string purpose)
    : program_(std::move(program)), words_(std::move(words)), purpose_(std::move(purpose))
{
    flag("--help", "show this text", helpWanted_);
    flag("--version", "show the version", versionWanted_);
}

void Options::flag(const std::string& name, const std::string& help, bool& target)
{
    options_.push_back({name, "", help, [&target](const std::string&) { target = true; }});
}

void Options::value(const std::string& name, const std::string& argument, const std::string& help,
                    std::function<void(const std::string&)> take)
{
    options_.push_back({name, argument, help, std::move(take)});
}

void Options::text(const std::string& name, const std::string& argument, const std::string& help, std::string& target)
{
    value(name, argument, help, [&target](const std::string& v) { target = v; });
}

const Options::Option& Options::find(const std::string& name) const
{
    const auto at = std::find_if(options_.begin(), options_.end(), [&](const Option& o) { return o.name == name; });
    if (at == options_.end())
        throw UsageError("unknown option " + name + ", see " + program_ + " --help");
    return *at;
}

std::vector<std::string> Options::read(int argc, const char* const* argv)
{
    std::vector<std::string> words;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (word == "--") {
            words.insert(words.end(), argv + i + 1, argv + argc);
            break;
        }
        if (word.rfind("--", 0) != 0) {
            words.push_back(word);
            continue;
        }
        const std::size_t equal = word.find('=');
        const Option& option = find(word.substr(0, equal));
        std::string argument;
        if (equal != std::string::npos)
            argument = word.substr(equal + 1);
        else if (!option.argument.empty()) {
            if (i + 1 == argc)
                throw UsageError(option.name + " needs " + option.argument);
            argument = argv[++i];
        }
        if (option.argument.empty() && equal != std::string::npos)
            throw UsageError(option.name + " takes no value");
        try {
            option.take(argument);
        } catch (const UsageError& e) {
            throw UsageError(option.name + ": " + e.what());
        }
    }
    return words;
}

std::string Options::help() const
{
    if (versionWanted_)
        return program_ + " of qxkernel " QX_EXAMPLES_VERSION "\n";
    std::size_t width = 0;
    for (const Option& o : options_)
        width = std::max(width, o.name.size() + 1 + o.argument.size());
    std::string text = "usage: " + program_ + " " + words_ + " [options]\n" + purpose_ + "\n\n";
    for (const Option& o : options_) {
        std::string left = o.name + " " + o.argument;
        left.resize(width + 2, ' ');
        text += "  " + left + o.help + "\n";
    }
    return text;
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
