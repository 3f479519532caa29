// SPDX-License-Identifier: MIT
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>

#include "Reference.h"

namespace reference {
namespace {

using diffusefilt::InstructionSet;

constexpr float constant(uint32_t bits) {
    return std::bit_cast<float>(bits);
}

constexpr float negLog2e = constant(0xbfb8aa3b);
constexpr float ln2Hi = constant(0x3f317200);
constexpr float ln2Lo = constant(0x35bfbe8e);
constexpr float c7 = constant(0x39a797f3);
constexpr float c5 = constant(0x3c0b192a);
constexpr float c3 = constant(0x3e2aae1f);
constexpr float c6 = constant(0x3a9c2e66);
constexpr float c4 = constant(0x3d2a66bc);
constexpr float c2 = constant(0x3effffde);

// Conversion by truncation; what does not fit, and NaN, gives the indefinite integer.
int32_t toInteger(float f) {
    const bool fits = f >= -2147483648.0f && f < 2147483648.0f;
    return fits ? static_cast<int32_t>(f) : std::numeric_limits<int32_t>::min();
}

float roundedPolynomial(InstructionSet instructionSet, float x, float f) {
    const float r = (x - f * ln2Hi) - f * ln2Lo;
    const float q = r * r;
    const float odd = ((c7 * q + c5) * q + c3) * q + 1.0f;
    const float even = ((c6 * q + c4) * q + c2) * q;
    if (instructionSet == InstructionSet::avx) return (even + 1.0f) + r * odd;
    return (r * odd + 1.0f) + even;
}

float fusedPolynomial(float s, float f) {
    const float r0 = std::fma(-ln2Hi, f, -s);
    const float r = std::fma(-ln2Lo, f, r0);
    const float q = r * r;
    const float odd = std::fma(std::fma(std::fma(c7, q, c5), q, c3), q, 1.0f);
    const float even = std::fma(std::fma(std::fma(c6, q, c4), q, c2), q, 1.0f);
    return std::fma(odd, r, even);
}

}  // namespace

float inlineExponential(InstructionSet instructionSet, float s) {
    const float y = s * negLog2e;
    const float f = std::floor(y);
    const int32_t k = toInteger(f);
    const float p = instructionSet == InstructionSet::avx2
                        ? fusedPolynomial(s, f)
                        : roundedPolynomial(instructionSet, -s, f);
    const uint32_t exponent = (static_cast<uint32_t>(k) + 127u) << 23;  // wraps
    const float v = p * std::bit_cast<float>(exponent);
    if (k <= -127) return 0.0f;
    if (k >= 128) return std::numeric_limits<float>::infinity();
    return v;
}

}  // namespace reference
