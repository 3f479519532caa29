// The vectors of one row of the output. A vector's position is outMin0 + L * v; the last
// one of a row is shifted inwards to end on the row's last element, and the elements it
// shares with its predecessor are computed twice, with the same bits but for a NaN's sign and
// payload.
#pragma once

#include "arithmetic/operands.h"
#include "arithmetic/stencil.h"
#include "schedules/fillClosure.h"

namespace diffusefilt {

// A segment of a row, in vectors. From wholeBegin to wholeEnd they are read whole: no clamp
// acts on them, and none is shifted.
struct Segment {
    int32_t begin, wholeBegin, wholeEnd, end;
};

// The segment of a band. Its vectors are read whole where they start at column 1 or behind, stand
// unshifted, and end before the input's last column, so that x - 1 to x + L lie inside. Numbers
// of vectors are formed in 64 bits: a row may start anywhere.
template <class Record>
[[gnu::always_inline]] constexpr Segment segmentOf(const Record& record, Band band,
                                                   int lanes) noexcept {
    if (band.clamp == Clamp::neither) return {band.begin, band.begin, band.end, band.end};
    const int64_t first = record.outMin0;
    const int64_t last = smaller(record.lastVectorX, minus(record.inputMax0, lanes));
    const auto within = [&](int64_t v) __attribute__((always_inline)) {
        return v < band.begin ? band.begin : v > band.end ? band.end : int32_t(v);
    };
    const int32_t wholeBegin = within(vectorsWithin(-first, lanes));
    const int32_t wholeEnd = within(vectorsWithin(last - first, lanes));
    return {band.begin, wholeBegin, larger(wholeBegin, wholeEnd), band.end};
}

// The segments of all rows of a clamp: worked out once for the rows of a plane.
template <class Record>
[[gnu::always_inline]] constexpr auto rowSegments(const Record& record, Clamp rowClamp,
                                                  int lanes) noexcept {
    UpToThree<Segment> row{};
    for (const Band& band : vectorCut(record, rowClamp, lanes)) {
        row.items[row.count++] = segmentOf(record, band, lanes);
    }
    return row;
}

// Where a page ends inside a vector, a host that watches its memory sees which half of it is
// stored first: the order is part of what is promised, and the barrier keeps it.
template <InstructionSet set, class V>
[[gnu::always_inline]] inline void store(ElementOfLanes<V>* to, V v) noexcept {
    if constexpr (rulesOf(set).worksInHalves && lanesOf<V> != 1) {
        static_assert(sizeof(V) == 32, "halves are those of 32 bytes");
        const auto whole = reinterpret_cast<__m256d>(v);
        auto* const half = reinterpret_cast<double*>(to);
        _mm_storeu_pd(half + 2, _mm256_extractf128_pd(whole, 1));
        asm volatile("" ::: "memory");
        _mm_storeu_pd(half, _mm256_castpd256_pd128(whole));
    } else {
        reinterpret_cast<Unaligned<V>*>(to)->value = v;
    }
}

template <PipelineVariant variant>
struct RowRun {
    using F = Form<variant, Path::parallel>;
    using T = typename F::Element;
    using V = typename F::Value;
    static constexpr int planes = variant.planes();

    const Closure<variant>& record;
    Scalars<F> scalars;
    Rows<T, planes> rows;
    T* outRow;  // the output element at column 0

    [[gnu::always_inline]] void run(Segment segment) const noexcept {
        if (segment.begin < segment.wholeBegin) clampedVectors(segment.begin, segment.wholeBegin);
        wholeVectors(segment.wholeBegin, segment.wholeEnd);
        if (segment.wholeEnd < segment.end) clampedVectors(segment.wholeEnd, segment.end);
    }

    // The loop runs on a copy of its rows: what it reads of them then stays in registers,
    // for no store of its own can be taken to change it. It asks early for the lines that
    // no row before it has touched: in images larger than the cache it would wait for them.
    [[gnu::always_inline]] void wholeVectors(int32_t begin, int32_t end) const noexcept {
        constexpr int ahead = 512 / sizeof(T);
        const RowRun row = *this;
        int64_t x = plus(record.outMin0, times(begin, F::lanes));
        for (int32_t v = begin; v < end; ++v, x += F::lanes) {
            const WholeOperands<V, planes> read{row.rows, x};
            __builtin_prefetch(row.rows.at(newestRow(variant), x + ahead));
            __builtin_prefetch(row.outRow + x + ahead);
            store<F::set, V>(row.outRow + x, stencil<F>(read, row.scalars));
        }
    }

    // Apart from the loop of whole vectors, whose registers it would otherwise crowd.
    [[gnu::noinline]] void clampedVectors(int32_t begin, int32_t end) const noexcept {
        const int32_t width = plus(record.inputMax0, 1);
        for (int32_t v = begin; v < end; ++v) {
            const int32_t x = smaller(plus(record.outMin0, times(v, F::lanes)), record.lastVectorX);
            const int64_t lastX = int64_t{x} + F::lanes - 1;
            if (x < 0 || lastX > record.inputMax0) {
                step(ClampedOperands<V, planes>(rows, x, width), x);
            } else if (lastX < record.inputMax0) {
                step(EdgeOperands<V, planes, Edge::left>(rows, x, width), x);
            } else {  // not at the left edge too: an input of one vector is filtered in line
                step(EdgeOperands<V, planes, Edge::right>(rows, x, width), x);
            }
        }
    }

    template <class Operands>
    [[gnu::always_inline]] void step(const Operands& read, int32_t x) const noexcept {
        store<F::set, V>(outRow + x, stencil<F>(read, scalars));
    }
};

}  // namespace diffusefilt
