// SPDX-License-Identifier: MIT
// The neighbours of a plane and of a row as addresses, after the boundary rule, in tasks and in
// line.
#pragma once

#include "arithmetic/operands.h"

namespace diffusefilt {

// A distance in memory; it wraps.
template <class T>
[[gnu::always_inline]] constexpr uintptr_t bytesOf(int64_t elements) noexcept {
    return static_cast<uintptr_t>(elements) * sizeof(T);
}

// The addresses of coordinate (0, 0) of the planes that one plane of the output reads. In 2-D
// there is one, `offset` elements behind the host pointer.
template <int planes>
struct Planes {
    uintptr_t at[planes];

    template <class T>
    [[gnu::always_inline]] static Planes only(const T* host, int64_t offset) noexcept {
        return {{reinterpret_cast<uintptr_t>(host) + bytesOf<T>(offset)}};
    }

    // z - 1, z and z + 1, in an input of `extent` planes.
    template <class T>
    [[gnu::always_inline]] static Planes around(const T* host, int64_t offset, Clamp clamp,
                                                int32_t z, int32_t extent,
                                                int32_t stride) noexcept {
        const auto plane = [=](int dz) __attribute__((always_inline)) {
            const int64_t term = offsetOf(neighbourCoord(clamp, z, dz, extent), stride);
            return reinterpret_cast<uintptr_t>(host) + bytesOf<T>(plus(term, offset));
        };
        return {{plane(-1), plane(0), plane(+1)}};
    }
};

// The rows y - 1, y and y + 1 of a plane, as distances from its row 0.
template <class T>
struct RowTerms {
    uintptr_t of[3];

    [[gnu::always_inline]] static uintptr_t term(Clamp clamp, int32_t y, int dy, int32_t extent,
                                                 int32_t stride) noexcept {
        return bytesOf<T>(offsetOf(neighbourCoord(clamp, y, dy, extent), stride));
    }

    [[gnu::always_inline]] static RowTerms around(Clamp clamp, int32_t y, int32_t extent,
                                                  int32_t stride) noexcept {
        return {{term(clamp, y, -1, extent, stride), term(clamp, y, 0, extent, stride),
                 term(clamp, y, +1, extent, stride)}};
    }

    // From those around y - 1 to those around y: the rule gives two of the rows again.
    [[gnu::always_inline]] void goOnTo(int32_t y, int32_t extent, int32_t stride) noexcept {
        of[0] = of[1];
        of[1] = of[2];
        of[2] = term(Clamp::both, y, +1, extent, stride);
    }

    template <int planes>
    [[gnu::always_inline]] Rows<T, planes> in(Planes<planes> plane) const noexcept {
        Rows<T, planes> rows;
        for (int p = 0; p < planes; ++p) {
            for (int dy = 0; dy < 3; ++dy) rows.column0[p][dy] = plane.at[p] + of[dy];
        }
        return rows;
    }
};

}  // namespace diffusefilt
