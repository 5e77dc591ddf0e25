// SPDX-License-Identifier: LicenseRef-qxkernel
// Accuracy over many random points against ball arithmetic (Arb), whose results carry a proven bound. The points are as many
// as QX_SWEEP_POINTS says for each function; then the worst of each is printed too.

#include "tests/functions/fun_support.hpp"

#include <acb.h>
#include <acb_hypgeom.h>
#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <random>

using namespace qxtest;

namespace {

using ExactFunction = void (*)(acb_t result, const acb_t z, slong bits);

template <ExactFunction f>
void ofInverse(acb_t result, const acb_t z, slong bits)
{
    acb_inv(result, z, bits);
    f(result, result, bits);
}

template <ulong base>
void logarithm(acb_t result, const acb_t z, slong bits)
{
    arb_t scale;
    arb_init(scale);
    arb_const_log2(scale, bits); // for base 2
    if (base != 2)
        arb_log_ui(scale, base, bits);
    acb_log(result, z, bits);
    acb_div_arb(result, result, scale, bits);
    arb_clear(scale);
}

const std::map<std::string, ExactFunction> exactFunctions{
    {"exp", acb_exp},         {"sqrt", acb_sqrt},       {"log", acb_log},         {"log2", logarithm<2>},   {"log10", logarithm<10>},
    {"erf", acb_hypgeom_erf}, {"sin", acb_sin},         {"cos", acb_cos},         {"tan", acb_tan},         {"sec", acb_sec},
    {"csc", acb_csc},         {"cot", acb_cot},         {"asin", acb_asin},       {"acos", acb_acos},       {"atan", acb_atan},
    {"sinh", acb_sinh},       {"cosh", acb_cosh},       {"tanh", acb_tanh},       {"sech", acb_sech},       {"csch", acb_csch},
    {"coth", acb_coth},       {"asinh", acb_asinh},     {"acosh", acb_acosh},     {"atanh", acb_atanh},
    {"acot", ofInverse<acb_atan>},   {"asec", ofInverse<acb_acos>},   {"acsc", ofInverse<acb_asin>},
    {"acoth", ofInverse<acb_atanh>}, {"asech", ofInverse<acb_acosh>}, {"acsch", ofInverse<acb_asinh>}};

/// Values known to more digits than a double has, in two parts.
struct Known
{
    double value, rest;
};

class Exact
{
public:
    Exact() { acb_init(x_), acb_init(y_), acb_init(result_); }
    ~Exact() { acb_clear(x_), acb_clear(y_), acb_clear(result_); }
    Exact(const Exact&) = delete;
    Exact& operator=(const Exact&) = delete;

    /// False where no precision was enough: at a zero, say.
    bool apply(ExactFunction f, Complex z, bool real)
    {
        set(x_, z);
        return settle(real, [&](slong bits) { f(result_, x_, bits); });
    }
    bool pow(double x, double y)
    {
        set(x_, x), set(y_, y);
        return settle(true, [&](slong bits) { acb_pow(result_, x_, y_, bits); });
    }
    bool atan2(double y, double x)
    {
        set(x_, x), set(y_, y);
        return settle(true, [&](slong bits) {
            arb_atan2(acb_realref(result_), acb_realref(y_), acb_realref(x_), bits);
            arb_zero(acb_imagref(result_));
        });
    }
    Known re() const { return known(acb_realref(result_)); }
    Known im() const { return known(acb_imagref(result_)); }

private:
    static void set(acb_t x, Complex z) { acb_set_d_d(x, z.real(), z.imag()); }
    template <class Work>
    bool settle(bool real, Work&& work)
    {
        for (slong bits = 128; bits <= 8192; bits *= 2) {
            work(bits);
            if (isKnown(acb_realref(result_)) && (real || isKnown(acb_imagref(result_))))
                return true;
        }
        return false;
    }
    static bool isKnown(const arb_t x) { return arb_is_exact(x) || arb_rel_accuracy_bits(x) > 90; }
    static Known known(const arb_t x)
    {
        Known k{arf_get_d(arb_midref(x), ARF_RND_NEAR), 0.0};
        arf_t rest, value;
        arf_init(rest), arf_init(value);
        arf_set_d(value, k.value);
        arf_sub(rest, arb_midref(x), value, 128, ARF_RND_NEAR);
        k.rest = arf_get_d(rest, ARF_RND_NEAR);
        arf_clear(rest), arf_clear(value);
        return k;
    }

