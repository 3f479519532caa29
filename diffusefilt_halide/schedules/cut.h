// How a dimension of the output is cut, so that most of it runs with the fewest clamps.
// One idea serves planes, rows and columns, in tasks and in line:
//   minimal  begin .. innerBegin .. innerEnd .. end   with clamps: both, none, both
//   maximal  begin .. upperBegin .. end               with clamps: lower, both
// A dimension is cut only inside a range of the next outer one that is free of the upper
// clamp; otherwise it is one range with all clamps. Ranges may be empty.
#pragma once

#include "PipelineVariant.h"
#include "arithmetic/boundary.h"

namespace diffusefilt {

// A range of planes, rows, columns or vectors, and what its neighbours still need.
struct Range {
    int32_t begin;
    int32_t end;
    Clamp clamp;
};

struct Cut {
    Range ranges[3];
    int count;

    [[gnu::always_inline]] constexpr const Range* begin() const noexcept { return ranges; }
    [[gnu::always_inline]] constexpr const Range* end() const noexcept { return ranges + count; }
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

// The lower bound is where the range before ends, so that no range has a negative length.
[[gnu::always_inline]] constexpr int32_t upperEndOf(int32_t lowerBound, int32_t extent,
                                                    int32_t end) noexcept {
    return larger(lowerBound, smaller(minus(extent, 1), end));
}

template <Connectivity connectivity>
[[gnu::always_inline]] constexpr Cut cutOfCoordinates(int32_t begin, int32_t end,
                                                      int32_t extent) noexcept {
    if constexpr (connectivity == Connectivity::minimal) {
        const int32_t innerBegin = innerBeginOf(begin, end);
        return cutOfMinimal(begin, innerBegin, upperEndOf(innerBegin, extent, end), end);
    } else {
        return cutOfMaximal(begin, upperEndOf(begin, extent, end), end);
    }
}

}  // namespace diffusefilt
