// SPDX-License-Identifier: LicenseRef-qxkernel
// Exact-or-floating numbers and their recognition in text.

#include "exprimpl_detail.hpp"
#include "qxexception.hpp"

#include <bit>
#include <cmath>
#include <ostream>

using Number = ExprImpl::Number;

namespace {

/// From here on doubles do not hold every integer, so that a value is called Real.
constexpr double integerLimit = 1e15;

bool isIntegral(double x) { return x == std::floor(x); }

/// a op b with both brought to the more general type of the two.
template <class Op>
auto promoted(const Number& a, const Number& b, Op op)
{
    if (a.type == b.type)
        return op(a, b);
    Number x = a, y = b;
    Number::promoteTypes(x, y);
    return op(x, y);
}

} // namespace

void qxsymbolic::appendNumber(std::string& text, double value)
{
    if (!std::isfinite(value)) {
        text += std::isnan(value) ? "NaN" : "Inf";
        return;
    }
    char buffer[32];
    const auto write = [&](int digits) {
        return std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::general, digits).ptr;
    };
    char* end = write(16);
    double back;
    if (std::fabs(value) > 1.79e308 && std::from_chars(buffer, end, back).ec != std::errc())
        end = write(17); // sixteen digits round to infinity
    text.append(buffer, end);
}

Number::Number(double d) : type(isIntegral(d) && std::fabs(d) < integerLimit ? Integer : Real), num(d) {}

Number::Number(double n, double d) : type(Rational), num(n), den(d)
{
    if (den == 0.0)
        QX_RAISE("exprimpl", "Divide_by_zero");
    if (den < 0.0) {
        num = -num;
        den = -den;
    }
    if (!isIntegral(num) || !isIntegral(den)) {
        type = Real;
        num = num / den;
        den = 1.0;
        return;
    }
    simplifyRational();
}

void Number::simplifyRational()
{
    double a = std::fmax(std::fabs(num), den);
    double b = std::fmin(std::fabs(num), den);
    if (a < integerLimit) {
        while (b != 0.0) {
            const double r = a - b * std::floor(a / b);
            a = b;
            b = r;
        }
        if (a != 1.0) {
            num /= a;
            den /= a;
        }
    }
    if (num == 0.0 || den == 1.0) {
        den = 1.0;
        type = Integer;
    }
}

void Number::promoteTypes(Number& a, Number& b)
{
    if (a.type == b.type)
        return;
    Number& special = a.type > b.type ? a : b;
    const Type general = a.type > b.type ? b.type : a.type;
    if (general == Real && special.type == Rational) {
        special.num /= special.den;
        special.den = 1.0;
    }
    special.type = general;
}

Number Number::plus(const Number& a, const Number& b)
{
    return promoted(a, b, [](const Number& x, const Number& y) {
        return x.type == Rational ? Number(x.num * y.den + y.num * x.den, x.den * y.den) : Number(x.num + y.num);
    });
}

Number Number::negate(const Number& a) { return Number(-a.num, a.den); }

Number Number::minus(const Number& a, const Number& b) { return plus(a, negate(b)); }

Number Number::times(const Number& a, const Number& b)
{
    return promoted(a, b, [](const Number& x, const Number& y) {
        return x.type == Rational ? Number(x.num * y.num, x.den * y.den) : Number(x.num * y.num);
    });
}

Number Number::divide(const Number& a, const Number& b)
{
    return promoted(a, b, [](const Number& x, const Number& y) {
        return x.type == Rational ? Number(x.num * y.den, x.den * y.num) : Number(x.num, y.num);
    });
}

Number Number::power(const Number& base, const Number& exponent)
{
    Number a = base, b = exponent;
    promoteTypes(a, b);
    const double x = a.num / a.den;
    const double y = b.num / b.den;
    if (y == 0.0)
        return Number(1);
    if (!isIntegral(y) || std::fabs(y) >= 1e9) {
        if (x < 0.0)
            QX_RAISE("exprimpl", "Power_of_negative");
        return Number(std::pow(x, y));
    }

    // The mask starts one below the highest bit of n; for n = 1 it wraps to bit 31.
    const std::uint32_t n = static_cast<std::uint32_t>(std::fabs(y));
    const std::uint32_t highest = static_cast<std::uint32_t>(std::bit_width(n)) - 1;
    const Number multiplier(x);
    Number r = a;
    for (std::uint32_t mask = 1u << ((highest + 31) & 31); mask != 0; mask >>= 1) {
        r = r * r;
        if (mask & n)
            r = r * multiplier;
    }
    if (y > 0.0)
        return r;
    return r.type == Integer ? Number(1.0, r.num) : divide(Number(1), r);
}

