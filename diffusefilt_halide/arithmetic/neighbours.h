// SPDX-License-Identifier: MIT
// The neighbours of an element by name, as offsets of their coordinates.
#pragma once

#include "pipelines/axes.h"

namespace diffusefilt {

struct Offset {
    int dx, dy, dz;
};

constexpr Offset centre{0, 0, 0};

// 2-D. North is the row with the smaller y, west the column with the smaller x.
constexpr Offset north{0, -1, 0};
constexpr Offset south{0, +1, 0};
constexpr Offset west{-1, 0, 0};
constexpr Offset east{+1, 0, 0};
constexpr Offset northWest{-1, -1, 0};
constexpr Offset northEast{+1, -1, 0};
constexpr Offset southWest{-1, +1, 0};
constexpr Offset southEast{+1, +1, 0};

// 3-D: faces, edges and corners of the 3 x 3 x 3 cube.
constexpr Offset F1{0, 0, +1};
constexpr Offset F2{0, 0, -1};
constexpr Offset F3{-1, 0, 0};
constexpr Offset F4{+1, 0, 0};
constexpr Offset F5{0, -1, 0};
constexpr Offset F6{0, +1, 0};

constexpr Offset E1{-1, -1, 0};
constexpr Offset E2{+1, -1, 0};
constexpr Offset E3{-1, +1, 0};
constexpr Offset E4{+1, +1, 0};
constexpr Offset E5{-1, 0, +1};
constexpr Offset E6{+1, 0, +1};
constexpr Offset E7{0, -1, +1};
constexpr Offset E8{0, +1, +1};
constexpr Offset E9{-1, 0, -1};
constexpr Offset E10{+1, 0, -1};
constexpr Offset E11{0, -1, -1};
constexpr Offset E12{0, +1, -1};

constexpr Offset C1{-1, -1, +1};
constexpr Offset C2{-1, -1, -1};
constexpr Offset C3{+1, -1, +1};
constexpr Offset C4{+1, -1, -1};
constexpr Offset C5{-1, +1, +1};
constexpr Offset C6{-1, +1, -1};
constexpr Offset C7{+1, +1, +1};
constexpr Offset C8{+1, +1, -1};

// Of the rows that an element reads, the one that no row of the output before its own has
// read.
[[gnu::always_inline]] constexpr Offset newestRow(PipelineVariant variant) noexcept {
    if (variant.dimensions == 2) return south;
    return variant.connectivity == Connectivity::minimal ? F1 : Offset{0, +1, +1};
}

}  // namespace diffusefilt
