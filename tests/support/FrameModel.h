// What an entry does with two records before it filters, told a second time: rows of a
// table in 64-bit arithmetic, apart from the library's frame. Uses no standard string, so
// that it runs in programs whose C++ library is not instrumented.
#pragma once

#include <HalideRuntime.h>

#include <cstdint>

#include "pipelines/axes.h"

namespace support {

// A closed range of coordinates.
struct Range {
    int32_t first;
    int32_t last;
};

struct FrameOutcome {
    int status;         // of a call that does not filter
    char message[160];  // empty where nothing is reported
    bool filters;
    bool outputIsQueried;
    bool inputIsQueried;
    Range output[3];  // touched
    Range input[3];   // needed
};

// The records must have as many dimensions as the variant. Either may be null.
FrameOutcome frameOutcome(const diffusefilt::PipelineVariant& variant, const halide_buffer_t* input,
                          const halide_buffer_t* output);

// The record that a query leaves: dense over the ranges. `dim` receives its dimensions.
halide_buffer_t answerOf(const diffusefilt::PipelineVariant& variant,
                         const halide_buffer_t& queried, const Range* ranges,
                         halide_dimension_t* dim);

}  // namespace support
