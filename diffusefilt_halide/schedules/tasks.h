// The task of the parallel loop: one row of the output in 2-D, one plane in 3-D. A task
// detects nothing, reports nothing and cannot fail.
#pragma once

#include "schedules/rowRun.h"

namespace diffusefilt {

// Index, from the host pointer, of the neighbour planes' or rows' element at column 0.
template <PipelineVariant variant>
[[gnu::always_inline]] inline void runRow(const Closure<variant>& record,
                                          const Scalars<Form<variant, Path::parallel>>& scalars,
                                          const int64_t* planeTerms, int64_t outPlane, int32_t y,
                                          Clamp rowClamp) noexcept {
    constexpr int planes = RowRun<variant>::planes;
    RowRun<variant> row{
        record, scalars, {}, record.outputHost + (offsetOf(y, record.outStride1) + outPlane)};
    row.rows.host = record.inputHost;
    for (int dy = -1; dy <= 1; ++dy) {
        const int32_t inputRow = neighbourCoord(rowClamp, y, dy, record.inputExtent1);
        const int64_t rowTerm = offsetOf(inputRow, record.inputStride1);
        for (int plane = 0; plane < planes; ++plane) {
            row.rows.base[plane][dy + 1] = rowTerm + planeTerms[plane];
        }
    }
    row.run(rowClamp);
}

template <PipelineVariant variant>
[[gnu::always_inline]] inline Scalars<Form<variant, Path::parallel>> scalarsOf(
    const Closure<variant>& record) noexcept {
    using T = typename ClosureOf<variant>::Element;
    if constexpr (requires { record.sqrtThree; }) {
        return {record.gradTIn, cornerWeight<T>(record.sqrtThree)};
    } else {
        return {record.gradTIn, cornerWeight<T>(sqrtThree)};
    }
}

template <PipelineVariant variant>
[[gnu::always_inline]] inline void rowTask(const Closure<variant>& record, int32_t y) noexcept {
    const auto scalars = scalarsOf<variant>(record);
    const int64_t planeTerm = -record.inputOffset;
    runRow<variant>(record, scalars, &planeTerm, -record.outputOffset, y, rowClampAt(record, y));
}

template <PipelineVariant variant>
[[gnu::always_inline]] inline void planeTask(const Closure<variant>& record, int32_t z) noexcept {
    const Clamp planeClamp = planeClampAt(record, z);
    int64_t planeTerms[3];
    for (int dz = -1; dz <= 1; ++dz) {
        const int32_t plane = neighbourCoord(planeClamp, z, dz, record.inputExtent2);
        planeTerms[dz + 1] = offsetOf(plane, record.inputStride2) - record.inputOffset;
    }
    const int64_t outPlane = offsetOf(z, record.outStride2) - record.outputOffset;
    for (const Part& group : rowCut(record, planeClamp)) {
        const auto scalars = scalarsOf<variant>(record);
        for (int32_t y = group.begin; y < group.end; ++y) {
            runRow<variant>(record, scalars, planeTerms, outPlane, y, group.clamp);
        }
    }
}

template <PipelineVariant variant>
[[gnu::always_inline]] inline int runTask(int index, const uint8_t* closure) noexcept {
    const auto& record = *reinterpret_cast<const Closure<variant>*>(closure);
    if constexpr (variant.dimensions == 3) {
        planeTask<variant>(record, index);
    } else {
        rowTask<variant>(record, index);
    }
    return 0;
}

}  // namespace diffusefilt
