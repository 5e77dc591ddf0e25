// SPDX-License-Identifier: LicenseRef-qxkernel
// The vector units against each other: which processor computes must not show in the results.

#include "base/qxreal_detail.hpp"
#include "functions/kernels_detail.hpp"
#include "qxnumber.hpp"
#include "qxreal.hpp"
#include "tests/functions/fun_support.hpp"

#include <gtest/gtest.h>
#include <random>

using namespace qxtest;
using namespace qxkernels;

namespace {

struct NamedUnary
{
    const char* name;
    qxkernels::Unary KernelTable::*kernel;
};
struct NamedBinary
{
    const char* name;
    BinaryLoop KernelTable::*kernel;
};
#define QX_NAMED(name) {#name, &KernelTable::name},
const NamedUnary unaryKernels[] = {QX_UNARY_KERNELS(QX_NAMED)};
const NamedBinary binaryKernels[] = {QX_BINARY_KERNELS(QX_NAMED)};
#undef QX_NAMED

/// Ordinary numbers of several magnitudes, with special ones between them.
std::vector<double> numbers(std::size_t n, unsigned seed)
{
    std::mt19937_64 random(seed);
    std::uniform_real_distribution<double> unit(-1.0, 1.0);
    const double special[] = {0.0, -0.0, 1.0, -1.0, 2.0, inf, -inf, kNaN, 1e-310, 1e300, 0.5, -2.0, 1e-160, 710.2};
    std::vector<double> x(n);
    for (std::size_t i = 0; i < n; ++i)
        x[i] = i % 7 == 6 ? special[random() % std::size(special)]
                          : unit(random) * (i % 3 == 0 ? 1.0 : i % 3 == 1 ? 30.0 : 1e5);
    return x;
}

std::string firstDifference(const std::vector<double>& a, const std::vector<double>& b)
{
    for (std::size_t i = 0; i < a.size(); ++i)
        if (!same(a[i], b[i]))
            return "number " + std::to_string(i) + ": " + qxutil::toString(a[i]) + " and " + qxutil::toString(b[i]);
    return "";
}

TEST(SingleNumbers, HaveTheBitsOfTheArrayForms)
{
    using F = double (*)(double);
    const KernelTable& k = kernels();
    const std::vector<std::pair<F, Unary>> functions{
        {qxmath::exp, k.Exp}, {qxmath::logDouble, k.Log}, {qxmath::log10Double, k.Log10}, {qxmath::log2Double, k.Log2},
        {qxmath::sin, k.Sin}, {qxmath::cos, k.Cos}, {qxmath::tan, k.Tan}, {qxmath::asinDouble, k.Asin},
        {qxmath::acosDouble, k.Acos}, {qxmath::atan, k.Atan}, {qxmath::sinh, k.Sinh}, {qxmath::cosh, k.Cosh},
        {qxmath::tanh, k.Tanh}, {qxmath::sqrtDouble, k.Sqrt}};
    const std::vector<double> x = numbers(7000, 5), y = numbers(7000, 6);

    std::vector<double> array(x.size()), single(x.size());
    for (std::size_t f = 0; f < functions.size(); ++f) {
        functions[f].second.real(array.data(), x.data(), x.size());
        for (std::size_t i = 0; i < x.size(); ++i)
            single[i] = functions[f].first(x[i]);
        EXPECT_EQ(firstDifference(single, array), "") << "function " << f;
    }
    using G = double (*)(double, double);
    for (const auto& [g, kernel] : {std::pair<G, BinaryLoop>(qxmath::atan2, k.Atan2), {qxmath::mod, k.Mod}}) {
        kernel(array.data(), x.data(), y.data(), 0, x.size());
        for (std::size_t i = 0; i < x.size(); ++i)
            single[i] = g(x[i], y[i]);
        EXPECT_EQ(firstDifference(single, array), "");
    }
}

TEST(SingleNumbers, WithoutFmaAgreeWithThePortableArrays)
{
    const KernelTable& k = *kernelsOf(Unit::Portable);
    const qxmath::RealFunctions& f = qxmath::portableFunctions;
    const std::vector<std::pair<double (*)(double), Unary>> functions{
        {f.exp, k.Exp}, {f.log, k.Log}, {f.sin, k.Sin}, {f.sinh, k.Sinh}, {f.cosh, k.Cosh}, {f.tanh, k.Tanh}};
    const std::vector<double> x = numbers(2000, 7);

    std::vector<double> array(x.size()), single(x.size());
    for (std::size_t i = 0; i < functions.size(); ++i) {
        functions[i].second.real(array.data(), x.data(), x.size());
        for (std::size_t j = 0; j < x.size(); ++j)
            single[j] = functions[i].first(x[j]);
        EXPECT_EQ(firstDifference(single, array), "") << "function " << i;
    }
}

class VectorUnit : public testing::TestWithParam<Unit>
{
protected:
    void SetUp() override
    {
        if (kernelsOf(GetParam()) == nullptr || kernelsOf(Unit::Fma) == nullptr)
            GTEST_SKIP() << "this processor does not have the unit";
    }
};

TEST_P(VectorUnit, UnaryKernelsGiveTheBitsOfTheScalarUnit)
{
    const KernelTable &ours = *kernelsOf(GetParam()), &scalar = *kernelsOf(Unit::Fma);
    const std::vector<double> x = numbers(4001, 1);

    for (const NamedUnary& k : unaryKernels) {
        std::vector<double> a(2 * x.size()), b(a);
        EXPECT_EQ((ours.*k.kernel).real(a.data(), x.data(), x.size()), (scalar.*k.kernel).real(b.data(), x.data(), x.size()));
        EXPECT_EQ(firstDifference(a, b), "") << k.name << " real";
        EXPECT_EQ((ours.*k.kernel).complex(a.data(), x.data(), x.size() / 2),
                  (scalar.*k.kernel).complex(b.data(), x.data(), x.size() / 2));
        EXPECT_EQ(firstDifference(a, b), "") << k.name << " complex";
        EXPECT_EQ((ours.*k.kernel).promoted(a.data(), x.data(), x.size()),
                  (scalar.*k.kernel).promoted(b.data(), x.data(), x.size()));
        EXPECT_EQ(firstDifference(a, b), "") << k.name << " promoted";
    }
}

TEST_P(VectorUnit, BinaryKernelsGiveTheBitsOfTheScalarUnit)
{
    const KernelTable &ours = *kernelsOf(GetParam()), &scalar = *kernelsOf(Unit::Fma);
    const std::vector<double> x = numbers(2002, 2), y = numbers(2002, 3);

    for (const NamedBinary& k : binaryKernels)
        for (unsigned shape = 0; shape < 32; ++shape) {
            std::vector<double> a(x.size()), b(x.size());
            EXPECT_EQ((ours.*k.kernel)(a.data(), x.data(), y.data(), shape, 1001),
                      (scalar.*k.kernel)(b.data(), x.data(), y.data(), shape, 1001));
            EXPECT_EQ(firstDifference(a, b), "") << k.name << " shape " << shape;
        }
}

TEST_P(VectorUnit, AValueDoesNotDependOnPositionOrCount)
{
    const KernelTable& table = *kernelsOf(GetParam());
    const std::vector<double> x = numbers(66, 4), y = numbers(66, 5);

    for (const NamedUnary& k : unaryKernels) {
        std::vector<double> all(x);
        (table.*k.kernel).complex(all.data(), all.data(), x.size() / 2);
        for (std::size_t n = 1; n <= x.size() / 2; ++n) {
            std::vector<double> few(x.begin(), x.begin() + 2 * n);
            (table.*k.kernel).complex(few.data(), few.data(), n);
            EXPECT_EQ(firstDifference(few, std::vector<double>(all.begin(), all.begin() + 2 * n)), "") << k.name << ' ' << n;
        }
        all = x;
        (table.*k.kernel).real(all.data(), all.data(), x.size());
        for (std::size_t n = 1; n <= 20; ++n) {
            std::vector<double> last(x.end() - n, x.end());
            (table.*k.kernel).real(last.data(), last.data(), n);
            EXPECT_EQ(firstDifference(last, std::vector<double>(all.end() - n, all.end())), "") << k.name << ' ' << n;
        }
    }
    for (const NamedBinary& k : binaryKernels) {
        std::vector<double> all(x.size());
        (table.*k.kernel)(all.data(), x.data(), y.data(), 0, x.size());
        for (std::size_t i = 0; i < x.size(); ++i) {
            double one;
            (table.*k.kernel)(&one, &x[i], &y[i], kXScalar | kYScalar, 1);
            EXPECT_TRUE(same(one, all[i])) << k.name << ' ' << i;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Units, VectorUnit, testing::Values(Unit::Avx512, Unit::Avx2, Unit::Fma),
                         [](const auto& unit) {
                             return unit.param == Unit::Avx512 ? "Avx512" : unit.param == Unit::Avx2 ? "Avx2" : "Fma";
                         });

TEST(PortableUnit, IsWithinTwoUlpOfTheChosenOne)
{
    const KernelTable &portable = *kernelsOf(Unit::Portable), &chosen = kernels();
    for (const auto kernel : {&KernelTable::Sin, &KernelTable::Exp, &KernelTable::Log, &KernelTable::Tanh, &KernelTable::Atan}) {
        std::vector<double> x(500), a(500), b(500);
        for (std::size_t i = 0; i < x.size(); ++i)
            x[i] = 0.01 + 0.017 * double(i);
        (portable.*kernel).real(a.data(), x.data(), x.size());
        (chosen.*kernel).real(b.data(), x.data(), x.size());
        for (std::size_t i = 0; i < x.size(); ++i)
            EXPECT_NEAR(a[i], b[i], 4.5e-16 * std::fabs(b[i]));
    }
}

// ---- the search for NaN by a sum

TEST(NaNBySum, LargeNumbersDoNotMakeOne)
{
    const std::vector<double> x = {1e308, 1e308, -inf}, exponent = {1.0, 1.0, 1.0};

    EXPECT_EQ((*fun("^"))(arrayOf(x), arrayOf(exponent), 3, 1), 0u);
}

TEST(NaNBySum, InfinitiesOfBothSignsCountAsOne)
{
    EXPECT_EQ((*fun("log"))(arrayOf<double>({0.0, inf}), 2), unsigned(kFunDomain));
    EXPECT_EQ((*fun("log"))(arrayOf<double>({0.0, 1.0}), 2), 0u);
}

TEST(NaNBySum, OneAmongAMillionIsFoundWhereverItIs)
{
    for (const std::size_t at : {std::size_t(0), std::size_t(499999), std::size_t(999999)}) {
        std::vector<double> x(1000000, 1e300);
        EXPECT_EQ((*fun("sqrt"))(arrayOf(x), 1000000), 0u);
        x[at] = -1.0;
        EXPECT_EQ((*fun("sqrt"))(arrayOf(x), 1000000), unsigned(kFunDomain)) << at;
    }
}

} // namespace
