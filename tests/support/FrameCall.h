// A call of a pipeline whose records can be bent field by field, and what came of it.
#pragma once

#include <HalideRuntime.h>

#include <string>
#include <vector>

#include "support/PipelineTest.h"

namespace support {

// Collects the messages that reach the error handler, instead of ending the process.
class MessageCatcher {
public:
    MessageCatcher() : previous_(halide_set_error_handler(keep)) { messages().clear(); }
    ~MessageCatcher() { halide_set_error_handler(previous_); }
    MessageCatcher(const MessageCatcher&) = delete;
    MessageCatcher& operator=(const MessageCatcher&) = delete;

    static std::vector<std::string>& messages() {
        static std::vector<std::string> all;
        return all;
    }

private:
    static void keep(void*, const char* message) { messages().emplace_back(message); }

    halide_error_handler_t previous_;
};

// Both buffers have memory for a cube of `room` elements in each dimension, and gaps.
struct FrameCall {
    static constexpr int32_t room = 40;

    // Input and output over [0, width) x [0, 4) x [0, 3).
    FrameCall(const Pipeline& calledPipeline, int32_t width)
        : pipeline(&calledPipeline),
          inputMemory(room * room * room * sizeof(double)),
          outputMemory(inputMemory.size(), std::byte{0x5a}) {
        shape(input, inputDim, inputMemory, width);
        shape(output, outputDim, outputMemory, width);
    }
    FrameCall(const FrameCall&) = delete;
    FrameCall& operator=(const FrameCall&) = delete;

    int run() { return pipeline->entry(inputArgument, gradTIn, outputArgument); }

    void fillInput() {
        for (size_t i = 0; i < inputMemory.size(); ++i) inputMemory[i] = std::byte((i * i) % 61);
    }

    bool outputIsUntouched() const {
        for (const std::byte b : outputMemory) {
            if (b != std::byte{0x5a}) return false;
        }
        return true;
    }

    const Pipeline* pipeline;
    std::vector<std::byte> inputMemory;
    std::vector<std::byte> outputMemory;
    halide_dimension_t inputDim[3];
    halide_dimension_t outputDim[3];
    halide_buffer_t input;
    halide_buffer_t output;
    double gradTIn = 2.5;
    halide_buffer_t* inputArgument = &input;
    halide_buffer_t* outputArgument = &output;

private:
    void shape(halide_buffer_t& buffer, halide_dimension_t* dim, std::vector<std::byte>& memory,
               int32_t width) {
        buffer = {};
        dim[0] = {0, width, 1};
        dim[1] = {0, 4, room};
        dim[2] = {0, 3, room * room};
        buffer.host = reinterpret_cast<uint8_t*>(memory.data());
        buffer.type = {halide_type_float, static_cast<uint8_t>(pipeline->variant.elementBits())};
        buffer.dimensions = pipeline->variant.dimensions;
        buffer.dim = dim;
    }
};

}  // namespace support