    acb_t x_, y_, result_;
};

/// Distance of got from a known value, in units in the last place of the value.
double ulps(double got, const Known& k)
{
    if (got == k.value && (std::isinf(got) || k.value == 0.0))
        return 0.0;
    const double size = std::fabs(k.value);
    const double unit = std::isinf(std::nextafter(size, inf)) ? size - std::nextafter(size, 0.0) : std::nextafter(size, inf) - size;
    return std::fabs((got - k.value) - k.rest) / unit;
}

struct Worst
{
    double ulp = 0.0;
    Complex x, y;
    long points = 0;

    void take(double error, Complex at, Complex other = 0.0)
    {
        ++points;
        if (!(error <= ulp)) {
            ulp = error;
            x = at;
            y = other;
        }
    }
};

long pointsEach()
{
    const char* const asked = std::getenv("QX_SWEEP_POINTS");
    return asked ? std::atol(asked) : 1000;
}

void report(const std::string& name, const Worst& worst)
{
    if (std::getenv("QX_SWEEP_POINTS"))
        std::printf("sweep: %-14s %7ld points, worst %.3f ulp at (%.17g, %.17g) (%.17g, %.17g)\n", name.c_str(), worst.points,
                    worst.ulp, worst.x.real(), worst.x.imag(), worst.y.real(), worst.y.imag());
}

class Random
{
public:
    explicit Random(const std::string& name)
    {
        std::seed_seq seeds(name.begin(), name.end());
        random_.seed(seeds);
    }

    double uniform(double low, double high) { return std::uniform_real_distribution<double>(low, high)(random_); }
    bool coin() { return random_() % 2 == 0; }
    double signedOne() { return coin() ? 1.0 : -1.0; }
    /// Of any magnitude between two positive numbers.
    double anySize(double low, double high) { return std::min(high, std::max(low, std::exp(uniform(std::log(low), std::log(high))))); }
    /// Half of them spread evenly, half by magnitude.
    double within(double low, double high)
    {
        if (coin())
            return low / 2 + (uniform(-1.0, 1.0) * (high / 2 - low / 2)) + high / 2;
        if (low > 0)
            return anySize(low, high);
        const double x = anySize(1e-300, std::min(-low, high));
        return coin() ? x : -x;
    }
    int below(int n) { return static_cast<int>(random_() % static_cast<unsigned>(n)); }

private:
    std::mt19937_64 random_;
};

/// Points of all kinds: evenly, by magnitude, near the unit circle, near an axis, near 1, -1, i and -i.
Complex anyPoint(Random& random, double smallest, double largest)
{
    const double phi = random.uniform(-pi, pi);
    switch (random.below(5)) {
    case 0: return {random.uniform(-3.0, 3.0), random.uniform(-3.0, 3.0)};
    case 1: return std::polar(random.anySize(smallest, largest), phi);
    case 2: return std::polar(1.0 + random.signedOne() * random.anySize(1e-16, 0.1), phi);
    case 3: {
        const double along = random.signedOne() * random.anySize(smallest, largest), across = random.signedOne() * random.anySize(smallest, 1.0);
        return random.coin() ? Complex(along, across) : Complex(across, along);
    }
    default: {
        const Complex centre = random.coin() ? Complex(random.signedOne(), 0.0) : Complex(0.0, random.signedOne());
        return centre + std::polar(random.anySize(1e-15, 0.1), phi);
    }
    }
}

} // namespace

TEST(AccuracySweep, RealFormsKeepTheTableAtRandomPoints)
{
    Exact exact;
    const auto sweep = [&](const std::string& name, double from, double to, double ulp) {
        Random random(name);
        Worst worst;
        const FunObjPtr f = fun(name);
        for (long i = 0; i < pointsEach(); ++i) {
            const double x = i == 0 ? from : i == 1 ? to : random.within(from, to);
            if (exact.apply(exactFunctions.at(name), x, true))
                worst.take(ulps(callReal(*f, x).value.real(), exact.re()), x);
        }
        EXPECT_GT(worst.points, pointsEach() * 9 / 10) << name;
        EXPECT_LE(worst.ulp, ulp) << name << " at " << worst.x.real();
        report(name, worst);
    };
#define QX_ACC(name, from, to, ulp, notes) sweep(#name, from, to, ulp);
#include "functions/accuracy.def"
#undef QX_ACC
}

