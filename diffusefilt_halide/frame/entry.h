// SPDX-License-Identifier: MIT
// One call of a pipeline, from its arguments to its status.
#pragma once

#include "pipelines/axes.h"
#include "schedules/paths.h"

namespace diffusefilt {

// The body of every exported entry. Returns 0, what a reporter returned, or what the
// parallel loop returned. Keeps nothing, allocates nothing and takes no lock.
int runPipeline(const PipelineVariant& variant, const Paths& paths, halide_buffer_t* input,
                double gradTIn, halide_buffer_t* output);

}  // namespace diffusefilt
