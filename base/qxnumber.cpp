// SPDX-License-Identifier: LicenseRef-qxkernel
#include "qxnumber.hpp"

#include "qxexception.hpp"

#include <algorithm>
#include <bit>
#include <charconv>
#include <clocale>
#include <cstdint>
#include <cstdlib>
#include <istream>

#include <locale.h>

bool anyNaNorInf(const double* data, std::size_t count)
{
    // Integer tests: unlike a floating sum they vectorise. In chunks, so that a bad number near the front ends it.
    constexpr std::size_t chunk = 1024;
    constexpr std::uint64_t exponent = 0x7ff0000000000000u;
    for (std::size_t first = 0; first < count; first += chunk) {
        const std::size_t last = std::min(count, first + chunk);
        std::uint64_t bad = 0;
        for (std::size_t i = first; i < last; ++i)
            bad |= (std::bit_cast<std::uint64_t>(data[i]) & exponent) == exponent;
        if (bad)
            return true;
    }
    return false;
}

bool anyNaNorInf(const std::complex<double>* data, std::size_t count)
{
    return anyNaNorInf(reinterpret_cast<const double*>(data), 2 * count); // layout granted by [complex.numbers]
}

bool qxGetline(std::istream& stream, std::string& text)
{
    text.clear();
    std::istream::sentry ready(stream, true);
    if (!ready)
        return false;
    std::streambuf& in = *stream.rdbuf();
    using Traits = std::istream::traits_type;
    for (int c = in.sbumpc();; c = in.sbumpc()) {
        if (Traits::eq_int_type(c, Traits::eof())) {
            stream.setstate(text.empty() ? std::ios::eofbit | std::ios::failbit : std::ios::eofbit);
            return !text.empty();
        }
        if (c == '\n')
            return true;
        if (c == '\r') {
            if (in.sgetc() == '\n')
                in.sbumpc();
            return true;
        }
        text += Traits::to_char_type(c);
    }
}

namespace qxutil {

namespace {

template <class I>
std::string integerText(I value)
{
    char buffer[24];
    return {buffer, std::to_chars(buffer, buffer + sizeof buffer, value).ptr};
}

/// Name of a value that has no digits, or null.
const char* nonFiniteName(double value)
{
    if (std::isnan(value))
        return "NaN";
    if (std::isinf(value))
        return value > 0 ? "Inf" : "-Inf";
    return nullptr;
}

bool isBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

/// For numbers outside the range of double: std::from_chars gives no value for them, the C function does.
double parseOutOfRange(std::string_view text)
{
    static const locale_t classic = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
    return strtod_l(std::string(text).c_str(), nullptr, classic);
}

} // namespace

std::string toString(int value) { return integerText(value); }
std::string toString(unsigned value) { return integerText(value); }
std::string toString(long value) { return integerText(value); }
std::string toString(unsigned long value) { return integerText(value); }
std::string toString(long long value) { return integerText(value); }

std::string toString(double value)
{
    std::string text;
    appendDouble(text, value);
    return text;
}

std::string toString(const std::complex<double>& value)
{
    std::string text = "(";
    appendDouble(text, value.real());
    const std::size_t at = text.size();
    appendDouble(text, value.imag());
    if (text[at] != '-')
        text.insert(at, 1, '+');
    return text += "*i)";
}

std::string formatDouble(double value, int digits)
{
    if (const char* name = nonFiniteName(value))
        return name;
    char buffer[40];
    const auto end = std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::general,
                                   std::clamp(digits, 1, 17)).ptr;
    return {buffer, end};
}

void appendDouble(std::string& text, double value)
{
    if (const char* name = nonFiniteName(value)) {
        text += name;
        return;
    }
    char buffer[32];
    text.append(buffer, std::to_chars(buffer, buffer + sizeof buffer, value).ptr);
}

std::size_t scanDouble(std::string_view text, double& value)
{
    const char *begin = text.data(), *end = begin + text.size();
    const char* number = begin;
    if (number != end && *number == '+') {
        ++number;
        if (number != end && *number == '-')
            return 0;
    }
    const auto [stop, status] = std::from_chars(number, end, value);
    if (status == std::errc::invalid_argument)
        return 0;
    // from_chars takes "nan(text)"; the name alone is the number
    const auto length = static_cast<std::size_t>(stop - begin);
    if (status == std::errc::result_out_of_range)
        value = parseOutOfRange(text.substr(0, length));
    else if (std::isnan(value))
        return static_cast<std::size_t>(std::find_if(begin, stop, [](char c) { return c == '('; }) - begin);
    return length;
}

bool isDouble(std::string_view text, double& result)
{
    while (!text.empty() && isBlank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back()))
        text.remove_suffix(1);
    double value = 0;
    if (text.empty() || scanDouble(text, value) != text.size())
        return false;
    result = value;
    return true;
}

double parseDouble(std::string_view text)
{
    double value = 0;
    if (!isDouble(text, value))
        QX_RAISE("qxnumber", "Text_is_not_a_number", "Text", std::string(text));
    return value;
}

} // namespace qxutil
