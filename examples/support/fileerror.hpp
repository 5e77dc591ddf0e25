// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include <stdexcept>
#include <string>

namespace examples {

/// A file that cannot be used, as one line for the user: "points.csv:7: 5 fields, the header names 4 columns".
class FileError : public std::runtime_error
{
public:
    FileError(const std::string& file, const std::string& what) : std::runtime_error(file + ": " + what) {}
    FileError(const std::string& file, long line, const std::string& what)
        : std::runtime_error(file + ":" + std::to_string(line) + ": " + what)
    {
    }
};

/// Text of a damaged file as it may be shown: at most 40 bytes, nothing that a terminal would act on.
inline std::string shown(const std::string& text)
{
    std::string s;
    for (const char c : text.substr(0, 40))
        s += static_cast<unsigned char>(c) < 0x20 || c == 0x7f ? '?' : c;
    return "'" + s + (text.size() > 40 ? "...'" : "'");
}

} // namespace examples
