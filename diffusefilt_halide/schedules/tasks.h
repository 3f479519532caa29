// The task of the parallel loop: one row of the output in 2-D, one plane in 3-D. A task
// detects nothing, reports nothing and cannot fail.
#pragma once

#include "schedules/rowRun.h"
#include "schedules/rowTerms.h"

namespace diffusefilt {

// `outRow` is the index, from the output's host pointer, of column 0.
template <PipelineVariant variant>
[[gnu::always_inline]] inline RowRun<variant> rowAt(
    const Closure<variant>& record, const Scalars<Form<variant, Path::parallel>>& scalars,
    const PlaneTerms<RowRun<variant>::planes>& planeTerms, int64_t outRow, int32_t y,
    Clamp rowClamp) noexcept {
    return {record, scalars,
            rowsAround(record.inputHost, planeTerms, rowClamp, y, record.inputExtent1,
                       record.inputStride1),
            record.outputHost + outRow};
}

template <PipelineVariant variant>
[[gnu::always_inline]] inline void rowTask(const Closure<variant>& record, int32_t y) noexcept {
    const Scalars<Form<variant, Path::parallel>> scalars(record.gradTIn, 0);
    const PlaneTerms<1> planeTerms{{negated(record.inputOffset)}};
    const int64_t outRow = minus(offsetOf(y, record.outStride1), record.outputOffset);
    const Clamp clamp = rowClampAt(record, y);
    const auto row = rowAt<variant>(record, scalars, planeTerms, outRow, y, clamp);
    for (const Band& band : vectorCut(record, clamp, variant.lanes())) {
        row.run(segmentOf(record, band, variant.lanes()));
    }
}

template <PipelineVariant variant>
[[gnu::always_inline]] inline void planeTask(const Closure<variant>& record, int32_t z) noexcept {
    ElementOf<variant> corner = cornerWeight;
    if constexpr (requires { record.sqrtThree; }) corner = cornerWeightFrom(record.sqrtThree);
    const Clamp planeClamp = planeClampAt(record, z);
    const auto planeTerms = PlaneTerms<3>::around(planeClamp, z, record.inputExtent2,
                                                  record.inputStride2, negated(record.inputOffset));
    const int64_t outPlane = minus(offsetOf(z, record.outStride2), record.outputOffset);
    for (const Band& group : rowCut(record, planeClamp)) {
        const Scalars<Form<variant, Path::parallel>> scalars(record.gradTIn, corner);
        const auto segments = rowSegments(record, group.clamp, variant.lanes());
        for (int32_t y = group.begin; y < group.end; ++y) {
            const int64_t outRow = plus(offsetOf(y, record.outStride1), outPlane);
            const auto row = rowAt<variant>(record, scalars, planeTerms, outRow, y, group.clamp);
            for (const Segment& segment : segments) row.run(segment);
        }
    }
}

template <PipelineVariant variant>
[[gnu::always_inline]] inline int runTask(int index, const uint8_t* closure) noexcept {
    const auto& record = *reinterpret_cast<const Closure<variant>*>(closure);
    if constexpr (variant.dimensions == 2) {
        rowTask<variant>(record, index);
    } else {
        planeTask<variant>(record, index);
    }
    return 0;
}

}  // namespace diffusefilt
