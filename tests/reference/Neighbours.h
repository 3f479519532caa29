// SPDX-License-Identifier: MIT
// The neighbours of an element, in the order of their names, and what is known of each once its
// difference to the centre has been taken.
#pragma once

#include <span>

#include "pipelines/axes.h"

namespace reference {

struct Offset {
    int dx, dy, dz;
};

// N, S, W, E, NW, NE, SW, SE: north is y - 1, west x - 1. minimal reads the first 4.
inline constexpr Offset planeOffsets[] = {
    {0, -1, 0},  {0, +1, 0},  {-1, 0, 0},  {+1, 0, 0},  //
    {-1, -1, 0}, {+1, -1, 0}, {-1, +1, 0}, {+1, +1, 0},
};

// Faces F1 to F6, edges E1 to E12, corners C1 to C8 of the cube. minimal reads the faces.
inline constexpr Offset volumeOffsets[] = {
    {0, 0, +1},   {0, 0, -1},   {-1, 0, 0},   {+1, 0, 0},   {0, -1, 0},  {0, +1, 0},   //
    {-1, -1, 0},  {+1, -1, 0},  {-1, +1, 0},  {+1, +1, 0},  {-1, 0, +1}, {+1, 0, +1},  //
    {0, -1, +1},  {0, +1, +1},  {-1, 0, -1},  {+1, 0, -1},  {0, -1, -1}, {0, +1, -1},  //
    {-1, -1, +1}, {-1, -1, -1}, {+1, -1, +1}, {+1, -1, -1},                            //
    {-1, +1, +1}, {-1, +1, -1}, {+1, +1, +1}, {+1, +1, -1},
};

// Those of a stencil.
inline std::span<const Offset> neighboursOf(diffusefilt::PipelineVariant variant) {
    const bool minimal = variant.connectivity == diffusefilt::Connectivity::minimal;
    if (variant.dimensions == 2) return std::span(planeOffsets).first(minimal ? 4 : 8);
    return std::span(volumeOffsets).first(minimal ? 6 : 26);
}

// What the neighbours of one element pull with.
template <class T>
struct Pulls {
    T difference[26];   // neighbour - centre
    T conductance[26];  // 0 .. 1
};

}  // namespace reference
