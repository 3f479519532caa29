// SPDX-License-Identifier: MIT
// One diffusion step in plain scalar code, one element at a time: what every
// pipeline must give to the last bit. It shares nothing with the library but the
// words of pipelines/axes.h. Build it with -ffp-contract=off.
#pragma once

#include <cstdint>

#include "pipelines/axes.h"

namespace reference {

// Where the elements of a buffer of 2 or 3 dimensions stand; the entries beyond `dimensions`
// are not read.
struct Shape {
    int dimensions;
    int32_t min[3];
    int32_t extent[3];
    int32_t stride[3];  // in elements
};

// Calls body(i, offset) for each element, the first dimension first: i counts from the min
// coordinates, and offset from the element there.
template <class Body>
void forEachElement(const Shape& shape, Body body) {
    const auto [columns, rows, depth] = shape.extent;
    const bool is3D = shape.dimensions == 3;
    for (int32_t k = 0; k < (is3D ? depth : 1); ++k) {
        for (int32_t j = 0; j < rows; ++j) {
            const int64_t row =
                int64_t{j} * shape.stride[1] + (is3D ? int64_t{k} * shape.stride[2] : 0);
            for (int32_t i = 0; i < columns; ++i) {
                const int32_t at[3] = {i, j, k};
                body(at, row + int64_t{i} * shape.stride[0]);
            }
        }
    }
}

template <class T>
struct View : Shape {
    T* host;  // the element at the min coordinates
};

// Filters `input` into `output`. T is the element type of the variant, and both views
// have its dimensions. Whether the sums are those of the parallel or of the in-line
// path is decided as in the library, by the input's extent[0] alone.
template <class T>
void filter(diffusefilt::PipelineVariant variant, const View<const T>& input, double gradTIn,
            const View<T>& output);

// exp(-s) as the exponential float32 pipelines of an instruction set evaluate it.
float inlineExponential(diffusefilt::InstructionSet instructionSet, float s);

}  // namespace reference
