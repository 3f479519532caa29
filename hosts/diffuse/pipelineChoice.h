// The axes of a pipeline that a user chooses.
#pragma once

#include <diffusefilt_halide.hpp>
#include <optional>

namespace diffuse {

struct PipelineChoice {
    diffusefilt_host::Connectivity connectivity{};  // the first of its axis
    diffusefilt_host::Conduction conduction{};      // likewise
    diffusefilt_host::ElementType elementType = diffusefilt_host::ElementType::float64;
    // None: the best that the processor and its operating system can run.
    std::optional<diffusefilt_host::InstructionSet> instructionSet;
};

// The axes of the pipeline but for the dimensions, which are those of the picture.
// Throws std::runtime_error with one line if its instruction set cannot be run here.
diffusefilt_host::Axes axesOf(const PipelineChoice& choice);

}  // namespace diffuse
