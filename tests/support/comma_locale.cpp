// SPDX-License-Identifier: LicenseRef-qxkernel
#include "support/comma_locale.hpp"

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include <unistd.h>

namespace qxtest {

namespace {

namespace fs = std::filesystem;

struct CommaPunct : std::numpunct<char>
{
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
};

/// Compiles a locale into a fresh directory, takes its numeric part into force and removes the directory.
void useCommaInC()
{
    const fs::path directory = fs::temp_directory_path() / ("qx-locale-" + std::to_string(getpid()));
    fs::create_directories(directory);
    std::ofstream(directory / "source") << "comment_char %\nescape_char /\nLC_NUMERIC\ndecimal_point \",\"\n"
                                           "thousands_sep \".\"\ngrouping 3\nEND LC_NUMERIC\n";
    // -c: go on without the other categories, which makes localedef return 1
    const std::string command = "localedef -c -i '" + (directory / "source").string() + "' '" +
                                (directory / "comma").string() + "' >/dev/null 2>&1";
    (void)!std::system(command.c_str());
    setenv("LOCPATH", directory.c_str(), 1);
    std::setlocale(LC_NUMERIC, "comma");
    unsetenv("LOCPATH");
    fs::remove_all(directory);
}

} // namespace

CommaLocale::CommaLocale() : former_(std::locale::global(std::locale(std::locale::classic(), new CommaPunct)))
{
    useCommaInC();
}

CommaLocale::~CommaLocale()
{
    std::setlocale(LC_NUMERIC, "C");
    std::locale::global(former_);
}

bool CommaLocale::isInForce()
{
    char text[8];
    std::snprintf(text, sizeof text, "%.1f", 0.5);
    std::ostringstream stream;
    stream << 0.5;
    return std::string(text) == "0,5" && stream.str() == "0,5";
}

} // namespace qxtest
