// SPDX-License-Identifier: MIT
// A call of a pipeline whose records can be bent field by field: the input's stand at 0, the
// output's at 1.
#pragma once

#include <HalideRuntime.h>

#include <algorithm>
#include <vector>

#include "support/Pipelines.h"

namespace support {

struct FrameCall {
    static constexpr int32_t room = 40;  // in each dimension
    static constexpr uint8_t junk = 0x5a;

    // Input and output over [0, width) x [0, 4) x [0, 3), with gaps.
    FrameCall(const Pipeline& calledPipeline, int32_t width) : pipeline(&calledPipeline) {
        for (int i = 0; i < 2; ++i) {
            memory[i].assign(room * room * room * sizeof(double), junk);
            dim[i][0] = {0, width, 1};
            dim[i][1] = {0, 4, room};
            dim[i][2] = {0, 3, room * room};
            buffer[i] = {};
            buffer[i].host = memory[i].data();
            buffer[i].type = {halide_type_float, uint8_t(pipeline->variant.elementBits())};
            buffer[i].dimensions = pipeline->variant.dimensions;
            buffer[i].dim = dim[i];
        }
        for (size_t i = 0; i < memory[0].size(); ++i) memory[0][i] = uint8_t(i * i % 61);
    }
    FrameCall(const FrameCall&) = delete;
    FrameCall& operator=(const FrameCall&) = delete;

    int run() { return pipeline->entry(arguments[0], gradTIn, arguments[1]); }

    bool outputIsUntouched() const {
        return std::ranges::all_of(memory[1], [](uint8_t byte) { return byte == junk; });
    }

    const Pipeline* pipeline;
    std::vector<uint8_t> memory[2];
    halide_dimension_t dim[2][3];
    halide_buffer_t buffer[2];
    halide_buffer_t* arguments[2] = {&buffer[0], &buffer[1]};
    double gradTIn = 2.5;
};

}  // namespace support
