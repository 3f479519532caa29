// SPDX-License-Identifier: MIT
// What other thresholds and numbers of steps make of a part of the input.
#pragma once

#include <vector>

#include "plane.h"

namespace diffusefilt_page {

struct Cell {
    double threshold = 0;
    int steps = 0;
    Plane plane;
    double removed = 0;  // root mean square of what this takes away from the part
};

struct Sheet {
    Layout layout;
    int index = 0;   // of the plane, in a volume
    Region region;   // of the part in that plane
    int margin = 0;  // samples around it that were filtered along, where there are any
    Plane before;
    std::vector<Cell> cells;  // steps by steps, each with all thresholds in rising order
};

constexpr int sheetThresholds = 5;

// The part is the middle of the picture, or of the central plane on the last axis, of at most this
// number of samples in all channels. It is what the same filtering of the whole makes of it, as
// long as there are no more steps than the margin has samples.
Sheet makeSheet(const Content& content, double samples);

}  // namespace diffusefilt_page
