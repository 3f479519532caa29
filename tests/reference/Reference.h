// One diffusion step in plain scalar code, one element at a time: what every
// pipeline must give to the last bit. It shares nothing with the library but the
// words of pipelines/axes.h. Build it with -ffp-contract=off.
#pragma once

#include <cstdint>

#include "pipelines/axes.h"

namespace reference {

// A buffer of 2 or 3 dimensions; the entries beyond `dimensions` are not read.
template <class T>
struct View {
    T* host;  // the element at the min coordinates
    int dimensions;
    int32_t min[3];
    int32_t extent[3];
    int32_t stride[3];  // in elements
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
