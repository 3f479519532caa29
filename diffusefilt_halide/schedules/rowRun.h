// The vectors of one row of the output. A vector's position is outMin0 + L * v; the last
// one of a row is shifted inwards to end on the row's last element, and the elements it
// shares with its predecessor are computed twice, with the same bits but for a NaN's sign and
// payload.
#pragma once

#include "arithmetic/operands.h"
#include "arithmetic/stencil.h"
#include "schedules/fillClosure.h"

namespace diffusefilt {

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
