// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <exception>

#include "diffusefilt_noise.h"
#include "finest.h"
#include "risk.h"
#include "tiles.h"

namespace {

// Of a picture without noise.
double thresholdOfRange(const std::vector<noise::Tile>& tiles) {
    double lowest = HUGE_VAL;
    double highest = -HUGE_VAL;
    for (const noise::Tile& tile : tiles) {
        for (const double value : tile.values) {
            if (!std::isfinite(value)) continue;
            lowest = std::min(lowest, value);
            highest = std::max(highest, value);
        }
    }
    return highest > lowest ? (highest - lowest) / 1000 : 1;
}

// More digits mean nothing, and would differ between instruction sets.
double inThreeDigits(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.3g", value);
    return std::strtod(text, nullptr);
}

}  // namespace

extern "C" int diffusefilt_noise_estimate(const halide_buffer_t* channels, int count,
                                          diffusefilt_noise_step step, int iterations,
                                          diffusefilt_noise* found) {
    try {
        const std::vector<noise::Tile> tiles = noise::tilesOf(channels, count);
        if (tiles.empty()) return 1;
        const noise::Correlation correlation = noise::correlationOf(tiles);
        *found = {noise::sigmaOf(tiles), correlation.value, correlation.isSure ? 1 : 0, 0};
        if (iterations < 1) return 0;
        found->threshold = found->sigma > 0
                               ? noise::bestThreshold(tiles, found->sigma, step, iterations)
                               : thresholdOfRange(tiles);
        found->threshold = inThreeDigits(found->threshold);
        return 0;
    } catch (const std::exception&) {
        return 1;
    }
}
