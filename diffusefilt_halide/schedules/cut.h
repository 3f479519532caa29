// How a dimension of the output is cut, so that most of it runs with the fewest clamps.
// One idea serves planes, rows and columns, in tasks and in line:
//   minimal  begin .. innerBegin .. innerEnd .. end   with clamps: both, none, both
//   maximal  begin .. upperBegin .. end               with clamps: lower, both
// A dimension is cut only inside a part of the next outer one that is free of the upper
// clamp; otherwise it is one part with all clamps. Parts may be empty.
#pragma once

#include "PipelineVariant.h"
#include "arithmetic/boundary.h"

namespace diffusefilt {

// A range of planes, rows, columns or vectors, and what its neighbours still need.
struct Part {
    int32_t begin;
    int32_t end;
    Clamp clamp;
};

struct Cut {
    Part parts[3];
    int count;

    [[gnu::always_inline]] constexpr const Part* begin() const noexcept { return parts; }
    [[gnu::always_inline]] constexpr const Part* end() const noexcept { return parts + count; }
};

[[gnu::always_inline]] constexpr Cut uncut(int32_t begin, int32_t end) noexcept {
    return {{{begin, end, Clamp::both}, {end, end, Clamp::both}, {end, end, Clamp::both}}, 1};
}

[[gnu::always_inline]] constexpr Cut cutOfMinimal(int32_t begin, int32_t innerBegin,
                                                  int32_t innerEnd, int32_t end) noexcept {
    return {{{begin, innerBegin, Clamp::both},
             {innerBegin, innerEnd, Clamp::none},
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

// The limits of the cut of the coordinates from `begin` to `end`, over an input of
// `extent` coordinates.
[[gnu::always_inline]] constexpr int32_t innerBeginOf(int32_t begin, int32_t end) noexcept {
    return smaller(larger(begin, 1), end);
}

// The lower bound is where the part before ends, so that no part has a negative length.
[[gnu::always_inline]] constexpr int32_t innerEndOf(int32_t lowerBound, int32_t extent,
                                                    int32_t end) noexcept {
    return larger(lowerBound, smaller(minus(extent, 1), end));
}

template <Connectivity connectivity>
[[gnu::always_inline]] constexpr Cut cutOfCoordinates(int32_t begin, int32_t end,
                                                      int32_t extent) noexcept {
    if constexpr (connectivity == Connectivity::minimal) {
        const int32_t innerBegin = innerBeginOf(begin, end);
        return cutOfMinimal(begin, innerBegin, innerEndOf(innerBegin, extent, end), end);
    } else {
        return cutOfMaximal(begin, innerEndOf(begin, extent, end), end);
    }
}

}  // namespace diffusefilt
