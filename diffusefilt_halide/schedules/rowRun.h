// The vectors of one row of the output. A vector's position is outMin0 + L * v; the last
// one of a row is shifted inwards to end on the row's last element, and the elements it
// shares with its predecessor are computed twice, with the same bits.
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
    static constexpr int planes = variant.dimensions == 3 ? 3 : 1;

    const Closure<variant>& record;
    Scalars<F> scalars;
    Rows<T, planes> rows;
    T* outRow;  // the output element at column 0

    [[gnu::always_inline]] void run(Clamp rowClamp) const noexcept {
        for (const Range& range : vectorCut(record, rowClamp, F::lanes)) {
            if (range.clamp == Clamp::none) {
                innerVectors(range);
            } else {
                edgeVectors(range);
            }
        }
    }

    // The loops run on a copy of their row: what they read of it then stays in registers,
    // for no store of theirs can be taken to change it.
    [[gnu::always_inline]] void innerVectors(Range range) const noexcept {
        const RowRun row = *this;
        const int32_t first = record.outMin0;
        for (int32_t v = range.begin; v < range.end; ++v) {
            row.wholeVector(plus(first, times(v, F::lanes)));
        }
    }

    // Only the vectors that a clamp acts on pay for it.
    [[gnu::always_inline]] void edgeVectors(Range range) const noexcept {
        const RowRun row = *this;
        const int32_t first = record.outMin0;
        const int32_t last = record.lastVectorX;
        const int32_t lastWhole = minus(record.inputMax0, F::lanes);
        for (int32_t v = range.begin; v < range.end; ++v) {
            const int32_t x = smaller(plus(first, times(v, F::lanes)), last);
            if (x >= 1 && x <= lastWhole) {
                row.wholeVector(x);
            } else {
                clampedVector(range.clamp, x);
            }
        }
    }

    [[gnu::always_inline]] void wholeVector(int32_t x) const noexcept {
        const WholeOperands<V, planes> read{rows, x};
        store<V>(outRow + x, stencil<F>(read, scalars));
    }

    // Apart from the loops, whose registers it would otherwise crowd.
    [[gnu::noinline]] void clampedVector(Clamp clamp, int32_t x) const noexcept {
        const ClampedOperands<V, planes> read{rows, clamp, x, plus(record.inputMax0, 1)};
        store<V>(outRow + x, stencil<F>(read, scalars));
    }
};

}  // namespace diffusefilt