TEST(AccuracySweep, HyperbolicFunctionsKeepThreeUlpAtTheEndOfTheRange)
{
    Exact exact;
    for (const char* name : {"sinh", "cosh"}) {
        Random random(std::string(name) + " at the end");
        Worst worst;
        for (long i = 0; i < pointsEach(); ++i) {
            const double x = random.signedOne() * random.uniform(708.0, 710.4758);
            if (exact.apply(exactFunctions.at(name), x, true))
                worst.take(ulps(callReal(*fun(name), x).value.real(), exact.re()), x);
        }
        EXPECT_LE(worst.ulp, 3.0) << name << " at " << worst.x.real();
        report(std::string(name) + " near 710", worst);
    }
}

TEST(AccuracySweep, PowersAndAtan2KeepTheTableAtRandomPoints)
{
    std::map<std::string, double> bound;
#define QX_ACC2(name, ulp, notes) bound[#name] = ulp;
#include "functions/accuracy.def"
#undef QX_ACC2
    Exact exact;
    Worst pow, fixedPow, atan2;
    Random random("two arguments");
    const double exponents[] = {-4.0, -3.0, -2.0, -1.0, 2.0, 3.0, 4.0, 5.0, 7.0, 0.5, -0.5, 1.5, 2.5, 1.0 / 3.0};
    for (long i = 0; i < pointsEach(); ++i) {
        const double x = random.coin() ? random.uniform(0.0, 10.0) : random.anySize(1e-300, 1e300);
        const double most = 700.0 / std::max(std::fabs(std::log(x)), 1e-3), y = random.uniform(-most, most);
        if (exact.pow(x, y))
            pow.take(ulps(callReal(*fun("^"), x, y).value.real(), exact.re()), x, y);
        const double e = exponents[random.below(14)], base = random.coin() ? random.uniform(0.0, 10.0) : random.anySize(1e-40, 1e40);
        if (exact.pow(base, e))
            fixedPow.take(ulps(callReal(*makeConstPow(e), base).value.real(), exact.re()), base, e);
        const double v = random.signedOne() * random.anySize(1e-150, 1e150), u = v * random.signedOne() * random.anySize(1e-150, 1e150);
        if (exact.atan2(v, u))
            atan2.take(ulps(callReal(*fun("atan2"), v, u).value.real(), exact.re()), v, u);
    }

    for (const auto& [name, worst] : {std::pair("pow", &pow), std::pair("pow_fixed", &fixedPow), std::pair("atan2", &atan2)}) {
        EXPECT_GT(worst->points, pointsEach() * 9 / 10) << name;
        EXPECT_LE(worst->ulp, bound.at(name)) << name << " of " << worst->x.real() << ", " << worst->y.real();
        report(name, *worst);
    }
}

TEST(AccuracySweep, ComponentsOfComplexFormsKeepTheTableAtRandomPoints)
{
    Exact exact;
    const auto sweep = [&](const std::string& name, double smallest, double largest, double distance, double ulp) {
        Random random("complex " + name);
        Worst worst;
        const FunObjPtr f = fun(name);
        for (long i = 0; i < pointsEach(); ++i) {
            const Complex z = anyPoint(random, smallest, largest), near(std::fabs(z.real()), std::fabs(z.imag()));
            if (std::min(std::abs(near - 1.0), std::abs(near - Complex(0.0, 1.0))) < distance ||
                !exact.apply(exactFunctions.at(name), z, false))
                continue;
            const Complex got = callComplex(*f, z).value;
            worst.take(std::max(ulps(got.real(), exact.re()), ulps(got.imag(), exact.im())), z);
        }
        EXPECT_GT(worst.points, pointsEach() / 2) << name;
        EXPECT_LE(worst.ulp, ulp) << name << " at " << worst.x;
        report("complex " + name, worst);
    };
#define QX_ACC_COMPLEX(name, smallest, largest, distance, ulp, notes) sweep(#name, smallest, largest, distance, ulp);
#include "functions/accuracy.def"
#undef QX_ACC_COMPLEX
}
