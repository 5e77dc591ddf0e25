// SPDX-License-Identifier: LicenseRef-qxkernel
// The motions of examples/pendulum against the same mechanisms in minimal coordinates, where there is no constraint.
#include "motionpicture.hpp"
#include "reducedmotion.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <functional>
#include <sstream>
#include <stdexcept>

namespace {

using namespace examples;
using State = std::array<double, 2>; // an angle and its rate

/// angle'' = acceleration(angle, rate), by Runge-Kutta steps small enough for twelve digits.
State integrate(State s, double end, const std::function<double(double, double)>& acceleration)
{
    const long n = std::lround(end * 20000);
    const double h = end / static_cast<double>(n);
    const auto rate = [&](const State& z) { return State{z[1], acceleration(z[0], z[1])}; };
    const auto plus = [](const State& a, double f, const State& b) { return State{a[0] + f * b[0], a[1] + f * b[1]}; };
    for (long k = 0; k < n; ++k) {
        const State k1 = rate(s);
        const State k2 = rate(plus(s, h / 2, k1));
        const State k3 = rate(plus(s, h / 2, k2));
        const State k4 = rate(plus(s, h, k3));
        for (int i = 0; i < 2; ++i)
            s[i] += h / 6 * (k1[i] + 2 * k2[i] + 2 * k3[i] + k4[i]);
    }
    return s;
}

void advance(ReducedMotion& motion, double end, double h)
{
    const long n = std::lround(end / h);
    for (long k = 0; k < n; ++k)
        motion.step(end / static_cast<double>(n));
}

double drift(const MotionText& text, double end, double h)
{
    ReducedMotion motion(text);
    const double start = motion.getEnergy();
    double largest = 0.0;
    for (long k = 0; k < std::lround(end / h); ++k) {
        motion.step(h);
        largest = std::max(largest, std::abs(motion.getEnergy() - start));
    }
    return largest;
}

double arithmeticGeometricMean(double a, double b)
{
    while (std::abs(a - b) > 1e-15 * a) {
        const double mean = (a + b) / 2;
        b = std::sqrt(a * b);
        a = mean;
    }
    return a;
}

/// The slider-crank by its crank angle alone: M(phi) phi'' + M'(phi) phi'^2 / 2 = 0 with the inertia M that crank, rod and
/// slider have together in units of phi'^2.
struct MinimalSliderCrank
{
    double m, J1, J2, r, L;

    double psi(double phi) const { return std::asin(-r * std::sin(phi) / L); }
    double s(double phi) const { return r * std::cos(phi) + L * std::cos(psi(phi)); }
    double psiRate(double phi) const { return -r * std::cos(phi) / (L * std::cos(psi(phi))); }
    double sRate(double phi) const { return -r * std::sin(phi) - L * std::sin(psi(phi)) * psiRate(phi); }
    double acceleration(double phi, double rate) const
    {
        const double c = std::cos(psi(phi));
        const double sn = std::sin(psi(phi));
        const double p1 = psiRate(phi);
        const double p2 = (r * std::sin(phi) + L * sn * p1 * p1) / (L * c); // second derivative of psi by phi
        const double s1 = sRate(phi);
        const double s2 = -r * std::cos(phi) - L * c * p1 * p1 - L * sn * p2;
        const double M = J1 + J2 * p1 * p1 + m * s1 * s1;
        return -(J2 * p1 * p2 + m * s1 * s2) * rate * rate / M;
    }
};

} // namespace

TEST(ReducedMotion, IntegratesWhatIsNamedLast)
{
    EXPECT_THAT(ReducedMotion(pendulum(1.0)).getStates(), testing::ElementsAre("x", "xt"));
    EXPECT_THAT(ReducedMotion(sliderCrank(1.0)).getStates(), testing::ElementsAre("phi", "phit"));
}

TEST(ReducedMotion, PendulumReturnsAfterAPeriod)
{
    // T = 2 pi sqrt(l/g) / agm(1, cos(angle/2))
    const double angle = 1.2;
    const MotionText text = pendulum(angle);
    const double l = text.parameters.at("l");
    const double g = text.parameters.at("g");
    const double period = 2 * M_PI * std::sqrt(l / g) / arithmeticGeometricMean(1.0, std::cos(angle / 2));
    ReducedMotion motion(text);

    advance(motion, period, period / 4000);

    EXPECT_NEAR(motion.getValue("x"), l * std::sin(angle), 1e-10);
    EXPECT_NEAR(motion.getValue("y"), -l * std::cos(angle), 1e-10);
    EXPECT_NEAR(motion.getValue("xt"), 0.0, 1e-9);
}

