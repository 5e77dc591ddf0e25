// SPDX-License-Identifier: LicenseRef-qxkernel
#include "interp/textlines_detail.hpp"

#include "qxexception.hpp"
#include "qxnumber.hpp"

#include <algorithm>
#include <cmath>
#include <istream>

namespace qxinterp_detail {

namespace {

constexpr const char* kBlanks = " \t\v\f";

std::string_view trimmed(std::string_view text)
{
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == text.npos)
        return {};
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

bool isCommentMark(char c) { return c == '%' || c == '#'; }
bool isBlank(char c) { return std::string_view(kBlanks).find(c) != std::string_view::npos; }

/// The line up to a comment mark at its start or after a blank.
std::string_view withoutComment(std::string_view text)
{
    for (std::size_t i = 0; i < text.size(); ++i)
        if (isCommentMark(text[i]) && (i == 0 || isBlank(text[i - 1])))
            return text.substr(0, i);
    return text;
}

/// Calls f with each word between blanks.
template <class F>
void forEachWord(std::string_view text, F f)
{
    while (!(text = trimmed(text)).empty()) {
        const std::size_t end = std::min(text.find_first_of(kBlanks), text.size());
        f(text.substr(0, end));
        text.remove_prefix(end);
    }
}

std::string shown(std::string_view field)
{
    constexpr std::size_t longest = 40;
    return "'" + std::string(field.substr(0, longest)) + (field.size() > longest ? "...'" : "'");
}

} // namespace

bool TextLines::readLine()
{
    try {
        return qxGetline(stream_, text_);
    } catch (const std::ios_base::failure&) { // a folder, a disk that fails
        refuse(number_ + 1, 0, "the file cannot be read");
    }
}

bool TextLines::next()
{
    while (readLine()) {
        if (++number_ == 1 && text_.starts_with("\xef\xbb\xbf"))
            text_.erase(0, 3);
        const std::string_view content = trimmed(text_);
        if (content.empty())
            continue;
        isComment_ = isCommentMark(content.front());
        fields_.clear();
        commentWords_.clear();
        if (isComment_)
            forEachWord(content.substr(1), [&](std::string_view word) { commentWords_.emplace_back(word); });
        else
            split();
        return true;
    }
    ++number_; // failures from here on stand behind the last line
    return false;
}

void TextLines::split()
{
    std::string_view text = trimmed(withoutComment(text_));
    separator_ = text.find(';') != text.npos ? ';' : text.find(',') != text.npos ? ',' : ' ';
    if (separator_ == ' ') {
        forEachWord(text, [&](std::string_view word) { fields_.push_back(word); });
        return;
    }
    for (;;) {
        const std::size_t end = std::min(text.find(separator_), text.size());
        fields_.push_back(trimmed(text.substr(0, end)));
        if (end == text.size())
            return;
        text.remove_prefix(end + 1);
    }
}

bool TextLines::beginsWithNumber() const
{
    if (fields_.empty() || fields_.front().empty())
        return false;
    const std::string_view first = fields_.front();
    double value = 0.0; // for nan and inf, which are refused as numbers and not taken for names
    return std::string_view("+-.0123456789").find(first.front()) != std::string_view::npos ||
           qxutil::scanDouble(first, value) == first.size();
}

double TextLines::numberAt(std::size_t k) const
{
    const std::string_view field = fields_[k];
    double value = 0.0;
    const std::size_t taken = qxutil::scanDouble(field, value);
    if (taken == field.size() && taken != 0) {
        if (std::isfinite(value))
            return value;
        refuse(k + 1, shown(field) + " is not a finite number");
    }
    if (field.empty())
        refuse(k + 1, "a number is missing");
    // "1,5" between semicolons, or "0,5 1,2" cut at its commas.
    const bool comma = separator_ == ';' ? field.find(',') != field.npos
                                         : separator_ == ',' && field.find_first_of(kBlanks) != field.npos;
    if (comma)
        refuse(k + 1, shown(field) + " is not a number: a decimal comma? Write a decimal point, 1.5");
    refuse(k + 1, shown(field) + " is not a number");
}

void TextLines::refuse(unsigned long line, std::size_t column, const std::string& reason) const
{
    QX_RAISE("interpfilereader", "Invalid_table_file",
             qxbase::ExceptionArgs{{"File", name_},
                                   {"Line", std::to_string(line)},
                                   {"Column", std::to_string(column)},
                                   {"Reason", reason}});
}

} // namespace qxinterp_detail
