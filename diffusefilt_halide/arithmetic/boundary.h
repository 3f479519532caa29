// SPDX-License-Identifier: MIT
// The boundary rule: a coordinate outside the image is replaced by the nearest one
// inside it. The range is 0 to n - 1, with n the extent of the input in that
// dimension; the input's min is no part of it.
#pragma once

#include "arithmetic/coordinates.h"

namespace diffusefilt {

template <class Int>
[[gnu::always_inline]] constexpr Int clampCoord(Int v, int32_t n) noexcept {
    return larger(smaller(v, Int{minus(n, 1)}), Int{0});
}

// What a loop's bounds leave to be clamped. Each form gives the value of clampCoord for
// every coordinate that the loops using it can form:
//   neither  v - 1, v and v + 1 all lie inside;
//   lower    none of them lies above n - 1;
//   both     nothing is known.
enum class Clamp { both, lower, neither };

// The coordinate v - 1 under the rule. It is never formed below the range, so that the
// lowest coordinate of all has a neighbour too.
[[gnu::always_inline]] constexpr int32_t previousCoord(Clamp clamp, int32_t v, int32_t n) noexcept {
    if (clamp == Clamp::neither) return minus(v, 1);
    const int32_t m = clamp == Clamp::both ? smaller(v, n) : v;
    return m <= 1 ? 0 : m - 1;
}

[[gnu::always_inline]] constexpr int32_t sameCoord(Clamp clamp, int32_t v, int32_t n) noexcept {
    if (clamp == Clamp::both) return clampCoord(v, n);
    return clamp == Clamp::lower ? larger(v, 0) : v;
}

[[gnu::always_inline]] constexpr int32_t nextCoord(Clamp clamp, int32_t v, int32_t n) noexcept {
    if (clamp == Clamp::both) return clampCoord(plus(v, 1), n);
    return clamp == Clamp::lower ? larger(plus(v, 1), 0) : plus(v, 1);
}

// The coordinate v + step under the rule, for a step of -1, 0 or 1.
[[gnu::always_inline]] constexpr int32_t neighbourCoord(Clamp clamp, int32_t v, int step,
                                                        int32_t n) noexcept {
    if (step < 0) return previousCoord(clamp, v, n);
    return step == 0 ? sameCoord(clamp, v, n) : nextCoord(clamp, v, n);
}

}  // namespace diffusefilt
