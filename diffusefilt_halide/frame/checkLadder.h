// SPDX-License-Identifier: MIT
// The checks of a call, in their fixed order.
#pragma once

#include <optional>

#include "frame/regions.h"

namespace diffusefilt {

// What the reporter of the first fault returned; nothing if there is no fault. The
// reporter's result is the call's, whatever it is.
using Fault = std::optional<int>;

// Null arguments: before anything is read.
Fault checkArguments(const PipelineVariant& variant, const halide_buffer_t* input,
                     const halide_buffer_t* output);

// Types, regions and extents, strides, sizes, host pointers.
Fault checkBuffers(const PipelineVariant& variant, const Regions& regions,
                   const halide_buffer_t& input, const halide_buffer_t& output);

}  // namespace diffusefilt
