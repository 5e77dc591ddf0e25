// SPDX-License-Identifier: LicenseRef-qxkernel
// Accuracy of the functions against 50-digit references (tests/reference/functions.py).

#include "tests/functions/fun_support.hpp"

#include <gtest/gtest.h>
#include <sstream>

using namespace qxtest;

namespace {

/// Distance of got from value + rest, in units in the last place of value.
double ulps(double got, double value, double rest)
{
    const double unit = std::nextafter(std::fabs(value), inf) - std::fabs(value);
    return std::fabs((got - value) - rest) / unit;
}

double number(std::istringstream& in)
{
    std::string text;
    in >> text;
    return std::strtod(text.c_str(), nullptr);
}

struct Promise
{
    double ulp;
    double worst = 0.0, at = 0.0;
    int points = 0;
};

TEST(Accuracy, RealFormsKeepTheTable)
{
    std::map<std::string, Promise> table;
#define QX_ACC(name, from, to, ulp, notes) table[#name] = Promise{ulp};
#include "functions/accuracy.def"
#undef QX_ACC

    std::ifstream file(QX_REFERENCE_FILE);
    ASSERT_TRUE(file) << QX_REFERENCE_FILE;
    for (std::string line; std::getline(file, line);) {
        std::istringstream in(line);
        std::string kind, name;
        in >> kind >> name;
        if (kind != "v")
            continue;
        const double x = number(in), value = number(in), rest = number(in);
        Promise& p = table.at(name);
        const double error = ulps(callReal(*fun(name), x).value.real(), value, rest);
        ++p.points;
        if (!(error <= p.worst)) {
            p.worst = error;
            p.at = x;
        }
    }

    for (const auto& [name, p] : table) {
        EXPECT_EQ(p.points, 10) << name;
        EXPECT_LE(p.worst, p.ulp) << name << " at " << p.at;
        RecordProperty(name, std::to_string(p.worst));
    }
}

TEST(Accuracy, ComplexFormsAreWithinAFewUlpInTheNorm)
{
    std::map<std::string, Promise> worst;
    std::ifstream file(QX_REFERENCE_FILE);
    for (std::string line; std::getline(file, line);) {
        std::istringstream in(line);
        std::string kind, name;
        in >> kind >> name;
        if (kind != "z")
            continue;
        const double re = number(in), im = number(in), vre = number(in), vim = number(in);
        const Complex value(vre, vim);
        const double error = std::abs(callComplex(*fun(name), {re, im}).value - value) / (0x1p-53 * std::abs(value));
        Promise& p = worst[name];
        ++p.points;
        p.worst = std::max(p.worst, error);
    }

    EXPECT_EQ(worst.size(), 29u);
    for (const auto& [name, p] : worst) {
        EXPECT_EQ(p.points, 100) << name;
        EXPECT_LE(p.worst, 12.0) << name; // half units of the norm
    }
}

TEST(Accuracy, HyperbolicFunctionsReachTheEndOfTheRange)
{
    EXPECT_TRUE(close(callReal(*fun("cosh"), 710.4).value.real(), std::cosh(710.4), 1e-15));
    EXPECT_TRUE(close(callReal(*fun("sinh"), -710.4).value.real(), std::sinh(-710.4), 1e-15));
    EXPECT_EQ(callReal(*fun("cosh"), 710.5).value.real(), inf);
}

} // namespace
