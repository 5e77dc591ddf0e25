// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include "qxexport.hpp"

#include <cmath>
#include <complex>
#include <cstddef>
#include <iosfwd>
#include <limits>
#include <numbers>
#include <string>
#include <string_view>

/// Constants: quiet NaN, positive infinity, the spacing of doubles above 1 (2^-52), pi.
constexpr double qxGetNaN() { return std::numeric_limits<double>::quiet_NaN(); }
constexpr double qxGetInf() { return std::numeric_limits<double>::infinity(); }
constexpr double qxGetEps() { return std::numeric_limits<double>::epsilon(); }
constexpr double qxGetPi() { return std::numbers::pi; }

/// A complex number is NaN, or infinite, when one of its parts is.
inline bool qxIsNaN(double x) { return std::isnan(x); }
inline bool qxIsInf(double x) { return std::isinf(x); }
inline bool qxIsNaNorInf(double x) { return !std::isfinite(x); }
inline bool qxIsNaN(const std::complex<double>& z) { return qxIsNaN(z.real()) || qxIsNaN(z.imag()); }
inline bool qxIsInf(const std::complex<double>& z) { return qxIsInf(z.real()) || qxIsInf(z.imag()); }
inline bool qxIsNaNorInf(const std::complex<double>& z) { return qxIsNaNorInf(z.real()) || qxIsNaNorInf(z.imag()); }

/// Whether one of count numbers is NaN or infinite. data may be null when count is 0.
QX_API bool anyNaNorInf(const double* data, std::size_t count);
QX_API bool anyNaNorInf(const std::complex<double>* data, std::size_t count);

/// Reads a line that ends in "\n", "\r\n" or "\r", or with the stream; the line end is taken and not stored. False, and
/// text empty, when the stream is at its end before the first character.
QX_API bool qxGetline(std::istream& stream, std::string& text);

/// Numbers and text, always with the decimal point whatever the process's locale.
namespace qxutil {

QX_API std::string toString(int value);
QX_API std::string toString(unsigned value);
QX_API std::string toString(long value);
QX_API std::string toString(unsigned long value);
QX_API std::string toString(long long value);
/// The shortest text that reads back as the same double: "0.1", "1e+100". "NaN", "Inf" and "-Inf" for the others.
QX_API std::string toString(double value);
/// "(re+im*i)" with both parts as toString(double) gives them; a negative imaginary part brings its own sign.
QX_API std::string toString(const std::complex<double>& value);

/// As printf's "%.<digits>g" in the "C" locale. 1 <= digits <= 17.
QX_API std::string formatDouble(double value, int digits);
/// Appends toString(value) to text; no allocation when text has room.
QX_API void appendDouble(std::string& text, double value);

/// Reads the longest number at the start of text: [+|-] digits [. digits] [(e|E) [+|-] digits], with digits on one side
/// of the point at least, or inf, infinity, nan in any case. No blanks, no hexadecimal. Returns the characters taken, 0
/// if there is no number. Values beyond the range of double become +-Inf or +-0 (or the nearest denormal).
QX_API std::size_t scanDouble(std::string_view text, double& value);
/// True, and the value in result, when the whole of text is a number as scanDouble takes it; blanks around are allowed.
QX_API bool isDouble(std::string_view text, double& result);
/// The number that text holds. Raises "Text_is_not_a_number" with "Text" when isDouble is false.
QX_API double parseDouble(std::string_view text);

} // namespace qxutil
