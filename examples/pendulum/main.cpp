// SPDX-License-Identifier: LicenseRef-qxkernel
// A pendulum and a slider-crank as one writes them down, made solvable by index reduction, and set in motion.
//
// Builds on: dae.hpp for the reduction, exprimpl.hpp for reading infix text, formulas.hpp for the numbers.
// Run:       pendulum pendulum --svg pendulum.svg          or          pendulum slider-crank
//
//   1. The equations of motion in Cartesian coordinates hold constraint forces that no equation gives: index 3 (models.cpp).
//   2. Dae differentiates the constraints twice and makes unknowns of the derivatives that they determine.
//   3. The reduced equations, again text, become formulas; Newton's method solves them for the highest
//      derivatives, and Runge-Kutta steps integrate what is below those (reducedmotion.cpp).
//   4. Energy is not used by the integration: how little it drifts tells how good the motion is.
//
// To try: name the unknowns of the pendulum in another order in models.cpp and see y integrated instead of x;
//         --step 0.02 and watch the drift grow by the fourth power or more.

#include "motionpicture.hpp"
#include "reducedmotion.hpp"

#include "support/options.hpp"
#include "support/program.hpp"

#include <cmath>
#include <cstdio>
#include <fstream>
#include <iostream>

using namespace examples;

namespace {

Frame pendulumFrame(const ReducedMotion& motion)
{
    const double x = motion.getValue("x");
    return {motion.getTime(), {{0.0, 0.0}, {x, motion.getValue("y")}}, x};
}

Frame sliderCrankFrame(const ReducedMotion& motion)
{
    const double phi = motion.getValue("phi");
    const double r = motion.getValue("r");
    return {motion.getTime(),
            {{0.0, 0.0}, {r * std::cos(phi), r * std::sin(phi)}, {motion.getValue("s"), 0.0}},
            motion.getValue("s")};
}

int run(const std::string& model, double end, double h, const std::string& file)
{
    const bool isPendulum = model == "pendulum";
    ReducedMotion motion(isPendulum ? pendulum(1.2) : sliderCrank(6.0));
    std::cout << "As written down:\n\n" << motion.getOriginal() << "\nReduced:\n\n" << motion.getReduced();
    std::cout << "\nIntegrated:";
    for (const std::string& name : motion.getStates())
        std::cout << ' ' << name;
    std::cout << "\nComputed:  ";
    for (const std::string& name : motion.getComputed())
        std::cout << ' ' << name;
    std::cout << '\n';

    const double energy = motion.getEnergy();
    double drift = 0.0;
    double residual = 0.0;
    std::vector<Frame> frames;
    const long steps = std::lround(end / h);
    for (long k = 0;; ++k) {
        frames.push_back(isPendulum ? pendulumFrame(motion) : sliderCrankFrame(motion));
        drift = std::max(drift, std::abs(motion.getEnergy() - energy));
        residual = std::max(residual, motion.getResidual());
        if (k == steps)
            break;
        motion.step(h);
    }
    std::printf("\nEnergy %.6f J at the start, largest drift %.2e J; largest residual %.1e after %ld steps\n", energy,
                drift, residual, steps);

    if (!file.empty()) {
        std::ofstream out(file);
        writeMotion(out, frames, isPendulum ? "Pendulum, from 1.2 rad" : "Slider-crank, crank started at 6 rad/s",
                    isPendulum ? "x / m" : "slider position s / m");
        if (!out.flush())
            throw std::runtime_error("cannot write " + file);
    }
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    Options options("pendulum", "pendulum|slider-crank", "Reduces the index of a mechanism's equations and moves it.");
    return guarded(options, [&] {
        double end = 4.0;
        double step = 0.002;
        std::string file;
        options.value("--end", "SECONDS", "time to stop at (4)", [&](const std::string& v) { end = positiveNumber(v); });
        options.value("--step", "SECONDS", "step of the integration (0.002)",
                      [&](const std::string& v) { step = positiveNumber(v); });
        options.text("--svg", "FILE", "picture of the motion", file);
        const std::vector<std::string> words = options.read(argc, argv);
        if (options.helpWanted()) {
            std::cout << options.help();
            return 0;
        }
        if (words.size() != 1 || (words[0] != "pendulum" && words[0] != "slider-crank"))
            throw UsageError("say pendulum or slider-crank");
        if (!(end / step < 1e7))
            throw UsageError("--end and --step make more than 10^7 steps");
        return run(words[0], end, step, file);
    });
}
