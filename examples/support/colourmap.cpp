// SPDX-License-Identifier: LicenseRef-qxkernel
#include "colourmap.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

namespace examples {
namespace {

using Rgb = std::array<double, 3>;

// Oklab lightness, chroma and hue (in turns) to linear light.
Rgb linearLight(double lightness, double chroma, double turns)
{
    const double a = chroma * std::cos(2.0 * M_PI * turns);
    const double b = chroma * std::sin(2.0 * M_PI * turns);
    const auto cube = [](double v) { return v * v * v; };
    const double l = cube(lightness + 0.3963377774 * a + 0.2158037573 * b);
    const double m = cube(lightness - 0.1055613458 * a - 0.0638541728 * b);
    const double s = cube(lightness - 0.0894841775 * a - 1.2914855480 * b);
    return {4.0767416621 * l - 3.3077115913 * m + 0.2309699292 * s,
            -1.2684380046 * l + 2.6097574011 * m - 0.3413193965 * s,
            -0.0041960863 * l - 0.7034186147 * m + 1.7076147010 * s};
}

// A colour that the screen cannot show loses chroma until it can; lightness and hue stay.
Rgb shownLight(double lightness, double chroma, double turns)
{
    const auto fits = [](const Rgb& c) {
        return std::all_of(c.begin(), c.end(), [](double v) { return v >= -1e-6 && v <= 1.0 + 1e-6; });
    };
    Rgb c = linearLight(lightness, chroma, turns);
    double low = 0.0;
    double high = chroma;
    for (int i = 0; i < 20 && !fits(c); ++i) {
        const double middle = 0.5 * (low + high);
        const Rgb trial = linearLight(lightness, middle, turns);
        (fits(trial) ? low : high) = middle;
        if (i == 19)
            c = linearLight(lightness, low, turns);
    }
    return c;
}

double ramp(double from, double to, double t)
{
    return from + (to - from) * t;
}

} // namespace

std::string colour(ColourMap map, double t)
{
    t = std::clamp(t, 0.0, 1.0);
    Rgb c;
    if (map == ColourMap::Sequential) {
        const double bump = std::sin(M_PI * std::pow(t, 0.85));
        c = shownLight(ramp(0.20, 0.96, t), 0.075 + 0.135 * bump, ramp(-0.215, 0.305, t));
    } else {
        const double side = std::abs(2.0 * t - 1.0);
        const double hue = t < 0.5 ? ramp(0.66, 0.725, side) : ramp(0.16, 0.045, side);
        c = shownLight(ramp(0.965, 0.34, std::pow(side, 1.1)), 0.19 * std::pow(side, 0.75), hue);
    }
    char text[8];
    int byte[3];
    for (std::size_t k = 0; k < 3; ++k) {
        const double v = std::clamp(c[k], 0.0, 1.0);
        const double encoded = v <= 0.0031308 ? 12.92 * v : 1.055 * std::pow(v, 1.0 / 2.4) - 0.055;
        byte[k] = static_cast<int>(std::lround(255.0 * encoded)) & 0xff;
    }
    std::snprintf(text, sizeof text, "#%02x%02x%02x", static_cast<unsigned>(byte[0]) & 0xffu,
                  static_cast<unsigned>(byte[1]) & 0xffu, static_cast<unsigned>(byte[2]) & 0xffu);
    return text;
}

} // namespace examples
