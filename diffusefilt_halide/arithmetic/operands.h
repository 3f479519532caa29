// How the operands of one element or vector reach the registers, after the boundary
// rule. Rows are clamped by the schedule and stand here as indices; columns are clamped
// here.
#pragma once

#include "arithmetic/boundary.h"
#include "arithmetic/lanes.h"
#include "arithmetic/neighbours.h"

namespace diffusefilt {

// The rows around the one that is filtered, in one plane (2-D) or three (3-D): for each
// the address of the element at column 0. That column need not lie in the input, so the
// addresses are numbers, which wrap, and become pointers with the column.
template <class T, int planes>
struct Rows {
    uintptr_t column0[planes][3];

    [[gnu::always_inline]] const T* at(Offset o, int64_t column) const noexcept {
        const uintptr_t row = column0[planes == 3 ? o.dz + 1 : 0][o.dy + 1];
        // NOLINTNEXTLINE(performance-no-int-to-ptr): see above
        return reinterpret_cast<const T*>(row + static_cast<uintptr_t>(column) * sizeof(T));
    }
};

template <class T, int planes>
[[gnu::always_inline]] inline T elementAt(const Rows<T, planes>& rows, Offset o,
                                          int64_t column) noexcept {
    return reinterpret_cast<const Unaligned<T>*>(rows.at(o, column))->value;
}

// A vector at columns x, x + 1, ..., all of whose neighbours lie inside: read whole.
template <class V, int planes>
struct WholeOperands {
    const Rows<ElementOfLanes<V>, planes>& rows;
    int64_t x;

    [[gnu::always_inline]] V operator()(Offset o) const noexcept {
        return load<V>(rows.at(o, x + o.dx));
    }
};

// A vector at an edge. For each of the three columns by itself: where no clamp acts on
// any lane the vector is read whole, else lane by lane.
template <class V, int planes>
class ClampedOperands {
public:
    [[gnu::always_inline]] ClampedOperands(const Rows<ElementOfLanes<V>, planes>& rows, int32_t x,
                                           int32_t width) noexcept
        : rows_(rows), x_(x) {
        for (int dx = -1; dx <= 1; ++dx) {
            const int64_t first = x_ + dx;
            whole_[dx + 1] = first >= 0 && first + lanes <= width;
            if (whole_[dx + 1]) continue;
            for (int i = 0; i < lanes; ++i) {
                columns_[dx + 1][i] = clampCoord(first + i, width);
            }
        }
    }

    [[gnu::always_inline]] V operator()(Offset o) const noexcept {
        if (whole_[o.dx + 1]) return load<V>(rows_.at(o, x_ + o.dx));
        return fromLanes<V>([&](int i) __attribute__((always_inline)) {
            return elementAt(rows_, o, columns_[o.dx + 1][i]);
        });
    }

private:
    static constexpr int lanes = LanesTraits<V>::count;

    const Rows<ElementOfLanes<V>, planes>& rows_;
    int64_t x_;
    bool whole_[3];
    int64_t columns_[3][lanes];
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
