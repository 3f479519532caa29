// SPDX-License-Identifier: MIT
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

enum class Edge { left, right };

// A vector that ends at the edge told and not at the other. The clamp acts on one lane of one
// column: that column is the centre's, moved by a lane.
template <class V, int planes, Edge edge>
struct EdgeOperands {
    const Rows<ElementOfLanes<V>, planes>& rows;
    int64_t x;

    [[gnu::always_inline]] V operator()(Offset o) const noexcept {
        constexpr int side = edge == Edge::left ? -1 : 1;
        const ElementOfLanes<V>* const at = rows.at(o, x);
        if (o.dx != side) return load<V>(at + o.dx);
        if constexpr (sizeof(V) == 16 || !rulesOf(compiledFor).worksInHalves) {
            return movedBy<side>(load<V>(at));
        } else {  // what crosses the middle of a vector takes many instructions there
            using Half = Lanes<ElementOfLanes<V>, lanesOf<V> / 2>;
            constexpr int half = lanesOf<Half>;
            if constexpr (edge == Edge::left) {
                return joined(movedBy<-1>(load<Half>(at)), load<Half>(at + half - 1));
            } else {
                return joined(load<Half>(at + 1), movedBy<1>(load<Half>(at + half)));
            }
        }
    }
};

// Any vector, also one that reaches beyond the input: read lane by lane, all clamped.
template <class V, int planes>
class ClampedOperands {
public:
    [[gnu::always_inline]] ClampedOperands(const Rows<ElementOfLanes<V>, planes>& rows, int32_t x,
                                           int32_t width) noexcept
        : rows_(rows) {
        for (int k = 0; k < lanes + 2; ++k) columns_[k] = clampCoord(x - 1 + int64_t{k}, width);
    }

    [[gnu::always_inline]] V operator()(Offset o) const noexcept {
        return fromLanes<V>([&](int i) __attribute__((always_inline)) {
            return elementAt(rows_, o, columns_[o.dx + 1 + i]);
        });
    }

private:
    static constexpr int lanes = lanesOf<V>;

    const Rows<ElementOfLanes<V>, planes>& rows_;
    int64_t columns_[lanes + 2];  // from x - 1 on
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