TEST(ReducedMotion, PendulumMovesAsItsAngleDoes)
{
    const MotionText text = pendulum(0.9);
    const double l = text.parameters.at("l");
    const double g = text.parameters.at("g");
    const double m = text.parameters.at("m");
    ReducedMotion motion(text);

    advance(motion, 2.7, 0.0005);

    const auto [angle, rate] = integrate({0.9, 0.0}, 2.7, [&](double a, double) { return -g / l * std::sin(a); });
    EXPECT_NEAR(motion.getValue("x"), l * std::sin(angle), 1e-10);
    EXPECT_NEAR(motion.getValue("y"), -l * std::cos(angle), 1e-10);
    EXPECT_NEAR(motion.getValue("y_dummy1"), l * std::sin(angle) * rate, 1e-9);
    // Force in the rod over its length: centripetal and weight.
    EXPECT_NEAR(motion.getValue("p"), m * (rate * rate + g / l * std::cos(angle)), 1e-8);
}

TEST(ReducedMotion, SliderCrankMovesAsItsCrankAngleDoes)
{
    const MotionText text = sliderCrank(6.0);
    const Values& v = text.parameters;
    const MinimalSliderCrank minimal{v.at("m"), v.at("J1"), v.at("J2"), v.at("r"), v.at("L")};
    ReducedMotion motion(text);

    advance(motion, 2.5, 0.0005);

    const auto [phi, rate] =
        integrate({0.0, 6.0}, 2.5, [&](double a, double w) { return minimal.acceleration(a, w); });
    EXPECT_GT(phi, 2 * M_PI); // more than a turn
    EXPECT_NEAR(motion.getValue("phi"), phi, 1e-8);
    EXPECT_NEAR(motion.getValue("phit"), rate, 1e-7);
    EXPECT_NEAR(motion.getValue("psi"), minimal.psi(phi), 1e-8);
    EXPECT_NEAR(motion.getValue("s"), minimal.s(phi), 1e-8);
    EXPECT_NEAR(motion.getValue("s_dummy1"), minimal.sRate(phi) * rate, 1e-7);
}

TEST(ReducedMotion, EnergyDriftFallsWithTheFourthPowerOfTheStep)
{
    for (const MotionText& text : {pendulum(1.2), sliderCrank(6.0)}) {
        const double coarse = drift(text, 2.0, 0.02);
        const double fine = drift(text, 2.0, 0.01);

        EXPECT_GT(coarse, 1e-9) << text.name; // above rounding, or the ratio says nothing
        EXPECT_GT(coarse / fine, 12.0) << text.name;
    }
}

TEST(ReducedMotion, ConstraintsHoldToRoundingAtAllTimes)
{
    for (const MotionText& text : {pendulum(1.2), sliderCrank(6.0)}) {
        ReducedMotion motion(text);
        for (int k = 0; k < 500; ++k) {
            motion.step(0.01);
            ASSERT_LT(motion.getResidual(), 1e-10) << text.name << " at " << motion.getTime();
        }
    }
}

TEST(ReducedMotion, StartThatNoPositionFitsIsRefused)
{
    MotionText text = pendulum(1.0);
    text.start["x"] = 2.0; // longer than the rod

    EXPECT_THROW(ReducedMotion{text}, std::runtime_error);
}

TEST(MotionPicture, ShowsTheMechanismItsPathAndTheCurve)
{
    std::vector<Frame> frames;
    for (int k = 0; k <= 50; ++k) {
        const double a = 0.1 * k;
        frames.push_back({a, {{0, 0}, {std::sin(a), -std::cos(a)}}, std::sin(a)});
    }
    std::ostringstream out;

    writeMotion(out, frames, "Swing", "x / m");

    const std::string svg = out.str();
    EXPECT_THAT(svg, testing::StartsWith("<svg "));
    EXPECT_THAT(svg, testing::EndsWith("</svg>\n"));
    EXPECT_THAT(svg, testing::HasSubstr(">Swing<"));
    EXPECT_THAT(svg, testing::HasSubstr(">x / m<"));
    int lines = 0;
    for (std::size_t at = svg.find("points=\""); at != std::string::npos; at = svg.find("points=\"", at + 1)) {
        std::istringstream points(svg.substr(at + 8, svg.find('"', at + 8) - at - 8));
        double x, y;
        char comma;
        while (points >> x >> comma >> y) {
            EXPECT_TRUE(x >= 0 && x <= 860 && y >= 0 && y <= 400) << x << ' ' << y;
        }
        ++lines;
    }
    EXPECT_GT(lines, 1 + 24 + 1); // path, moments, curve, and the grid
}
