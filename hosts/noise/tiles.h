// SPDX-License-Identifier: MIT
// What an estimate looks at: tiles spread evenly over a picture, so that its cost does not grow
// with the picture.
#pragma once

#include <HalideRuntime.h>

#include <array>
#include <cstddef>
#include <vector>

namespace noise {

using Extents = std::array<int, 3>;  // the fastest axis first; 1 where a tile has no such axis

constexpr std::size_t sizeOf(const Extents& extents) {
    return std::size_t(extents[0]) * extents[1] * extents[2];
}

struct Tile {
    int dimensions;  // 2 or 3
    Extents extents;
    std::vector<double> values;
    // Whether noise shows in a value: it is finite, and neither the lowest nor the highest of its
    // channel, where noise was cut off or there was none. The background of most medical volumes
    // is exactly 0.
    std::vector<bool> moves;
};

// Of all channels. Empty if they have no type or number of dimensions that is known, or not one
// shape.
std::vector<Tile> tilesOf(const halide_buffer_t* channels, int count);

}  // namespace noise
