// The neighbours of a plane and of a row as indices, after the boundary rule: formed once
// for each plane and each row, in tasks and in line.
#pragma once

#include "arithmetic/operands.h"

namespace diffusefilt {

// The index of coordinate (0, 0) of the planes that one plane of the output reads. In 2-D
// there is one, at `offset`.
template <int planes>
struct PlaneTerms {
    int64_t of[planes];

    // z - 1, z and z + 1, in an input of `extent` planes.
    [[gnu::always_inline]] static PlaneTerms around(Clamp clamp, int32_t z, int32_t extent,
                                                    int32_t stride, int64_t offset) noexcept
        requires(planes == 3) {
        PlaneTerms terms;
        for (int dz = -1; dz <= 1; ++dz) {
            terms.of[dz + 1] = plus(offsetOf(neighbourCoord(clamp, z, dz, extent), stride), offset);
        }
        return terms;
    }
};

// The rows y - 1, y and y + 1 of these planes.
template <class T, int planes>
[[gnu::always_inline]] inline Rows<T, planes> rowsAround(const T* host,
                                                         const PlaneTerms<planes>& planeTerms,
                                                         Clamp clamp, int32_t y, int32_t extent,
                                                         int32_t stride) noexcept {
    Rows<T, planes> rows;
    for (int dy = -1; dy <= 1; ++dy) {
        const int64_t rowTerm = offsetOf(neighbourCoord(clamp, y, dy, extent), stride);
        for (int p = 0; p < planes; ++p) {
            const auto index = static_cast<uintptr_t>(plus(rowTerm, planeTerms.of[p]));
            rows.column0[p][dy + 1] = reinterpret_cast<uintptr_t>(host) + index * sizeof(T);
        }
    }
    return rows;
}

}  // namespace diffusefilt
