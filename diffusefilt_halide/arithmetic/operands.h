// How the operands of one element or vector reach the registers, after the boundary
// rule. Rows are clamped by the schedule and stand here as indices; columns are clamped
// here.
#pragma once

#include "arithmetic/boundary.h"
#include "arithmetic/lanes.h"
#include "arithmetic/neighbours.h"

namespace diffusefilt {

// The rows around the one that is filtered, in one plane (2-D) or three (3-D): for each
// the index, from `host`, of the element at column 0.
template <class T, int planes>
struct Rows {
    const T* host;
    int64_t base[planes][3];

    [[gnu::always_inline]] int64_t at(int dz, int dy) const noexcept {
        return base[planes == 3 ? dz + 1 : 0][dy + 1];
    }
};

template <class T, int planes>
[[gnu::always_inline]] inline T elementAt(const Rows<T, planes>& rows, Offset o,
                                          int32_t column) noexcept {
    return reinterpret_cast<const Unaligned<T>*>(rows.host + (rows.at(o.dz, o.dy) + column))->value;
}

// A vector at columns x, x + 1, ..., all of whose neighbours lie inside: read whole.
template <class V, int planes>
struct WholeOperands {
    const Rows<ElementOfLanes<V>, planes>& rows;
    int64_t x;

    [[gnu::always_inline]] V operator()(Offset o) const noexcept {
        return load<V>(rows.host + (rows.at(o.dz, o.dy) + x + o.dx));
    }
};

// A vector at an edge. For each of the three columns by itself: where no clamp acts on
// any lane the vector is read whole, else lane by lane.
template <class V, int planes>
struct ClampedOperands {
    static constexpr int lanes = LanesTraits<V>::count;

    const Rows<ElementOfLanes<V>, planes>& rows;
    Clamp clamp;
    int32_t x;
    int32_t width;

    [[gnu::always_inline]] V operator()(Offset o) const noexcept {
        const int32_t first = plus(x, o.dx);
        if (first >= 0 && first <= width - lanes) {
            return load<V>(rows.host + (rows.at(o.dz, o.dy) + first));
        }
        return fromLanes<V>([&](int i) __attribute__((always_inline)) {
            return elementAt(rows, o, neighbourCoord(clamp, plus(x, i), o.dx, width));
        });
    }
};

// One element, its columns clamped as far as the run it stands in needs it.
template <class T, int planes, Clamp clamp>
struct ElementOperands {
    const Rows<T, planes>& rows;
    int32_t x;
    int32_t width;

    [[gnu::always_inline]] T operator()(Offset o) const noexcept {
        return elementAt(rows, o, neighbourCoord(clamp, x, o.dx, width));
    }
};

}  // namespace diffusefilt
