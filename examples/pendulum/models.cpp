// SPDX-License-Identifier: LicenseRef-qxkernel
#include "reducedmotion.hpp"

#include <cmath>

namespace examples {

// m x'' = -p x,  m y'' = -p y - m g,  x^2 + y^2 = l^2;  p is the force in the rod by length.
// x comes last: x and x' are integrated, y follows from the constraint. That is sound as long as y is not 0.
MotionText pendulum(double startAngle)
{
    MotionText text;
    text.name = "pendulum";
    text.unknowns = {"p", "y", "x"};
    text.equations = {"m*d(d(x,t),t)+p*x", "m*d(d(y,t),t)+p*y+m*g", "x^2+y^2-l^2"};
    text.parameters = {{"m", 0.5}, {"g", 9.81}, {"l", 1.25}};
    const double l = text.parameters["l"];
    text.start = {{"x", l * std::sin(startAngle)}, {"xt", 0.0}, {"y", -l * std::cos(startAngle)}};
    text.energy = "m*(xt^2+y_dummy1^2)/2+m*g*y";
    return text;
}

// Lagrange's equations of the first kind: crank angle phi, rod angle psi, slider position s; p and q keep the crank pin
// and the rod together. The mass of the rod is shared between its ends, J2 is what inertia that leaves.
// phi comes last: the crank's angle and rate are integrated, all else follows while the rod is longer than the crank.
MotionText sliderCrank(double startRate)
{
    MotionText text;
    text.name = "slider-crank";
    text.unknowns = {"p", "q", "s", "psi", "phi"};
    text.equations = {"m*d(d(s,t),t)-p",
                      "J2*d(d(psi,t),t)-p*L*sin(psi)+q*L*cos(psi)",
                      "J1*d(d(phi,t),t)-p*r*sin(phi)+q*r*cos(phi)",
                      "r*cos(phi)+L*cos(psi)-s",
                      "r*sin(phi)+L*sin(psi)"};
    text.parameters = {{"m", 0.6}, {"J1", 0.02}, {"J2", 0.005}, {"r", 0.15}, {"L", 0.45}};
    text.start = {{"phi", 0.0}, {"phit", startRate}, {"psi", 0.0}, {"s", 0.6}};
    text.energy = "(J1*phit^2+J2*psi_dummy1^2+m*s_dummy1^2)/2";
    return text;
}

} // namespace examples
