// What differs between the pipelines in the frame: one constant row for each.
#pragma once

#include <HalideRuntime.h>

#include "PipelineVariant.h"
#include "schedules/paths.h"

namespace diffusefilt {

struct Pipeline {
    PipelineVariant variant;
    PrepareLoop prepareLoop;
    FilterInLine filterInLine;

    constexpr int dimensions() const { return variant.dimensions; }

    constexpr halide_type_t elementType() const {
        return {halide_type_float, static_cast<uint8_t>(variant.elementBits()), 1};
    }
};

// The names of the arguments, as messages and metadata print them.
constexpr char inputName[] = "keyimForType";
constexpr char thresholdName[] = "gradTIn";

constexpr const char* outputNameOf(int dimensions) {
    return dimensions == 3 ? "diffusefilt3" : "diffusefilt2";
}

}  // namespace diffusefilt
