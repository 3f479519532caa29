// SPDX-License-Identifier: MIT
// How a dimension of the output is cut, so that most of it needs the fewest clamps.
//   minimal  begin .. innerBegin .. innerEnd .. end   with clamps: both, neither, both
//   maximal  begin .. upperBegin .. end               with clamps: lower, both
// In line, a dimension is cut only inside a band of the next outer one that is free of the upper
// clamp; otherwise it is one band with all clamps. Bands may be empty. The closure records tell
// the bands to whoever replaces the parallel loop; the tasks themselves go by columns alone, see
// rowPlan.h, and clamp every row and plane.
#pragma once

#include "arithmetic/boundary.h"
#include "schedules/closureRecords.h"

namespace diffusefilt {

// A band of planes, rows or columns, and what its neighbours still need.
struct Band {
    int32_t begin;
    int32_t end;
    Clamp clamp;
};

struct Cut {
    Band items[3];
    int count;

    [[gnu::always_inline]] constexpr const Band* begin() const noexcept { return items; }
    [[gnu::always_inline]] constexpr const Band* end() const noexcept { return items + count; }
};

[[gnu::always_inline]] constexpr Cut uncut(int32_t begin, int32_t end) noexcept {
    return {{{begin, end, Clamp::both}, {end, end, Clamp::both}, {end, end, Clamp::both}}, 1};
}

[[gnu::always_inline]] constexpr Cut cutOfMinimal(int32_t begin, int32_t innerBegin,
                                                  int32_t innerEnd, int32_t end) noexcept {
    return {{{begin, innerBegin, Clamp::both},
             {innerBegin, innerEnd, Clamp::neither},
             {innerEnd, end, Clamp::both}},
            3};
}

[[gnu::always_inline]] constexpr Cut cutOfMaximal(int32_t begin, int32_t upperBegin,
                                                  int32_t end) noexcept {
    return {{{begin, upperBegin, Clamp::lower},
             {upperBegin, end, Clamp::both},
             {end, end, Clamp::both}},
            2};
}

// The cut of a dimension of the output. An upper
// band begins no lower than the band before it, so that none has a negative length.
template <Connectivity connectivity>
[[gnu::always_inline]] constexpr Cut cutOf(const halide_dimension_t& input,
                                           const halide_dimension_t& output) noexcept {
    const int32_t begin = output.min;
    const int32_t end = plus(output.min, output.extent);
    const int32_t upperBegin = smaller(minus(input.extent, 1), end);
    if constexpr (connectivity == Connectivity::minimal) {
        const int32_t innerBegin = smaller(larger(begin, 1), end);
        return cutOfMinimal(begin, innerBegin, larger(innerBegin, upperBegin), end);
    } else {
        return cutOfMaximal(begin, larger(begin, upperBegin), end);
    }
}

[[gnu::always_inline]] constexpr int log2Of(int powerOfTwo) noexcept {
    int log2 = 0;
    while (1 << log2 < powerOfTwo) ++log2;
    return log2;
}

// Vectors whose last lane's neighbour, and whose last lane itself, lie inside without a
// shift, counted from a row's start; `span` may be negative.
template <class Int>
[[gnu::always_inline]] constexpr Int vectorsWithin(Int span, int lanes) noexcept {
    return (span >> log2Of(lanes)) + 1;
}

}  // namespace diffusefilt
