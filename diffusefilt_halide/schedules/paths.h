// The two ways of running a call whose arguments have been checked: what the frame knows
// of the schedules. Defined for every row of the table, each in the file of its
// instruction set.
#pragma once

#include <HalideRuntime.h>

#include "PipelineVariant.h"

namespace diffusefilt {

// Fills the closure record and runs one task for each row (plane) of the output through
// halide_do_par_for, whose result is returned as it is.
template <PipelineVariant variant>
int parallelPath(halide_buffer_t* input, double gradTIn, halide_buffer_t* output);

// Filters on the caller's thread and returns 0.
template <PipelineVariant variant>
int inLinePath(halide_buffer_t* input, double gradTIn, halide_buffer_t* output);

}  // namespace diffusefilt
