// SPDX-License-Identifier: MIT
// The threshold that leaves the smallest error, found by trying some.
#pragma once

#include <vector>

#include "diffusefilt_noise.h"
#include "tiles.h"

namespace noise {

// For noise of standard deviation `sigma` > 0, before this number of steps.
// Throws std::runtime_error if a step fails.
double bestThreshold(const std::vector<Tile>& tiles, double sigma, diffusefilt_noise_step step,
                     int iterations);

}  // namespace noise
