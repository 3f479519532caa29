// The pipelines of the library, found by the words of their axes.
#pragma once

#include <string>

#include "PipelineVariant.h"

struct halide_buffer_t;

namespace diffuse {

struct Pipeline {
    const char* name;
    diffusefilt::PipelineVariant variant;
    int (*step)(halide_buffer_t* input, double threshold, halide_buffer_t* output);
};

// The axes that a user chooses, in the words of the exported names.
struct PipelineChoice {
    std::string connectivity = "minimal";
    std::string conduction = "quadratic";
    std::string elementType = "float64";
    std::string instructionSet = "none";
};

// Throws std::runtime_error if the library has no such pipeline.
const Pipeline& findPipeline(int dimensions, const PipelineChoice& choice);

}  // namespace diffuse
