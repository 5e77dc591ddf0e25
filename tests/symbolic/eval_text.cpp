// SPDX-License-Identifier: LicenseRef-qxkernel
#include "eval_text.hpp"

#include <boost/math/special_functions/bessel.hpp>

#include <cctype>
#include <cmath>
#include <cstdlib>
#include <stdexcept>
#include <vector>

namespace qxtest {

namespace {

/// Value and an absolute error bound in units of one rounding.
struct V
{
    double x;
    double e;
};

V rounded(double x, double e) { return {x, e + std::fabs(x)}; }

class Reader
{
public:
    Reader(const std::string& text, const Point& at) : text_(text), at_(at) {}

    V all()
    {
        const V v = compare();
        if (peek() != '\0')
            fail();
        return v;
    }

private:
    [[noreturn]] void fail() const { throw std::runtime_error("cannot evaluate: " + text_); }
    char peek()
    {
        while (i_ < text_.size() && std::isspace(static_cast<unsigned char>(text_[i_])))
            ++i_;
        return i_ < text_.size() ? text_[i_] : '\0';
    }
    bool accept(const char* s)
    {
        peek();
        if (text_.compare(i_, std::char_traits<char>::length(s), s) != 0)
            return false;
        i_ += std::char_traits<char>::length(s);
        return true;
    }

