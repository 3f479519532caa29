// SPDX-License-Identifier: MIT
#include "Pipelines.h"

#include <ostream>

#include "diffusefilt_halide.hpp"
#include "pipelines/names.h"

#define PASTE(name, suffix) PASTE_TOKENS(name, suffix)
#define PASTE_TOKENS(name, suffix) name##suffix

namespace support {

const std::vector<Pipeline>& pipelines() {
    static const std::vector<Pipeline> all = {
#define PIPELINE(...)                                                                   \
    {DIFFUSEFILT_TEXT(DIFFUSEFILT_NAME(__VA_ARGS__)), DIFFUSEFILT_VARIANT(__VA_ARGS__), \
     &DIFFUSEFILT_NAME(__VA_ARGS__), &PASTE(DIFFUSEFILT_NAME(__VA_ARGS__), _argv),      \
     &PASTE(DIFFUSEFILT_NAME(__VA_ARGS__), _metadata)},
#include "pipelines/pipelines.def"
    };
    return all;
}

const Pipeline* findPipeline(std::string_view name) {
    for (const Pipeline& pipeline : pipelines()) {
        if (pipeline.name == name) return &pipeline;
    }
    return nullptr;
}

bool processorRuns(diffusefilt::InstructionSet instructionSet) {
    // Both enumerations stand in rising order.
    const int above =
        static_cast<int>(instructionSet) - static_cast<int>(diffusefilt::InstructionSet::none);
    return above <= static_cast<int>(diffusefilt_host::bestInstructionSet());
}

void PrintTo(const Pipeline& pipeline, std::ostream* stream) {
    *stream << pipeline.name;
}

}  // namespace support
