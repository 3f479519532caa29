// How a dimension of the output is cut, so that most of it runs with the fewest clamps.
// One idea serves planes, rows and columns, in tasks and in line:
//   minimal  begin .. innerBegin .. innerEnd .. end   with clamps: both, neither, both
//   maximal  begin .. upperBegin .. end               with clamps: lower, both
// A dimension is cut only inside a band of the next outer one that is free of the upper
// clamp; otherwise it is one band with all clamps. Bands may be empty. In line the bands are
// formed from the shapes; a task reads their limits from its record.
#pragma once

#include "arithmetic/boundary.h"
#include "schedules/closureRecords.h"

namespace diffusefilt {

// A band of planes, rows, columns or vectors, and what its neighbours still need.
struct Band {
    int32_t begin;
    int32_t end;
    Clamp clamp;
};

template <class T>
struct UpToThree {
    T items[3];
    int count;

    [[gnu::always_inline]] constexpr const T* begin() const noexcept { return items; }
    [[gnu::always_inline]] constexpr const T* end() const noexcept { return items + count; }
};

using Cut = UpToThree<Band>;

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

template <Connectivity connectivity, class T>
[[gnu::always_inline]] constexpr Clamp rowClampAt(const RowClosure<connectivity, T>& record,
                                                  int32_t y) noexcept {
    if constexpr (connectivity == Connectivity::minimal) {
        const bool interior = record.interiorRowBegin <= y && y < record.interiorRowEnd;
        return interior ? Clamp::neither : Clamp::both;
    } else {
        return y < record.unclampedRowEnd ? Clamp::lower : Clamp::both;
    }
}

template <Connectivity connectivity, class T>
[[gnu::always_inline]] constexpr Clamp planeClampAt(const PlaneClosure<connectivity, T>& record,
                                                    int32_t z) noexcept {
    if constexpr (connectivity == Connectivity::minimal) {
        const bool interior = record.interiorPlaneBegin <= z && z < record.interiorPlaneEnd;
        return interior ? Clamp::neither : Clamp::both;
    } else {
        return z < record.unclampedPlaneEnd ? Clamp::lower : Clamp::both;
    }
}

// The groups of rows of a plane.
template <Connectivity connectivity, class T>
[[gnu::always_inline]] constexpr Cut rowCut(const PlaneClosure<connectivity, T>& record,
                                            Clamp planeClamp) noexcept {
    if (planeClamp == Clamp::both) {
        return uncut(record.outMin1, plus(record.outMin1, record.outExtent1));
    }
    if constexpr (connectivity == Connectivity::minimal) {
        return cutOfMinimal(record.outMin1, record.interiorRowBegin, record.interiorRowEnd,
                            record.outEnd1);
    } else {
        return cutOfMaximal(record.outMin1, record.unclampedRowEnd, record.outEnd1);
    }
}

// The cut of a row, in vectors of L lanes.
template <template <Connectivity, class> class Record, Connectivity connectivity, class T>
[[gnu::always_inline]] constexpr Cut vectorCut(const Record<connectivity, T>& record,
                                               Clamp rowClamp, int lanes) noexcept {
    if (rowClamp == Clamp::both) return uncut(0, record.vectorCount);
    if constexpr (connectivity == Connectivity::minimal) {
        // The counts of a row that ends at the highest coordinate wrap; no vector stands
        // before the row's start all the same.
        return cutOfMinimal(0, larger(record.leftVectorCount, 0), record.interiorVectorEnd,
                            record.vectorCount);
    } else {
        const int32_t span = record.unclampedSpan;
        return cutOfMaximal(0, span < 0 ? 0 : vectorsWithin(span, lanes), record.vectorCount);
    }
}

}  // namespace diffusefilt