    V compare()
    {
        V a = sum();
        for (;;) {
            if (accept("<="))
                a = {double(a.x <= sum().x), 0};
            else if (accept(">="))
                a = {double(a.x >= sum().x), 0};
            else if (accept("=="))
                a = {double(a.x == sum().x), 0};
            else if (accept("!="))
                a = {double(a.x != sum().x), 0};
            else if (accept("<"))
                a = {double(a.x < sum().x), 0};
            else if (accept(">"))
                a = {double(a.x > sum().x), 0};
            else
                return a;
        }
    }
    V sum()
    {
        V a = product();
        for (;;) {
            if (accept("+")) {
                const V b = product();
                a = rounded(a.x + b.x, a.e + b.e);
            } else if (accept("-")) {
                const V b = product();
                a = rounded(a.x - b.x, a.e + b.e);
            } else {
                return a;
            }
        }
    }
    V product()
    {
        V a = sign();
        for (;;) {
            if (accept("*")) {
                const V b = sign();
                a = rounded(a.x * b.x, a.e * std::fabs(b.x) + b.e * std::fabs(a.x));
            } else if (accept("/")) {
                const V b = sign();
                a = rounded(a.x / b.x, a.e / std::fabs(b.x) + b.e * std::fabs(a.x) / (b.x * b.x));
            } else {
                return a;
            }
        }
    }
    V sign()
    {
        if (accept("-")) {
            const V a = sign();
            return {-a.x, a.e};
        }
        if (accept("+"))
            return sign();
        return chain();
    }
    V chain()
    {
        V a = primary();
        while (accept("^")) {
            const V b = exponent();
            const double x = std::pow(a.x, b.x);
            double e = a.e * std::fabs(b.x * std::pow(a.x, b.x - 1.0));
            if (b.e > 0.0 && a.x > 0.0)
                e += b.e * std::fabs(x * std::log(a.x));
            a = rounded(x, e);
        }
        return a;
    }
    V exponent()
    {
        if (accept("-")) {
            const V a = exponent();
            return {-a.x, a.e};
        }
        return primary();
    }
    V primary()
    {
        const char c = peek();
        if (c == '(') {
            ++i_;
            const V v = compare();
            if (!accept(")"))
                fail();
            return v;
        }
        if (std::isdigit(static_cast<unsigned char>(c)) || c == '.') {
            char* end;
            const double x = std::strtod(text_.c_str() + i_, &end);
            i_ = static_cast<std::size_t>(end - text_.c_str());
            return {x, std::fabs(x)};
        }
        if (!std::isalpha(static_cast<unsigned char>(c)) && c != '_')
            fail();
        const std::size_t from = i_;
        while (i_ < text_.size() && (std::isalnum(static_cast<unsigned char>(text_[i_])) || text_[i_] == '_'))
            ++i_;
        const std::string name = text_.substr(from, i_ - from);
        if (peek() != '(') {
            const auto found = at_.find(name);
            if (found == at_.end())
                fail();
            return {found->second, 0};
        }
        ++i_;
        std::vector<V> args;
        do
            args.push_back(compare());
        while (accept(","));
        if (!accept(")"))
            fail();
        return call(name, args);
    }
    V call(const std::string& name, const std::vector<V>& a)
    {
        if (a.size() == 3 && name == "if")
            return a[0].x != 0.0 ? a[1] : a[2];
        if (a.size() == 2)
            return call2(name, a[0], a[1]);
        if (a.size() != 1)
            fail();
        const double h = 1e-6 * (1.0 + std::fabs(a[0].x));
        const double y = f(name, a[0].x);
        const double slope = (f(name, a[0].x + h) - f(name, a[0].x - h)) / (2 * h);
        return rounded(y, a[0].e * std::fabs(slope));
    }
    V call2(const std::string& name, const V& a, const V& b)
    {
        if (name == "atan2")
            return rounded(std::atan2(a.x, b.x), a.e + b.e);
        if (name == "max")
            return a.x > b.x ? a : b;
        if (name == "min")
            return a.x < b.x ? a : b;
        if (name == "besselj")
            return rounded(boost::math::cyl_bessel_j(a.x, b.x), b.e);
        fail();
    }
    double f(const std::string& name, double x) const
    {
        using F = double (*)(double);
        static const std::map<std::string, F> table{
            {"abs", [](double v) { return std::fabs(v); }},
            {"acos", [](double v) { return std::acos(v); }},
            {"acosh", [](double v) { return std::acosh(v); }},
            {"acot", [](double v) { return std::atan(1 / v); }},
            {"acoth", [](double v) { return std::atanh(1 / v); }},
            {"acsc", [](double v) { return std::asin(1 / v); }},
            {"acsch", [](double v) { return std::asinh(1 / v); }},
            {"asec", [](double v) { return std::acos(1 / v); }},
            {"asech", [](double v) { return std::acosh(1 / v); }},
            {"asin", [](double v) { return std::asin(v); }},
            {"asinh", [](double v) { return std::asinh(v); }},
            {"atan", [](double v) { return std::atan(v); }},
            {"atanh", [](double v) { return std::atanh(v); }},
            {"cos", [](double v) { return std::cos(v); }},
            {"cosh", [](double v) { return std::cosh(v); }},
            {"cot", [](double v) { return 1 / std::tan(v); }},
            {"coth", [](double v) { return 1 / std::tanh(v); }},
            {"csc", [](double v) { return 1 / std::sin(v); }},
            {"csch", [](double v) { return 1 / std::sinh(v); }},
            {"erf", [](double v) { return std::erf(v); }},
            {"exp", [](double v) { return std::exp(v); }},
            {"log", [](double v) { return std::log(v); }},
            {"log10", [](double v) { return std::log10(v); }},
            {"log2", [](double v) { return std::log2(v); }},
            {"sec", [](double v) { return 1 / std::cos(v); }},
            {"sech", [](double v) { return 1 / std::cosh(v); }},
            {"sign", [](double v) { return double((v > 0) - (v < 0)); }},
            {"sin", [](double v) { return std::sin(v); }},
            {"sinh", [](double v) { return std::sinh(v); }},
            {"sqrt", [](double v) { return std::sqrt(v); }},
            {"tan", [](double v) { return std::tan(v); }},
            {"tanh", [](double v) { return std::tanh(v); }},
        };
        const auto found = table.find(name);
        if (found == table.end())
            fail();
        return found->second(x);
    }

    const std::string& text_;
    const Point& at_;
    std::size_t i_ = 0;
};

} // namespace

double Wide::scale() const { return std::fmax(std::fabs(value), 1e-300); }

Wide evalWide(const std::string& text, const Point& at)
{
    const V v = Reader(text, at).all();
    return {v.x, v.e / std::fmax(std::fabs(v.x), 1e-300)};
}

} // namespace qxtest
