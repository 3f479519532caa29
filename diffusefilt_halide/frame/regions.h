// The part of the output that a call touches and the part of the input that it needs.
// They answer a bounds query and are what the check ladder compares the buffers with.
#pragma once

#include "frame/arguments.h"

namespace diffusefilt {

// Closed ranges of coordinates, for each dimension.
struct Regions {
    int32_t outputFirst[3];
    int32_t outputLast[3];
    int32_t inputFirst[3];
    int32_t inputLast[3];
};

// The parallel path stores whole vectors; it serves inputs wider than one.
bool runsInParallel(const PipelineVariant& variant, const halide_buffer_t& input);

// Reads min and extent of the output and extent of the input. The input's min has no
// part in it: the boundary rule is absolute.
Regions regionsOf(const PipelineVariant& variant, const halide_buffer_t& input,
                  const halide_buffer_t& output);

}  // namespace diffusefilt
