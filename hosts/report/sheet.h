// SPDX-License-Identifier: MIT
// Pictures beside each other, to be looked at.
#pragma once

#include <cstdint>
#include <vector>

#include "samples.h"

namespace diffuse {

struct Shown {
    std::vector<Channel> channels;  // greys, or red, green and blue; all of 2 or 3 dimensions
    // Of each axis in the body: left, posterior, superior; empty where they are unknown.
    std::vector<std::vector<double>> directions;
};

struct Sheet {
    int width = 0, height = 0, channels = 1;
    std::vector<std::uint8_t> samples = {};  // row after row, the channels of a pixel together
};

// One sheet of all `pictures`, which are of equal shape, with white gaps between the panels and one
// pixel for each sample. All are scaled alike: the range of the first becomes 0 to 255. Pictures
// stand in one row; each volume takes a row of its own: its central axial, coronal and sagittal
// slice. Slices of a head stand upright, as radiologists show them: anterior or superior up, the
// patient's right side or front at the left.
Sheet montage(const std::vector<Shown>& pictures);

}  // namespace diffuse
