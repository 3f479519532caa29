// SPDX-License-Identifier: MIT
// The exported pipelines, from the library's table.
#pragma once

#include <HalideRuntime.h>

#include <string_view>
#include <vector>

#include "pipelines/axes.h"

namespace support {

struct Pipeline {
    const char* name;
    diffusefilt::PipelineVariant variant;
    int (*entry)(halide_buffer_t*, double, halide_buffer_t*);
    int (*argv)(void**);
    const halide_filter_metadata_t* (*metadata)();
};

// In the table's order.
const std::vector<Pipeline>& pipelines();

// Null where the table has no such pipeline.
const Pipeline* findPipeline(std::string_view name);

bool processorRuns(diffusefilt::InstructionSet instructionSet);

// What a parameterised test prints of a pipeline.
void PrintTo(const Pipeline& pipeline, std::ostream* stream);

}  // namespace support
