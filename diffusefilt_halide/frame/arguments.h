// The arguments of a pipeline, as messages, queries and metadata tell them.
#pragma once

#include <HalideRuntime.h>

#include "pipelines/axes.h"

namespace diffusefilt {

constexpr char inputName[] = "keyimForType";
constexpr char thresholdName[] = "gradTIn";

constexpr const char* outputNameOf(int dimensions) {
    return dimensions == 3 ? "diffusefilt3" : "diffusefilt2";
}

// The type of the elements of both buffers.
constexpr halide_type_t elementTypeOf(const PipelineVariant& variant) {
    return {halide_type_float, static_cast<uint8_t>(variant.elementBits()), 1};
}

}  // namespace diffusefilt
