// SPDX-License-Identifier: MIT
// The exponential of the float32 pipelines, exp(-s), written into the arithmetic of
// every neighbour: s is reduced to the range 0 .. ln 2, a polynomial of degree 7 in two
// chains of r squared is evaluated there, and the power of two is put back by its bits.
// Results below 2^-126 are flushed to zero, and so is every NaN. The relative error
// stays below 1.5e-7 for s from 0 to 87.
#pragma once

#include <math.h>

#include "arithmetic/exponentBits.h"
#include "arithmetic/lanes.h"
#include "arithmetic/weights.h"

namespace diffusefilt {

namespace exponential {
constexpr float negLog2e = fromBits(uint32_t{0xbfb8aa3b});
constexpr float ln2Hi = fromBits(uint32_t{0x3f317200});  // low nine bits are zero
constexpr float ln2Lo = fromBits(uint32_t{0x35bfbe8e});
// Minimax coefficients of exp(r) on 0 .. ln 2, named by the power of r.
constexpr float c7 = fromBits(uint32_t{0x39a797f3});
constexpr float c6 = fromBits(uint32_t{0x3a9c2e66});
constexpr float c5 = fromBits(uint32_t{0x3c0b192a});
constexpr float c4 = fromBits(uint32_t{0x3d2a66bc});
constexpr float c3 = fromBits(uint32_t{0x3e2aae1f});
constexpr float c2 = fromBits(uint32_t{0x3effffde});
}  // namespace exponential

// Rounded down, by one call of the math library for each lane where processors have no floor.
template <InstructionSet set, class V>
[[gnu::always_inline]] inline V floorOf(V y) noexcept {
    if constexpr (!rulesOf(set).hasFloor) {
        return fromLanes<V>([&](int i)
                                __attribute__((always_inline)) { return ::floorf(laneOf(y, i)); });
    } else {
        return roundDown(y);
    }
}

// x - f ln 2 with ln 2 in two parts, the high part first.
template <InstructionSet set, class V>
[[gnu::always_inline]] inline V reduced(V s, V f) noexcept {
    using namespace exponential;
    if constexpr (rulesOf(set).fuses) {
        return fused(f, broadcast<V>(-ln2Lo), fused(f, broadcast<V>(-ln2Hi), -s));
    } else {
        return (-s - f * ln2Hi) - f * ln2Lo;
    }
}

// exp(r), 0 <= r < ln 2. The sets join the two chains in different orders.
template <InstructionSet set, class V>
[[gnu::always_inline]] inline V polynomial(V r) noexcept {
    using namespace exponential;
    const auto horner = [](V sum, V q, float c) __attribute__((always_inline)) {
        return multiplyAdd<set>(sum, q, broadcast<V>(c));
    };
    const V q = r * r;
    const V odd = horner(horner(horner(broadcast<V>(c7), q, c5), q, c3), q, 1.0f);
    const V even = horner(horner(broadcast<V>(c6), q, c4), q, c2);
    constexpr PolynomialEnd end = rulesOf(set).polynomialEnd;
    if constexpr (end == PolynomialEnd::oddFirst) {
        return (r * odd + 1.0f) + even * q;
    } else if constexpr (end == PolynomialEnd::evenFirst) {
        return (even * q + 1.0f) + r * odd;
    } else {
        static_assert(end == PolynomialEnd::evenFirstFused, "this polynomial has no end");
        return fused(odd, r, fused(even, q, broadcast<V>(1.0f)));
    }
}

template <InstructionSet set, class V>
[[gnu::always_inline]] inline V exponentialOfMinus(V s) noexcept {
    const V f = floorOf<set>(V(s * exponential::negLog2e));
    return scaledByPowerOfTwo<set>(polynomial<set>(reduced<set>(s, f)), f);
}

}  // namespace diffusefilt
