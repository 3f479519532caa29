// SPDX-License-Identifier: MIT
// Planes of samples as the page shows them.
#pragma once

#include <array>
#include <vector>

#include "diffusefilt_page.h"

namespace diffusefilt_page {

// How a plane stands on the page: the axes that run to the right and down, each turned round or
// not, and the one that the plane stands on, -1 in a picture.
struct Layout {
    int across = 0, down = 1, along = -1;
    bool mirrored = false, upsideDown = false;
};

// Planes of a body stand upright, as radiologists show them: anterior or superior up, the patient's
// right side or front at the left. Others run as in the file.
Layout layoutAlong(const std::vector<Axis>& axes, int along);

// The letters R, L, A, P, I, S at the left, right, upper and lower side; empty if unknown.
std::array<std::string, 4> sidesOf(const Layout& layout, const std::vector<Axis>& axes);

// "Axial" and the like, or the axes, "x, y".
std::string nameOf(const Layout& layout, const std::vector<Axis>& axes);

// A rectangle of a plane on the page, in samples.
struct Region {
    int left = 0, top = 0, width = 0, height = 0;
};

struct Plane {
    int width = 0, height = 0;
    std::vector<std::vector<float>> channels;  // row after row
};

// Every `factor`-th sample of every `factor`-th row, or the mean of each such block.
struct Reduction {
    int factor = 1;
    bool averaged = false;
};

Region wholePlane(const Samples& samples, const Layout& layout);

// As large as the pixels allow and in the middle.
Region middleOf(const Region& whole, double pixels);

Plane takePlane(const std::vector<Samples>& channels, const Layout& layout, int index,
                const Region& region, const Reduction& reduction);

// What `after` lacks of `before`.
Plane difference(const Plane& before, const Plane& after);

// Of the finite samples.
double rootMeanSquare(const Plane& plane);

}  // namespace diffusefilt_page
