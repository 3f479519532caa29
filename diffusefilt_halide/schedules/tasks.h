// SPDX-License-Identifier: MIT
// The task of the parallel loop: one row of the output in 2-D, one plane in 3-D. A task
// detects nothing, reports nothing and cannot fail.
#pragma once

#include "schedules/rowRun.h"

namespace diffusefilt {

template <PipelineVariant variant>
[[gnu::always_inline]] inline void rowTask(const Closure<variant>& record, int32_t y) noexcept {
    RowRun<variant>(record, y, 0).run(rowPlan(record, variant.lanes()));
}

template <PipelineVariant variant>
[[gnu::always_inline]] inline void planeTask(const Closure<variant>& record, int32_t z) noexcept {
    const RowPlan plan = rowPlan(record, variant.lanes());
    for (RowRun<variant> row(record, record.outMin1, z); row.y() < record.outEnd1; row.next()) {
        row.run(plan);
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
