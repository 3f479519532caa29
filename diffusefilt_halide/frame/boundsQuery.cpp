// SPDX-License-Identifier: MIT
#include "frame/boundsQuery.h"

#include "arithmetic/coordinates.h"

namespace diffusefilt {
namespace {

bool isQueried(const halide_buffer_t& buffer) {
    return buffer.host == nullptr && buffer.device == 0;
}

// A dense buffer over the closed ranges first .. last, dimension 0 innermost. The dim
// array stays where it is, and the padding is left alone.
void writeShape(const PipelineVariant& variant, const int32_t* first, const int32_t* last,
                halide_buffer_t& buffer) {
    buffer.device = 0;
    buffer.device_interface = nullptr;
    buffer.host = nullptr;
    buffer.flags = 0;
    buffer.type = elementTypeOf(variant);
    buffer.dimensions = variant.dimensions;
    int32_t stride = 1;
    for (int d = 0; d < variant.dimensions; ++d) {
        const int32_t extent = plus(minus(last[d], first[d]), 1);
        buffer.dim[d] = {first[d], extent, stride, 0};
        stride = times(stride, extent);
    }
}

}  // namespace

bool answerBoundsQuery(const PipelineVariant& variant, const Regions& regions,
                       halide_buffer_t& input, halide_buffer_t& output) {
    // Judged before anything is written: both records may be one.
    const bool outputIsQueried = isQueried(output);
    const bool inputIsQueried = isQueried(input);
    if (outputIsQueried) writeShape(variant, regions.outputFirst, regions.outputLast, output);
    if (inputIsQueried) writeShape(variant, regions.inputFirst, regions.inputLast, input);
    return outputIsQueried || inputIsQueried;
}

}  // namespace diffusefilt
