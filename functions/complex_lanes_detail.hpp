// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

// Complex functions of single numbers for what the vector formulas do not cover: arguments near overflow, infinities,
// NaN, and the inverse functions off the real axis. They rest on the C99 complex routines. A number is a (re, im) pair
// that is overwritten. Compiled once, for any processor.

namespace qxkernels {

using LaneFunction = void (*)(double* z);
using LaneFunction2 = void (*)(double* x, const double* y);

void laneHypot(double* z); // (|z|, 0)
void laneExp(double* z);
void laneRealExp(double* z);
void laneRealSin(double* z);
void laneRealCos(double* z);
void laneRealTan(double* z);
double laneRealPow(double x, double y);
void laneSqrt(double* z);
void laneSin(double* z);
void laneCos(double* z);
void laneTan(double* z);
void laneSinh(double* z);
void laneCosh(double* z);
void laneTanh(double* z);
void laneAsin(double* z);
void laneAcos(double* z);
void laneAtan(double* z);
void laneAsinh(double* z);
void laneAcosh(double* z);
void laneAtanh(double* z);
/// x / y by Smith's method in long double. Smith, Algorithm 116: Complex division, Comm. ACM 5 (1962) 435.
void laneDivide(double* x, const double* y);
/// x^y for x other than 0.
void lanePow(double* x, const double* y);

} // namespace qxkernels
