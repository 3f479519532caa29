// SPDX-License-Identifier: MIT
// What an entry does with two records before it filters, told a second time: rows of a
// table in 64-bit arithmetic, apart from the library's frame. Uses no standard string, so
// that it runs in programs whose C++ library is not instrumented.
#pragma once

#include <HalideRuntime.h>

#include <cstdint>

#include "pipelines/axes.h"

namespace support {

struct FrameOutcome {
    int status;         // of a call that does not filter
    char message[160];  // empty where nothing is reported
    bool filters;
    // Of the input and of the output: whether it is asked for its shape, and what its record holds
    // then. `dim` of the record stays the caller's.
    bool isAsked[2];
    halide_buffer_t answer[2];
    halide_dimension_t dim[2][3];
};

// The records must have as many dimensions as the variant. Either may be null.
FrameOutcome frameOutcome(const diffusefilt::PipelineVariant& variant, const halide_buffer_t* input,
                          const halide_buffer_t* output);

}  // namespace support
