// SPDX-License-Identifier: MIT
// What a pipeline asks of its buffers: the type of their elements, the part of the output that a
// call touches and the part of the input that it needs. They answer a bounds query and are what the
// check ladder compares the buffers with.
#pragma once

#include <HalideRuntime.h>

#include "pipelines/axes.h"

namespace diffusefilt {

constexpr halide_type_t elementTypeOf(const PipelineVariant& variant) {
    return {halide_type_float, static_cast<uint8_t>(variant.elementBits()), 1};
}

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
