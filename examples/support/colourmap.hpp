// SPDX-License-Identifier: LicenseRef-qxkernel
#pragma once

#include <string>

namespace examples {

/// Colours for a number in [0, 1], perceptually uniform: equal steps of the number are equal steps of lightness.
///
/// Sequential runs from dark indigo over red and orange to pale yellow and is made in the Oklab colour space, whose
/// coordinates follow the eye (B. Ottosson, "A perceptual color space for image processing", 2020): lightness rises
/// linearly, the hue turns. Diverging runs from blue over near white to red with the same lightness on both sides, for
/// values around a meaningful zero. Both can be read in greys and with the common colour blindnesses.
enum class ColourMap { Sequential, Diverging };

/// "#rrggbb"
std::string colour(ColourMap map, double t);

} // namespace examples
