// SPDX-License-Identifier: MIT
// The names of a pipeline and of its arguments, and what a line of pipelines.def is pasted into.
#pragma once

#include "pipelines/axes.h"

#define DIFFUSEFILT_NAME(dimensions, connectivity, conduction, elementType, instructionSet) \
    diffusefilt##dimensions##_##connectivity##_##conduction##_##elementType##_##instructionSet

#define DIFFUSEFILT_VARIANT(dimensions, connectivity, conduction, elementType, instructionSet) \
    (::diffusefilt::listed<::diffusefilt::PipelineVariant{                                     \
         dimensions, ::diffusefilt::Connectivity::connectivity,                                \
         ::diffusefilt::Conduction::conduction, ::diffusefilt::ElementType::elementType,       \
         ::diffusefilt::InstructionSet::instructionSet}>())

// The dimension that the parallel loop runs over, in the name of its body.
#define DIFFUSEFILT_LOOP_2 "diffusefilt2.s0.y"
#define DIFFUSEFILT_LOOP_3 "diffusefilt3.s0.z"

namespace diffusefilt {

// The arguments, as messages and metadata name them.
constexpr char inputName[] = "keyimForType";
constexpr char thresholdName[] = "gradTIn";

constexpr const char* outputNameOf(int dimensions) {
    return dimensions == 3 ? "diffusefilt3" : "diffusefilt2";
}

}  // namespace diffusefilt

// The text of a token that may itself be a macro.
#define DIFFUSEFILT_TEXT(token) DIFFUSEFILT_TEXT_OF(token)
#define DIFFUSEFILT_TEXT_OF(token) #token
