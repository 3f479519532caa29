// SPDX-License-Identifier: MIT
// What is counted over all samples.
#pragma once

#include <vector>

#include "diffusefilt_page.h"

namespace diffusefilt_page {

// Shares of all values that were counted, in bins of equal width; the rest lies outside.
struct Histogram {
    Range range;
    std::vector<double> shares;
    double below = 0, above = 0;
};

struct Removed {
    double mean = 0, rootMeanSquare = 0;  // of before - after, where both are finite
    Range range;
    Histogram histogram;  // to four times the root mean square on both sides, 0 in the middle
};

// Throws nothing.
Removed measureRemoved(const std::vector<Samples>& before, const std::vector<Samples>& after);

// The sizes of the differences of neighbours along the axes, from 0 to about four thresholds; the
// gradients that the step compares with the threshold.
Histogram measureGradients(const std::vector<Samples>& channels, double threshold, int dimensions);

// What holds all finite samples but a thousandth at each end.
Range commonGreys(const std::vector<Samples>& channels);

}  // namespace diffusefilt_page
