// The conductance of one neighbour.
#pragma once

#include <bit>
#include <cmath>
#include <cstdint>

#include "PipelineVariant.h"
#include "Reference.h"

namespace reference {

// `t` is |difference| / threshold.
template <class T>
T quadraticConductance(diffusefilt::InstructionSet instructionSet, T t) {
    const T one = 1;
    const bool fused = instructionSet == diffusefilt::InstructionSet::avx2;
    return one / (fused ? std::fma(t, t, one) : t * t + one);
}

inline double exponentialConductance(diffusefilt::InstructionSet instructionSet, double t) {
    const bool fused = instructionSet == diffusefilt::InstructionSet::avx2;
    return std::exp(fused ? std::fma(-t, t, -0.0) : -(t * t));
}

inline float exponentialConductance(diffusefilt::InstructionSet instructionSet, float t) {
    return inlineExponential(instructionSet, t * t);
}

// The two ways to |difference| = |neighbour - centre|. They differ in the sign of a zero
// and in the pattern of a NaN only.
template <class T>
T magnitudeByMask(T difference) {
    if constexpr (sizeof(T) == 4) {
        return std::bit_cast<float>(std::bit_cast<uint32_t>(difference) & 0x7fffffffu);
    } else {
        return std::bit_cast<double>(std::bit_cast<uint64_t>(difference) & 0x7fffffffffffffffu);
    }
}

template <class T>
T magnitudeBySelection(T neighbour, T centre) {
    const T difference = neighbour - centre;
    return 0 <= difference ? difference : centre - neighbour;
}

}  // namespace reference
