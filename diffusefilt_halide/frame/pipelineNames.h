// What a row of pipelines.def is pasted into: the exported name and the variant.
#pragma once

#include "PipelineVariant.h"

#define DIFFUSEFILT_NAME(dimensions, connectivity, conduction, elementType, instructionSet) \
    diffusefilt##dimensions##_##connectivity##_##conduction##_##elementType##_##instructionSet

#define DIFFUSEFILT_VARIANT(dimensions, connectivity, conduction, elementType, instructionSet) \
    (::diffusefilt::PipelineVariant{dimensions, ::diffusefilt::Connectivity::connectivity,     \
                                    ::diffusefilt::Conduction::conduction,                     \
                                    ::diffusefilt::ElementType::elementType,                   \
                                    ::diffusefilt::InstructionSet::instructionSet})

// The text of a token that may itself be a macro.
#define DIFFUSEFILT_TEXT(token) DIFFUSEFILT_TEXT_OF(token)
#define DIFFUSEFILT_TEXT_OF(token) #token
