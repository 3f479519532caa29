// The two ways of running a call whose arguments have been checked: what the frame knows
// of the schedules.
#pragma once

#include <HalideRuntime.h>

#include "pipelines/axes.h"

namespace diffusefilt {

// Fills the closure record of a call and returns the body that runs on it.
using PrepareLoop = halide_task_t (*)(uint8_t* record, halide_buffer_t* input, double gradTIn,
                                      halide_buffer_t* output);
// Filters on the caller's thread.
using FilterInLine = void (*)(const halide_buffer_t* input, double gradTIn,
                              const halide_buffer_t* output);

// Defined for every pipeline of the list, each in the file of its instruction set. Element code
// carries no unwind information: an exception below it ends the process.
template <PipelineVariant variant>
halide_task_t prepareLoop(uint8_t* record, halide_buffer_t* input, double gradTIn,
                          halide_buffer_t* output) noexcept;
template <PipelineVariant variant>
void filterInLine(const halide_buffer_t* input, double gradTIn,
                  const halide_buffer_t* output) noexcept;

struct Paths {
    PrepareLoop prepareLoop;
    FilterInLine filterInLine;
};

template <PipelineVariant variant>
constexpr Paths pathsOf() {
    return {&prepareLoop<variant>, &filterInLine<variant>};
}

// Bytes that hold the record of any pipeline.
constexpr int closureCapacity = 168;

// Runs one task for each row (plane) of the output through halide_do_par_for and returns
// its result as it is. Not element code: an exception of a host's hook passes through.
int filterInParallel(PrepareLoop prepare, int dimensions, halide_buffer_t* input, double gradTIn,
                     halide_buffer_t* output);

}  // namespace diffusefilt
