// What a task reads from its record about the cut of its planes, rows and vectors.
#pragma once

#include "schedules/closureRecords.h"
#include "schedules/cut.h"

namespace diffusefilt {

[[gnu::always_inline]] constexpr int log2OfLanes(int lanes) noexcept {
    return lanes == 8 ? 3 : lanes == 4 ? 2 : 1;
}

// Vectors whose last lane's neighbour, and whose last lane itself, lie inside without a
// shift, counted from a row's start; `span` may be negative.
template <class Int>
[[gnu::always_inline]] constexpr Int vectorsWithin(Int span, int lanes) noexcept {
    return (span >> log2OfLanes(lanes)) + 1;
}

template <Connectivity connectivity, class T>
[[gnu::always_inline]] constexpr Clamp rowClampAt(const RowClosure<connectivity, T>& record,
                                                  int32_t y) noexcept {
    if constexpr (connectivity == Connectivity::minimal) {
        const bool interior = record.interiorRowBegin <= y && y < record.interiorRowEnd;
        return interior ? Clamp::none : Clamp::both;
    } else {
        return y < record.unclampedRowEnd ? Clamp::lower : Clamp::both;
    }
}

template <Connectivity connectivity, class T>
[[gnu::always_inline]] constexpr Clamp planeClampAt(const PlaneClosure<connectivity, T>& record,
                                                    int32_t z) noexcept {
    if constexpr (connectivity == Connectivity::minimal) {
        const bool interior = record.interiorPlaneBegin <= z && z < record.interiorPlaneEnd;
        return interior ? Clamp::none : Clamp::both;
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

// A segment of a row, in vectors. From wholeBegin to wholeEnd they are read whole: no clamp
// acts on them, and none is shifted.
struct Segment {
    int32_t begin, wholeBegin, wholeEnd, end;
};

struct Segments {
    Segment segments[3];
    int count;

    [[gnu::always_inline]] constexpr const Segment* begin() const noexcept { return segments; }
    [[gnu::always_inline]] constexpr const Segment* end() const noexcept {
        return segments + count;
    }
};

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

template <class Record>
[[gnu::always_inline]] constexpr Segment segmentOf(const Record& record, Range range,
                                                   int lanes) noexcept {
    if (range.clamp == Clamp::none) return {range.begin, range.begin, range.end, range.end};
    const int64_t first = record.outMin0;
    const int64_t last = smaller(record.lastVectorX, minus(record.inputMax0, lanes));
    const auto within = [&](int64_t v) __attribute__((always_inline)) {
        return v < range.begin ? range.begin : v > range.end ? range.end : int32_t(v);
    };
    const int32_t wholeBegin = within(vectorsWithin(-first, lanes));
    const int32_t wholeEnd = within(vectorsWithin(last - first, lanes));
    return {range.begin, wholeBegin, larger(wholeBegin, wholeEnd), range.end};
}

// The segments of all rows of a clamp: worked out once for the rows of a plane.
template <class Record>
[[gnu::always_inline]] constexpr Segments rowSegments(const Record& record, Clamp rowClamp,
                                                      int lanes) noexcept {
    Segments row{};
    for (const Range& range : vectorCut(record, rowClamp, lanes)) {
        row.segments[row.count++] = segmentOf(record, range, lanes);
    }
    return row;
}

}  // namespace diffusefilt
