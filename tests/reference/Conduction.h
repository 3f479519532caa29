// The conductance of one neighbour.
#pragma once

#include <cmath>

#include "Reference.h"
#include "pipelines/axes.h"

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

}  // namespace reference
