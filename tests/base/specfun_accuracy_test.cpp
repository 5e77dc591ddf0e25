// SPDX-License-Identifier: LicenseRef-qxkernel
// Accuracy of the special functions against 20 digits from mpmath; bounds: base/accuracy.def.
#include "qxspecfun.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <numbers>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Numbers = std::vector<long double>; // 64 bits of mantissa: a reference value is good to 1/2048 ulp of a double

/// Shapes of a function: how many arguments a line of its table has, and how they are passed.
struct Real
{
    using Function = int (*)(double, double&);
    static constexpr int arguments = 1;
    static constexpr bool isComplex = false, oscillates = false;
    static int call(Function f, const Numbers& a, double (&r)[2]) { return f(double(a[0]), r[0]); }
};

struct RealPair : Real
{
    using Function = int (*)(double, double, double&);
    static constexpr int arguments = 2;
    static int call(Function f, const Numbers& a, double (&r)[2]) { return f(double(a[0]), double(a[1]), r[0]); }
};

struct OrderAndReal : RealPair
{
    static constexpr bool oscillates = true;
};

struct RealTriple : Real
{
    using Function = int (*)(double, double, double, double&);
    static constexpr int arguments = 3;
    static int call(Function f, const Numbers& a, double (&r)[2])
    {
        return f(double(a[0]), double(a[1]), double(a[2]), r[0]);
    }
};

struct Complex : Real
{
    using Value = std::complex<double>;
    using Function = int (*)(const Value&, Value&);
    static constexpr int arguments = 2;
    static constexpr bool isComplex = true;
    static int call(Function f, const Numbers& a, double (&r)[2])
    {
        return f(Value(double(a[0]), double(a[1])), reinterpret_cast<Value&>(r));
    }
};

struct OrderAndComplex : Complex
{
    using Function = int (*)(double, const Value&, Value&);
    static constexpr int arguments = 3;
    static int call(Function f, const Numbers& a, double (&r)[2])
    {
        return f(double(a[0]), Value(double(a[1]), double(a[2])), reinterpret_cast<Value&>(r));
    }
};

int hankel1(double nu, const std::complex<double>& z, std::complex<double>& r) { return qxbesselh(1, nu, z, r); }

struct Accuracy
{
    std::string table;
    double bound;
    std::string range;
    std::size_t width; ///< numbers a line
    std::function<int(const Numbers&, double (&)[2])> call;
    std::size_t arguments;
    bool isComplex, oscillates;
};

template <class Shape>
Accuracy row(const char* table, double bound, const char* range, typename Shape::Function f)
{
    return {table, bound, range, Shape::arguments + (Shape::isComplex ? 2u : 1u),
            [f](const Numbers& a, double (&r)[2]) { return Shape::call(f, a, r); }, Shape::arguments, Shape::isComplex,
            Shape::oscillates};
}

void PrintTo(const Accuracy& a, std::ostream* out) { *out << a.table << " to " << a.bound << " ulp, " << a.range; }

const Accuracy accuracyTable[] = {
#define QX_ACC(function, Shape, table, ulp, range) row<Shape>(table, ulp, range, function),
#include "base/accuracy.def"
#undef QX_ACC
};

/// Lines of a table: arguments, which are doubles, then the digits of the value.
std::vector<Numbers> readTable(const Accuracy& row)
{
    std::ifstream file(std::string(QX_REFERENCE_DIR) + "/specfun/" + row.table + ".txt");
    std::vector<Numbers> lines;
    for (std::string line; std::getline(file, line);) {
        Numbers numbers;
        std::istringstream words(line);
        for (std::string word; words >> word;)
            numbers.push_back(numbers.size() < row.arguments ? std::strtod(word.c_str(), nullptr)
                                                             : std::strtold(word.c_str(), nullptr));
        lines.push_back(numbers);
    }
    return lines;
}

long double ulpOf(long double value)
{
    const double rounded = static_cast<double>(std::abs(value));
    return static_cast<long double>(std::nextafter(rounded, INFINITY)) - rounded;
}

class SpecialFunction : public testing::TestWithParam<Accuracy>
{
};

} // namespace

TEST_P(SpecialFunction, KeepsItsAccuracyAtEveryPointOfItsTable)
{
    const Accuracy& row = GetParam();
    const std::vector<Numbers> lines = readTable(row);
    ASSERT_GE(lines.size(), 1000u);

    long double worst = 0, sum = 0;
    std::string where;
    for (const Numbers& line : lines) {
        ASSERT_EQ(line.size(), row.width);
        const Numbers arguments(line.begin(), line.begin() + row.arguments);
        double got[2] = {0, 0};
        ASSERT_EQ(row.call(arguments, got), QxSpecfunOk);

        const long double re = line[row.arguments], im = row.isComplex ? line[row.arguments + 1] : 0;
        long double size = std::hypot(re, im);
        const bool isBesselJY = row.oscillates && (row.table == "besselj" || row.table == "bessely");
        if (isBesselJY && arguments[1] > std::abs(arguments[0]))
            size = std::max(size, 0.1L * std::sqrt(2 / (std::numbers::pi_v<long double> * arguments[1])));
        const long double error = std::hypot(got[0] - re, got[1] - im) / ulpOf(size);
        sum += error;
        if (!(error <= worst)) {
            worst = error;
            std::ostringstream text;
            text.precision(17);
            for (const long double a : arguments)
                text << double(a) << " ";
            text << "got " << got[0] << " " << got[1] << " wanted " << double(re) << " " << double(im);
            where = text.str();
        }
    }

    RecordProperty("worst_ulp", std::to_string(double(worst)));
    RecordProperty("mean_ulp", std::to_string(double(sum / lines.size())));
    EXPECT_LE(worst, row.bound) << "at " << where;
    EXPECT_GE(2 * worst + 1, row.bound) << "the promise is far from what is reached";
}

INSTANTIATE_TEST_SUITE_P(All, SpecialFunction, testing::ValuesIn(accuracyTable),
                         [](const auto& row) { return row.param.table; });
