// SPDX-License-Identifier: MIT
// What the finest structure of a picture tells of its noise.
#pragma once

#include <vector>

#include "tiles.h"

namespace noise {

// The standard deviation of white Gaussian noise; 0 if nothing is left to look at.
double sigmaOf(const std::vector<Tile>& tiles);

struct Correlation {
    double value = 0;     // of neighbouring samples' noise, as seen at the finest scale; 0 if white
    bool isSure = false;  // further from 0 than white noise gets
};

Correlation correlationOf(const std::vector<Tile>& tiles);

}  // namespace noise
