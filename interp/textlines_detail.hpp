// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// Lines of a table file, parted into numbers.

#include <cstddef>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

namespace qxinterp_detail {

/// Walks through a stream line by line and refuses with the place where it stands.
class TextLines
{
public:
    TextLines(std::istream& stream, const std::string& name) : stream_(stream), name_(name) {}

    /// The next line that is not empty; false at the end of the file.
    bool next();
    unsigned long number() const { return number_; }

    /// The words of a comment line, after its mark; empty if the line is none.
    bool isComment() const { return isComment_; }
    const std::vector<std::string>& commentWords() const { return commentWords_; }

    /// The fields of the line: parted by semicolons if it has one, or else by commas, or else by blanks.
    const std::vector<std::string_view>& fields() const { return fields_; }
    /// Field k as a number. Refuses what is none or not finite.
    double numberAt(std::size_t k) const;
    bool beginsWithNumber() const;

    [[noreturn]] void refuse(std::size_t column, const std::string& reason) const { refuse(number_, column, reason); }
    [[noreturn]] void refuse(unsigned long line, std::size_t column, const std::string& reason) const;

private:
    bool readLine();
    void split();

    std::istream& stream_;
    const std::string& name_;
    std::string text_;
    std::vector<std::string_view> fields_;
    std::vector<std::string> commentWords_;
    unsigned long number_ = 0;
    bool isComment_ = false;
    char separator_ = ' ';
};

} // namespace qxinterp_detail