bool Number::eq(const Number& a, const Number& b)
{
    return promoted(a, b, [](const Number& x, const Number& y) {
        return x.type == Rational ? x.num * y.den == y.num * x.den : x.num == y.num;
    });
}

bool Number::eq(const Number& a, double b) { return a.type == Rational ? b * a.den == a.num : a.num == b; }

bool Number::lt(const Number& a, const Number& b)
{
    return promoted(a, b, [](const Number& x, const Number& y) {
        return x.type == Rational ? x.num * y.den < y.num * x.den : x.num < y.num;
    });
}

bool Number::ge(const Number& a, const Number& b)
{
    return promoted(a, b, [](const Number& x, const Number& y) {
        return x.type == Rational ? x.num * y.den >= y.num * x.den : x.num >= y.num;
    });
}

std::uint32_t Number::getHashCode() const
{
    const auto n = std::bit_cast<std::uint64_t>(num);
    const auto d = std::bit_cast<std::uint64_t>(den);
    const auto low = [](std::uint64_t bits) { return static_cast<std::uint32_t>(bits); };
    const auto high = [](std::uint64_t bits) { return static_cast<std::uint32_t>(bits >> 32); };
    return (2654435761u * (high(n) >> 5)) ^ low(n) ^ low(d) ^ (2733093237u * (high(d) >> 11));
}

std::pair<Number, Number> Number::getOutputFormat() const
{
    const double n = std::fabs(num);
    if (type != Rational)
        return {n, 1};
    if (den == 3.0 || den == 7.0)
        return {n, den};
    if (n == 1.0 && den < 1000.0) {
        int rest = static_cast<int>(den);
        while (rest % 2 == 0)
            rest /= 2;
        while (rest % 5 == 0)
            rest /= 5;
        if (rest > 1)
            return {1, den};
    }
    return {n / den, 1};
}

std::string Number::toString() const
{
    if (std::isnan(num + den))
        return "NaN";
    if (std::isinf(num))
        return std::isinf(den) ? "NaN" : den >= 0.0 ? "Inf" : "-Inf";
    if (std::isinf(den) || num == 0.0)
        return "0";
    std::string text;
    if (num < 0.0)
        text += '-';
    const auto [above, below] = getOutputFormat();
    qxsymbolic::appendNumber(text, above.num);
    if (below.num != 1.0) {
        text += '/';
        qxsymbolic::appendNumber(text, below.num);
    }
    return text;
}

void Number::write(std::ostream& stream) const
{
    const std::string text = toString();
    stream.write(text.data(), static_cast<std::streamsize>(text.size()));
}

std::ostream& operator<<(std::ostream& stream, const Number& number)
{
    number.write(stream);
    return stream;
}

namespace {

/// p/q within ten units in the last place of v, by the continued fraction with nearest partial quotients; false if the
/// terms grow past 10^7 first.
bool recogniseRational(double v, int& p, int& q)
{
    if (std::fabs(v) >= 1e7 || std::fabs(v) <= 1e-7 || std::isnan(v))
        return false;
    const double tolerance = std::fabs(v) * 2.220446049250313e-15;
    int p1 = 1, p0 = 0, q1 = 0, q0 = 1;
    double x = v;
    do {
        const double a = x >= 0.0 ? std::floor(x + 0.5) : std::ceil(x - 0.5);
        const double nextP = p1 * a + p0;
        const double nextQ = q1 * a + q0;
        if (std::fabs(nextP) > 1e9 || std::fabs(nextQ) > 1e9)
            return false;
        const double r = x - a;
        p0 = std::exchange(p1, static_cast<int>(nextP));
        q0 = std::exchange(q1, static_cast<int>(nextQ));
        p = p1;
        q = q1;
        if (r == 0.0 || std::fabs(static_cast<double>(p1) / q1 - v) <= tolerance)
            return true;
        x = 1.0 / r;
        if (std::abs(p1) > 9999999)
            return false;
    } while (std::abs(q1) < 10000000);
    return false;
}

} // namespace

void ExprImpl::UnparsedNumber::mergeStep(NodePtr& slot)
{
    const NodePtr keep(slot);
    int p, q;
    if (recogniseRational(value, p, q))
        slot = rules->constant(Number(p, q));
    else
        slot = rules->constant(value);
}
