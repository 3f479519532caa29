// The neighbours of an element: their names, their offsets, and what is known of
// each once its difference to the centre has been taken.
#pragma once

namespace reference {

struct Offset {
    int dx, dy, dz;
};

// minimal reads the first 4, maximal all 8.
enum PlaneNeighbour { north, south, west, east, northWest, northEast, southWest, southEast };

inline constexpr Offset planeOffsets[] = {
    {0, -1, 0},   // north
    {0, +1, 0},   // south
    {-1, 0, 0},   // west
    {+1, 0, 0},   // east
    {-1, -1, 0},  // northWest
    {+1, -1, 0},  // northEast
    {-1, +1, 0},  // southWest
    {+1, +1, 0},  // southEast
};

// Faces, edges and corners of the cube. minimal reads the first 6, maximal all 26.
// clang-format off
enum VolumeNeighbour {
    F1, F2, F3, F4, F5, F6,
    E1, E2, E3, E4, E5, E6, E7, E8, E9, E10, E11, E12,
    C1, C2, C3, C4, C5, C6, C7, C8
};
// clang-format on

inline constexpr Offset volumeOffsets[] = {
    {0, 0, +1},    // F1
    {0, 0, -1},    // F2
    {-1, 0, 0},    // F3
    {+1, 0, 0},    // F4
    {0, -1, 0},    // F5
    {0, +1, 0},    // F6
    {-1, -1, 0},   // E1
    {+1, -1, 0},   // E2
    {-1, +1, 0},   // E3
    {+1, +1, 0},   // E4
    {-1, 0, +1},   // E5
    {+1, 0, +1},   // E6
    {0, -1, +1},   // E7
    {0, +1, +1},   // E8
    {-1, 0, -1},   // E9
    {+1, 0, -1},   // E10
    {0, -1, -1},   // E11
    {0, +1, -1},   // E12
    {-1, -1, +1},  // C1
    {-1, -1, -1},  // C2
    {+1, -1, +1},  // C3
    {+1, -1, -1},  // C4
    {-1, +1, +1},  // C5
    {-1, +1, -1},  // C6
    {+1, +1, +1},  // C7
    {+1, +1, -1},  // C8
};

inline constexpr int mostNeighbours = 26;

// What the neighbours of one element pull with, indexed by the names above.
template <class T>
struct Pulls {
    T difference[mostNeighbours];   // neighbour - centre
    T conductance[mostNeighbours];  // 0 .. 1

    // The flux of a neighbour as a product rounded by itself.
    T operator()(int neighbour) const { return conductance[neighbour] * difference[neighbour]; }
};

}  // namespace reference
