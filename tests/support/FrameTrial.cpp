// SPDX-License-Identifier: MIT
#include "FrameTrial.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

// Called from the runtime, whose code no memory sanitizer sees.
#if defined(__has_feature)
#if __has_feature(memory_sanitizer)
#define CALLED_FROM_RUNTIME __attribute__((no_sanitize("memory")))
#endif
#endif
#ifndef CALLED_FROM_RUNTIME
#define CALLED_FROM_RUNTIME
#endif

namespace support {
namespace {

using diffusefilt::PipelineVariant;

constexpr int64_t mostElements = 1 << 12;  // that a trial filters

char messages[256];

CALLED_FROM_RUNTIME void keepMessage(void*, const char* message) {
    std::size_t at = 0;
    while (messages[at] != '\0') ++at;
    while (*message != '\0' && at + 1 < sizeof messages) messages[at++] = *message++;
}

CALLED_FROM_RUNTIME int runInTurn(void* userContext, halide_task_t task, int min, int extent,
                                  uint8_t* closure) {
    int status = 0;
    for (int i = 0; i < extent && status == 0; ++i) {
        status = halide_do_task(userContext, task, min + i, closure);
    }
    return status;
}

Shape shapeOf(int dimensions, const halide_dimension_t* dim) {
    Shape shape = {dimensions, {}, {1, 1, 1}, {}};
    for (int d = 0; d < dimensions; ++d) {
        shape.min[d] = dim[d].min;
        shape.extent[d] = dim[d].extent;
        shape.stride[d] = dim[d].stride;
    }
    return shape;
}

// Whether the trial has memory for the shape, and its coordinates do not wrap.
bool canBeFiltered(const Shape& shape) {
    int64_t elements = 1;
    for (int d = 0; d < shape.dimensions; ++d) {
        const int64_t end = int64_t{shape.min[d]} + shape.extent[d];
        if (shape.extent[d] > mostElements || end >= std::numeric_limits<int32_t>::max())
            return false;
        if (shape.min[d] == std::numeric_limits<int32_t>::min()) return false;
        elements *= shape.extent[d];
    }
    return elements <= mostElements && spanOf(shape).count <= 2 * mostElements;
}

bool hasSeparateElements(const Shape& shape) {
    const auto pitch = [&](int d) { return std::abs(int64_t{shape.stride[d]}); };
    const int inner = shape.dimensions == 3 && pitch(2) < pitch(1) ? 2 : 1;
    const int outer = 3 - inner;
    if (pitch(inner) < shape.extent[0]) return false;
    return shape.dimensions == 2 ||
           pitch(outer) >= pitch(inner) * (shape.extent[inner] - 1) + shape.extent[0];
}

}  // namespace

// Reads the string; zeros behind its end.
class FrameTrial::Bytes {
public:
    Bytes(const uint8_t* bytes, std::size_t count) : at_(bytes), end_(bytes + count) {}

    uint8_t byte() { return at_ < end_ ? *at_++ : 0; }

    template <class T>
    T any() {
        uint64_t value = 0;
        for (std::size_t i = 0; i < sizeof(T); ++i) value = value << 8 | byte();
        T result;
        std::memcpy(&result, &value, sizeof(T));
        return result;
    }

