// SPDX-License-Identifier: MIT
// Planes as pictures that a browser shows.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "plane.h"

namespace diffusefilt_page {

// The plane as the address of a PNG picture in 8 bits; what is no number is black. Samples of one
// channel that are told as differences go from blue by white to orange.
// Both throw std::runtime_error if the encoder fails.
std::string pictureOf(const Plane& plane, const Range& greys);
std::string pictureOfDifference(const Plane& plane, double scale);

// What the differences -scale to scale are coloured with, in equal steps, as CSS knows it.
std::vector<std::string> differenceColours(int count);

}  // namespace diffusefilt_page
