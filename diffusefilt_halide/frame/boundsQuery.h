// SPDX-License-Identifier: MIT
// A bounds query: a call with a buffer that has no memory fills in the shape that the
// call would need, instead of filtering.
#pragma once

#include "frame/regions.h"

namespace diffusefilt {

// Fills the records of the buffers that are queried. Returns whether one was: then the
// call is over, and nothing has been checked.
bool answerBoundsQuery(const PipelineVariant& variant, const Regions& regions,
                       halide_buffer_t& input, halide_buffer_t& output);

}  // namespace diffusefilt