    // Mostly the usual value, else one near it or, seldom, any at all. The lowest is the one
    // whose negative wraps.
    int32_t number(int32_t usual, int unusualOf256) {
        const int kind = byte();
        if (kind < 256 - unusualOf256) return usual;
        if (kind == 255) return std::numeric_limits<int32_t>::min();
        return kind < 252 ? usual + static_cast<int8_t>(byte()) / 8 : any<int32_t>();
    }

private:
    const uint8_t* at_;
    const uint8_t* end_;
};

FrameTrial::FrameTrial()
    : previousHandler_(halide_set_error_handler(keepMessage)),
      previousLoop_(halide_set_custom_do_par_for(runInTurn)) {}

FrameTrial::~FrameTrial() {
    halide_set_error_handler(previousHandler_);
    halide_set_custom_do_par_for(previousLoop_);
}

// Any record; a usual one is dense over the extents, and filtered.
void FrameTrial::shape(const PipelineVariant& variant, const int32_t* extents, Bytes& bytes,
                       Record& record) {
    const auto n = static_cast<std::size_t>(variant.dimensions);
    record.memory.makeWritable();
    record.dimMemory.makeWritable();
    record.buffer = record.memory.place<halide_buffer_t>(1, Placement::atEnd);
    record.dim = record.dimMemory.place<halide_dimension_t>(n, Placement::atEnd);
    *record.buffer = {};
    halide_buffer_t& buffer = *record.buffer;
    const int state = bytes.byte();  // memory; in few cases none, a device, both
    buffer.host = state < 216 ? reinterpret_cast<uint8_t*>(64) : nullptr;
    buffer.device = state % 16 == 9 ? 1 : 0;
    buffer.type = {static_cast<halide_type_code_t>(bytes.number(halide_type_float, 10)),
                   static_cast<uint8_t>(bytes.number(variant.elementBits(), 10)),
                   static_cast<uint16_t>(bytes.number(1, 10))};
    buffer.dimensions = bytes.number(variant.dimensions, 30);
    buffer.flags = state % 8 == 3 ? ~uint64_t{0} : 0;
    buffer.padding = &buffer;
    buffer.device_interface = reinterpret_cast<const halide_device_interface_t*>(&buffer);
    buffer.dim = record.dim;
    int32_t dense = 1;
    for (int d = 0; d < variant.dimensions; ++d) {
        record.dim[d].min = bytes.number(0, 60);
        record.dim[d].extent = bytes.number(extents[d], 60);
        record.dim[d].stride = bytes.number(dense, d == 0 ? 10 : 60);
        record.dim[d].flags = static_cast<uint32_t>(state);
        dense *= extents[d];
    }
}

const char* FrameTrial::run(const Pipeline& pipeline, const uint8_t* bytes, std::size_t count) {
    const PipelineVariant& variant = pipeline.variant;
    Bytes take(bytes, count);
    const int ways = take.byte();
    RandomCall trial = {};
    trial.gradTIn = take.byte() < 200 ? 2.5 : take.any<double>();
    trial.content = Content::noise;
    const int32_t extents[] = {1 + take.byte() % (3 * variant.lanes() + 5), 1 + take.byte() % 6,
                               1 + take.byte() % 4};
    shape(variant, extents, take, input_);
    shape(variant, extents, take, output_);
    trial.inputPlacement = trial.outputPlacement = static_cast<Placement>(take.byte() % placements);
    halide_buffer_t* const output = ways / 2 % 32 == 9 ? nullptr : output_.buffer;
    halide_buffer_t* const input = ways / 2 % 32 == 11   ? nullptr
                                   : ways / 2 % 32 == 13 ? output
                                                         : input_.buffer;
    const FrameOutcome outcome = frameOutcome(variant, input, output);
    // A record that is not asked for its shape cannot be written.
    const auto enter = [&] {
        for (Record* record : {&input_, &output_}) {
            if (outcome.isAsked[0] && record->buffer == input) continue;
            if (outcome.isAsked[1] && record->buffer == output) continue;
            record->memory.makeReadOnly();
            record->dimMemory.makeReadOnly();
        }
        std::memset(messages, 0, sizeof messages);
        void* args[] = {input, &trial.gradTIn, output};
        return ways % 2 == 1 ? pipeline.argv(args) : pipeline.entry(input, trial.gradTIn, output);
    };
    if (outcome.filters) {
        trial.input = shapeOf(variant.dimensions, input->dim);
        trial.output = shapeOf(variant.dimensions, output->dim);
        if (input == output || !canBeFiltered(trial.output) || !hasSeparateElements(trial.output) ||
            !canBeFiltered(neededOf(trial))) {
            return nullptr;
        }
        ++filtered_;
        const auto filter = [&](const auto& from, const auto& to) {
            input->host = reinterpret_cast<uint8_t*>(reinterpret_cast<uintptr_t>(from.host));
            output->host = reinterpret_cast<uint8_t*>(to.host);
            const int status = enter();
            return messages[0] != '\0' ? 1 : status;
        };
        return variant.elementBits() == 32 ? comparison_.run<float>(variant, trial, filter)
                                           : comparison_.run<double>(variant, trial, filter);
    }
    ++(outcome.isAsked[0] || outcome.isAsked[1] ? answered_ : refused_);
    if (enter() != outcome.status) return "the status is not as the model has it";
    if (std::strcmp(messages, outcome.message) != 0)
        return "the message is not as the model has it";
    for (const int i : {0, 1}) {  // of one record for both, the input's answer comes last
        const halide_buffer_t* const found = i == 0 ? input : output;
        if (!outcome.isAsked[i] || (i == 1 && input == output)) continue;
        const std::size_t bytesOfDim = sizeof(halide_dimension_t) * std::size_t(variant.dimensions);
        if (std::memcmp(found, &outcome.answer[i], sizeof *found) != 0 ||
            std::memcmp(found->dim, outcome.dim[i], bytesOfDim) != 0) {
            return "an answered record is not as the model has it";
        }
    }
    return nullptr;
}

}  // namespace support
