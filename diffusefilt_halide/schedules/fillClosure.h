// SPDX-License-Identifier: MIT
// How the entry works out the values of a closure record. The formulas are the same in
// all layouts; a layout takes what it has fields for.
#pragma once

#include <type_traits>

#include "arithmetic/form.h"
#include "arithmetic/weights.h"
#include "schedules/cut.h"

namespace diffusefilt {

// The index, from the host pointer, of the element at the coordinates (0, 0, 0), negated.
template <int dimensions>
[[gnu::always_inline]] inline int64_t offsetOfMins(const halide_dimension_t* dim) noexcept {
    int64_t offset = dim[0].min;
    for (int d = 1; d < dimensions; ++d) {
        offset = plus(offset, offsetOf(dim[d].min, dim[d].stride));
    }
    return offset;
}

template <int dimensions, class Record, class T>
[[gnu::always_inline]] inline void fillBuffers(Record& record, halide_buffer_t* input, T gradTIn,
                                               halide_buffer_t* output) noexcept {
    record.gradTIn = gradTIn;
    record.outMin0 = output->dim[0].min;
    record.outStride1 = output->dim[1].stride;
    record.inputExtent1 = input->dim[1].extent;
    record.inputStride1 = input->dim[1].stride;
    record.inputMax0 = minus(input->dim[0].extent, 1);
    record.inputOffset = offsetOfMins<dimensions>(input->dim);
    record.outputOffset = offsetOfMins<dimensions>(output->dim);
    record.outputHost = reinterpret_cast<T*>(output->host);
    record.outputBuffer = output;
    record.inputHost = reinterpret_cast<const T*>(input->host);
    record.inputBuffer = input;
}

template <Connectivity connectivity, class Record>
[[gnu::always_inline]] inline void fillColumns(Record& record, int lanes,
                                               const halide_dimension_t& input,
                                               const halide_dimension_t& output) noexcept {
    record.lastVectorX = minus(plus(output.min, output.extent), lanes);
    record.vectorCount = minus(plus(output.extent, lanes), 1) >> log2Of(lanes);
    // A vector that far from the row's start ends in the row, and its last lane's neighbour,
    // another L columns on, in the input.
    const int32_t unclampedSpan =
        smaller(minus(minus(input.extent, output.min), lanes + 1), minus(output.extent, lanes));
    if constexpr (connectivity == Connectivity::minimal) {
        const int32_t left = output.min > 0 ? 0 : vectorsWithin(minus(0, output.min), lanes);
        record.leftVectorCount = smaller(record.vectorCount, left);
        record.interiorVectorEnd =
            larger(record.leftVectorCount, vectorsWithin(unclampedSpan, lanes));
    } else {
        record.unclampedSpan = unclampedSpan;
    }
}

template <Connectivity connectivity, class Record>
[[gnu::always_inline]] inline void fillRows(Record& record, const halide_dimension_t& input,
                                            const halide_dimension_t& output) noexcept {
    const Cut cut = cutOf<connectivity>(input, output);
    if constexpr (connectivity == Connectivity::minimal) {
        record.interiorRowBegin = cut.items[1].begin;
        record.interiorRowEnd = cut.items[1].end;
    } else {
        record.unclampedRowEnd = cut.items[0].end;
    }
}

template <Connectivity connectivity, class T>
[[gnu::always_inline]] inline void fillPlanes(PlaneClosure<connectivity, T>& record,
                                              const halide_dimension_t* input,
                                              const halide_dimension_t* output) noexcept {
    record.outExtent1 = output[1].extent;
    record.outMin1 = output[1].min;
    record.outEnd1 = plus(output[1].min, output[1].extent);
    record.outStride2 = output[2].stride;
    record.inputExtent2 = input[2].extent;
    record.inputStride2 = input[2].stride;
    record.inputMax1 = minus(input[1].extent, 1);
    const Cut cut = cutOf<connectivity>(input[2], output[2]);
    if constexpr (connectivity == Connectivity::minimal) {
        record.interiorPlaneBegin = cut.items[1].begin;
        record.interiorPlaneEnd = cut.items[1].end;
    } else {
        record.unclampedPlaneEnd = cut.items[0].end;
        if constexpr (sizeof(T) == sizeof(double)) record.sqrtThree = sqrtThree;
    }
}

template <PipelineVariant variant>
using Closure = std::conditional_t<variant.dimensions == 2,
                                   RowClosure<variant.connectivity, ElementOf<variant>>,
                                   PlaneClosure<variant.connectivity, ElementOf<variant>>>;

// float32 pipelines narrow the threshold here, once, to the nearest float.
template <PipelineVariant variant>
[[gnu::always_inline]] inline void fillClosure(Closure<variant>& record, halide_buffer_t* input,
                                               double gradTIn, halide_buffer_t* output) noexcept {
    using T = ElementOf<variant>;
    fillBuffers<variant.dimensions>(record, input, static_cast<T>(gradTIn), output);
    fillColumns<variant.connectivity>(record, variant.lanes(), input->dim[0], output->dim[0]);
    fillRows<variant.connectivity>(record, input->dim[1], output->dim[1]);
    if constexpr (variant.dimensions == 3) fillPlanes(record, input->dim, output->dim);
}

}  // namespace diffusefilt
