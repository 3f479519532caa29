// SPDX-License-Identifier: MIT
#include "FrameModel.h"

#include <algorithm>
#include <cstdio>
#include <limits>

namespace support {
namespace {

using diffusefilt::PipelineVariant;

int32_t wrapped(int64_t value) {
    return static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(value)));
}

// A closed range of coordinates.
struct Range {
    int32_t first;
    int32_t last;
};

void nameType(char (&text)[32], int code, int bits, int lanes) {
    static constexpr const char* words[] = {"int", "uint", "float", "handle"};
    const char* word = code >= 0 && code < 4 ? words[code] : "bad_type_code";
    const int length = std::snprintf(text, sizeof text, "%s%d", word, bits);
    if (lanes != 1) std::snprintf(text + length, sizeof text - size_t(length), "x%d", lanes);
}

// The checks in turn: each does nothing once one before it has failed.
struct Ladder {
    const PipelineVariant& variant;
    FrameOutcome& outcome;

    template <class... Words>
    void fail(int status, const char* format, Words... words) {
        outcome.filters = false;
        outcome.status = status;
        std::snprintf(outcome.message, sizeof outcome.message, format, words...);
    }

    void type(const char* name, const halide_buffer_t& buffer) {
        const int bits = variant.elementBits();
        if (!outcome.filters) return;
        if (buffer.type.code == 2 && buffer.type.bits == bits && buffer.type.lanes == 1) return;
        char found[32];
        nameType(found, buffer.type.code, buffer.type.bits, buffer.type.lanes);
        fail(-3, "%s has type float%d but type of the buffer passed in is %s", name, bits, found);
    }

    void bounds(const char* name, int d, Range accessed, const halide_dimension_t& dim) {
        const int32_t max = wrapped(int64_t{dim.min} + dim.extent - 1);
        const bool isInside =
            dim.min <= accessed.first && wrapped(int64_t{accessed.last} - dim.extent) < dim.min;
        if (!outcome.filters || isInside) return;
        fail(-4, "%s", "");
        if (accessed.first < dim.min) {
            fail(-4, "%s is accessed at %d, which is before the min (%d) in dimension %d", name,
                 accessed.first, dim.min, d);
        } else if (accessed.last > max) {
            fail(-4, "%s is accessed at %d, which is beyond the max (%d) in dimension %d", name,
                 accessed.last, max, d);
        }
    }

    void extent(const char* name, int d, int32_t extent) {
        if (!outcome.filters || extent >= 0) return;
        fail(-28, "The extents for buffer %s dimension %d is negative (%d)", name, d, extent);
    }

    void stride(const char* name, int32_t stride) {
        if (!outcome.filters || stride == 1) return;
        fail(-8, "Constraint violated: %s.stride.0 (%d) == 1 (1)", name, stride);
    }

    void host(const char* name, const halide_buffer_t& buffer) {
        if (!outcome.filters || buffer.host != nullptr) return;
        fail(-34, "The host pointer of %s is null, but the pipeline will access it on the host.",
             name);
    }
};

// What is touched of the output and needed of the input. A wide input is filtered by whole
// vectors, so that at least one is touched.
void findRanges(const PipelineVariant& variant, const halide_buffer_t& input,
                const halide_buffer_t& output, Range (&needed)[3], Range (&touched)[3]) {
    const bool wide = input.dim[0].extent > variant.lanes();
    for (int d = 0; d < variant.dimensions; ++d) {
        const int64_t end = int64_t{output.dim[d].min} + output.dim[d].extent;
        const int64_t length =
            d == 0 && wide ? std::max(output.dim[0].extent, variant.lanes()) : output.dim[d].extent;
        const auto clamped = [highest = wrapped(int64_t{input.dim[d].extent} - 1)](int64_t v) {
            return std::max(std::min(wrapped(v), highest), 0);
        };
        touched[d] = {wrapped(end - length), wrapped(end - 1)};
        needed[d] = {clamped(int64_t{touched[d].first} - 1), clamped(int64_t{touched[d].last} + 1)};
    }
}

// The record that a query leaves: dense over the ranges.
halide_buffer_t answerOf(const PipelineVariant& variant, const halide_buffer_t& asked,
                         const Range* ranges, halide_dimension_t* dim) {
    halide_buffer_t answer = {};
    answer.type = {halide_type_float, static_cast<uint8_t>(variant.elementBits()), 1};
    answer.dimensions = variant.dimensions;
    answer.dim = asked.dim;
    answer.padding = asked.padding;
    int64_t stride = 1;
    for (int d = 0; d < variant.dimensions; ++d) {
        const int32_t extent = wrapped(int64_t{ranges[d].last} - ranges[d].first + 1);
        dim[d] = {ranges[d].first, extent, wrapped(stride), 0};
        stride = wrapped(stride * extent);
    }
    return answer;
}

}  // namespace

FrameOutcome frameOutcome(const PipelineVariant& variant, const halide_buffer_t* input,
                          const halide_buffer_t* output) {
    const int n = variant.dimensions;
    const char* const bare = n == 2 ? "diffusefilt2" : "diffusefilt3";
    const char* const in = "Input buffer keyimForType";
    const char* const out = n == 2 ? "Output buffer diffusefilt2" : "Output buffer diffusefilt3";
    FrameOutcome outcome = {};
    outcome.filters = true;
    Ladder ladder{variant, outcome};
    if (input == nullptr || output == nullptr) {
        ladder.fail(-12, "Buffer argument %s is NULL", input == nullptr ? "keyimForType" : bare);
        return outcome;
    }
    Range needed[3], touched[3];
    findRanges(variant, *input, *output, needed, touched);
    for (const int i : {1, 0}) {
        const halide_buffer_t& buffer = i == 0 ? *input : *output;
        outcome.isAsked[i] = buffer.host == nullptr && buffer.device == 0;
        outcome.filters = outcome.filters && !outcome.isAsked[i];
        outcome.answer[i] = answerOf(variant, buffer, i == 0 ? needed : touched, outcome.dim[i]);
    }

    ladder.type(out, *output);
    ladder.type(in, *input);
    ladder.bounds(out, 0, touched[0], output->dim[0]);
    for (int d = 0; d < n; ++d) ladder.extent(out, d, output->dim[d].extent);
    for (int d = 0; d < n; ++d) {
        ladder.bounds(in, d, needed[d], input->dim[d]);
        ladder.extent(in, d, input->dim[d].extent);
    }
    ladder.stride(bare, output->dim[0].stride);
    ladder.stride("keyimForType", input->dim[0].stride);
    ladder.host(out, *output);
    ladder.host(in, *input);
    return outcome;
}

}  // namespace support
