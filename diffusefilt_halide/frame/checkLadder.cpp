// SPDX-License-Identifier: MIT
#include "frame/checkLadder.h"

#include "arithmetic/coordinates.h"
#include "pipelines/names.h"

namespace diffusefilt {
namespace {

// A buffer under the two names that messages use for it, and its required region.
struct Checked {
    const halide_buffer_t& buffer;
    const char* bareName;
    const char* fullName;
    const char* stride0Name;
    const int32_t* first;
    const int32_t* last;
};

Fault checkType(const Checked& checked, halide_type_t expected) {
    const halide_type_t found = checked.buffer.type;
    if (found == expected) return {};
    return halide_error_bad_type(nullptr, checked.fullName, found.as_u32(), expected.as_u32());
}

Fault checkBounds(const Checked& checked, int d) {
    const halide_dimension_t& dim = checked.buffer.dim[d];
    if (dim.min <= checked.first[d] && minus(checked.last[d], dim.extent) < dim.min) return {};
    const int32_t max = minus(plus(dim.min, dim.extent), 1);
    return halide_error_access_out_of_bounds(nullptr, checked.fullName, d, checked.first[d],
                                             checked.last[d], dim.min, max);
}

Fault checkExtent(const Checked& checked, int d) {
    const int32_t extent = checked.buffer.dim[d].extent;
    if (extent >= 0) return {};
    return halide_error_buffer_extents_negative(nullptr, checked.fullName, d, extent);
}

Fault checkStride0(const Checked& checked) {
    const int32_t stride = checked.buffer.dim[0].stride;
    if (stride == 1) return {};
    return halide_error_constraint_violated(nullptr, checked.stride0Name, stride, "1", 1);
}

// The product of two 32-bit numbers stays far below the limit; the check keeps its place.
Fault checkSize(const Checked& checked, int d) {
    const halide_dimension_t& dim = checked.buffer.dim[d];
    const int64_t product = offsetOf(dim.extent, dim.stride);
    const auto size = static_cast<uint64_t>(product < 0 ? -product : product);
    constexpr uint64_t limit = INT64_MAX;
    if (size <= limit) return {};
    return halide_error_buffer_allocation_too_large(nullptr, checked.bareName, size, limit);
}

Fault checkHost(const Checked& checked) {
    if (checked.buffer.host != nullptr) return {};
    return halide_error_host_is_null(nullptr, checked.fullName);
}

// The output is touched over its own region in every dimension but 0, so only there can
// it be out of bounds; its negative extents follow together.
Fault checkOutputShape(const Checked& output, int dimensions) {
    if (const Fault fault = checkBounds(output, 0)) return fault;
    for (int d = 0; d < dimensions; ++d) {
        if (const Fault fault = checkExtent(output, d)) return fault;
    }
    return {};
}

Fault checkInputShape(const Checked& input, int dimensions) {
    for (int d = 0; d < dimensions; ++d) {
        if (const Fault fault = checkBounds(input, d)) return fault;
        if (const Fault fault = checkExtent(input, d)) return fault;
    }
    return {};
}

Fault checkSizes(const Checked& checked, int dimensions) {
    for (int d = 1; d < dimensions; ++d) {
        if (const Fault fault = checkSize(checked, d)) return fault;
    }
    return {};
}

}  // namespace

Fault checkArguments(const PipelineVariant& variant, const halide_buffer_t* input,
                     const halide_buffer_t* output) {
    if (input == nullptr) return halide_error_buffer_argument_is_null(nullptr, inputName);
    if (output == nullptr) {
        return halide_error_buffer_argument_is_null(nullptr, outputNameOf(variant.dimensions));
    }
    return {};
}

Fault checkBuffers(const PipelineVariant& variant, const Regions& regions,
                   const halide_buffer_t& input, const halide_buffer_t& output) {
    const int n = variant.dimensions;
    const Checked out{output,
                      outputNameOf(n),
                      n == 3 ? "Output buffer diffusefilt3" : "Output buffer diffusefilt2",
                      n == 3 ? "diffusefilt3.stride.0" : "diffusefilt2.stride.0",
                      regions.outputFirst,
                      regions.outputLast};
    const Checked in{input,
                     inputName,
                     "Input buffer keyimForType",
                     "keyimForType.stride.0",
                     regions.inputFirst,
                     regions.inputLast};

    if (const Fault fault = checkType(out, elementTypeOf(variant))) return fault;
    if (const Fault fault = checkType(in, elementTypeOf(variant))) return fault;
    if (const Fault fault = checkOutputShape(out, n)) return fault;
    if (const Fault fault = checkInputShape(in, n)) return fault;
    if (const Fault fault = checkStride0(out)) return fault;
    if (const Fault fault = checkStride0(in)) return fault;
    if (const Fault fault = checkSizes(out, n)) return fault;
    if (const Fault fault = checkSizes(in, n)) return fault;
    if (const Fault fault = checkHost(out)) return fault;
    return checkHost(in);
}

}  // namespace diffusefilt
