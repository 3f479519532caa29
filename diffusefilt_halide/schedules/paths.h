// SPDX-License-Identifier: MIT
// The two ways of running a call whose arguments have been checked: what the frame knows
// of the schedules.
#pragma once

#include <HalideRuntime.h>

#include "pipelines/axes.h"

namespace diffusefilt {

// The functions of a pipeline's Paths. Defined for every pipeline of the list, each in the file of
// its instruction set. Element code carries no unwind information: an exception below it ends the
// process.
template <PipelineVariant variant>
halide_task_t prepareLoop(uint8_t* record, halide_buffer_t* input, double gradTIn,
                          halide_buffer_t* output) noexcept;
template <PipelineVariant variant>
void filterInLine(const halide_buffer_t* input, double gradTIn,
                  const halide_buffer_t* output) noexcept;

struct Paths {
    // Fills the closure record of a call and returns the body that runs on it.
    halide_task_t (*prepareLoop)(uint8_t* record, halide_buffer_t* input, double gradTIn,
                                 halide_buffer_t* output);
    // Filters on the caller's thread.
    void (*filterInLine)(const halide_buffer_t* input, double gradTIn,
                         const halide_buffer_t* output);
};

// Bytes that hold the record of any pipeline.
constexpr int closureCapacity = 168;

}  // namespace diffusefilt
