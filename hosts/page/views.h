// SPDX-License-Identifier: MIT
// The pictures of before, after and what was removed.
#pragma once

#include <string>
#include <vector>

#include "plane.h"

namespace diffusefilt_page {

struct Slice {
    int index = 0;                       // on the axis that it stands on
    std::string before, after, removed;  // addresses of pictures
};

// A picture, a part of it, or one way to cut a volume.
struct View {
    std::string name;
    Layout layout;
    Region region;
    Reduction reduction;
    std::vector<Slice> slices;
};

// What the views may hold.
struct Room {
    double samples = 0;     // in one set of pictures, before compression
    double characters = 0;  // in all pictures
};

// Of a picture, the whole, and besides it a part at full size where that has to be reduced; of a
// volume, as many slices in three directions as there is room for, three at least.
std::vector<View> makeViews(const Content& content, const Range& greys, double removedScale,
                            const Room& room);

}  // namespace diffusefilt_page
