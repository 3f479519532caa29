// SPDX-License-Identifier: MIT
#include "Reference.h"

#include <algorithm>
#include <cmath>

#include "Neighbours.h"
#include "Sums.h"

namespace reference {
namespace {

using diffusefilt::Conduction;
using diffusefilt::InstructionSet;
using diffusefilt::PipelineVariant;

int32_t addWrapping(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

// Each coordinate is clamped by itself. The bounds are absolute: 0 .. extent - 1, whatever the min
// of the buffer is.
template <class T>
T readClamped(const View<const T>& input, const int32_t (&position)[3], Offset offset) {
    const int step[3] = {offset.dx, offset.dy, offset.dz};
    int64_t index = 0;
    for (int d = 0; d < input.dimensions; ++d) {
        const int32_t v = addWrapping(position[d], step[d]);
        const int64_t clamped = std::max(std::min(v, addWrapping(input.extent[d], -1)), 0);
        index += (clamped - input.min[d]) * input.stride[d];
    }
    return input.host[index];
}

double exponential(InstructionSet, double s) {
    return std::exp(-s);
}

float exponential(InstructionSet instructionSet, float s) {
    return inlineExponential(instructionSet, s);
}

// `t` is |difference| / threshold.
template <class T>
T conductance(PipelineVariant variant, T t) {
    if (variant.conduction == Conduction::exponential) {
        return exponential(variant.instructionSet, t * t);
    }
    const bool fused = variant.instructionSet == InstructionSet::avx2;
    return T(1) / (fused ? std::fma(t, t, T(1)) : t * t + T(1));
}

template <class T>
T filtered(PipelineVariant variant, const View<const T>& input, T gradTInv,
           const int32_t (&position)[3]) {
    const auto neighbours = neighboursOf(variant);
    const T centre = readClamped(input, position, {0, 0, 0});
    Pulls<T> pulls = {};
    for (std::size_t i = 0; i < neighbours.size(); ++i) {
        pulls.difference[i] = readClamped(input, position, neighbours[i]) - centre;
        pulls.conductance[i] = conductance(variant, std::abs(pulls.difference[i]) * gradTInv);
    }
    const T sum = weightedSum(variant, input.extent[0] <= variant.lanes(), pulls);
    const T rate = T(1) / static_cast<T>(neighbours.size());
    if (variant.instructionSet == InstructionSet::avx2) return std::fma(sum, rate, centre);
    return sum * rate + centre;
}

}  // namespace

template <class T>
void filter(PipelineVariant variant, const View<const T>& input, double gradTIn,
            const View<T>& output) {
    const T gradTInv = T(1) / static_cast<T>(gradTIn);
    forEachElement(output, [&](const int32_t(&i)[3], int64_t offset) {
        int32_t position[3] = {};
        for (int d = 0; d < output.dimensions; ++d) {
            position[d] = addWrapping(output.min[d], i[d]);
        }
        output.host[offset] = filtered(variant, input, gradTInv, position);
    });
}

template void filter(PipelineVariant, const View<const float>&, double, const View<float>&);
template void filter(PipelineVariant, const View<const double>&, double, const View<double>&);

}  // namespace reference
