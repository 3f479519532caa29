// SPDX-License-Identifier: MIT
// How the vectors of a row of the output are read: worked out once for all rows of a task. A
// vector's position is outMin0 + L * v; the last one of a row is shifted inwards to end on the
// row's last element, and the elements it shares with its predecessor are computed twice, with
// the same bits but for a NaN's sign and payload.
#pragma once

#include "schedules/cut.h"

namespace diffusefilt {

// In rising order:
//   [0, before)              read lane by lane
//   at column 0              if `left`: read whole, and moved by a lane where the left edge clamps
//   wholeBegin, ...End       read whole: columns x - 1 to x + L lie inside, and none is shifted
//   at rightX                if `right`: ends on the input's last column; as at the left edge
//   [after, end)             read lane by lane, or shifted and whole
struct RowPlan {
    int32_t before, after, end;            // vectors
    int64_t wholeBegin, wholeEnd, rightX;  // columns
    bool left, right;
};

// The column at which vector v starts.
template <class Record>
[[gnu::always_inline]] constexpr int32_t columnOf(const Record& record, int32_t v,
                                                  int lanes) noexcept {
    return smaller(plus(record.outMin0, times(v, lanes)), record.lastVectorX);
}

// Numbers of vectors are formed in 64 bits: a row may start anywhere. The count of one that ends
// at the highest coordinate wraps; it has no vectors then.
template <class Record>
[[gnu::always_inline]] constexpr RowPlan rowPlan(const Record& record, int lanes) noexcept {
    const int64_t first = record.outMin0;
    const int64_t last = smaller(record.lastVectorX, minus(record.inputMax0, lanes));
    const int64_t count = larger(record.vectorCount, 0);
    const auto within = [=](int64_t v) __attribute__((always_inline)) {
        return int32_t(larger(smaller(v, count), int64_t{0}));
    };
    const int32_t begin = within(vectorsWithin(-first, lanes));
    const int32_t end = larger(begin, within(vectorsWithin(last - first, lanes)));
    const int32_t rightX = minus(record.inputMax0, lanes - 1);
    const bool left = begin > 0 && columnOf(record, begin - 1, lanes) == 0;
    const bool right = end < count && columnOf(record, end, lanes) == rightX;
    return {begin - left,
            end + right,
            int32_t(count),
            first + int64_t{lanes} * begin,
            first + int64_t{lanes} * end,
            rightX,
            left,
            right};
}

}  // namespace diffusefilt
