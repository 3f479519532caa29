// SPDX-License-Identifier: MIT
// The integer side of the inline exponential: p * 2^f for an integral f, by the bits of
// the exponent field.
#pragma once

#include "arithmetic/coordinates.h"
#include "arithmetic/lanes.h"

namespace diffusefilt {

// The bits of 2^k, for every k that the selects let through. The sum wraps.
template <InstructionSet set, class Unsigned>
[[gnu::always_inline]] inline Unsigned powerOfTwoBits(Unsigned k) noexcept {
    if constexpr (rulesOf(set).biasBeforeShift) {
        return (k + 127u) << 23;
    } else {
        return (k << 23) + 0x3f800000u;
    }
}

// p * 2^k, with two selects on k alone: from 128 on k is bounded there, where the bits are
// those of infinity; from -127 down the result is +0.0. No argument of the pipelines makes
// k positive; the first select is part of the routine all the same.
constexpr int32_t overflowFrom = 128;
constexpr int32_t underflowFrom = -127;

// 2^k by its bits, and the mask of the second select, for as many lanes as the set's
// integer operations take at once.
template <InstructionSet set, class Floats>
struct PowerOfTwo {
    Floats value;
    Floats isUnderflow;

    template <class Ints>
    [[gnu::always_inline]] explicit PowerOfTwo(Ints k) noexcept {
        using Unsigned = Lanes<uint32_t, lanesOf<Ints>>;
        const auto bounded = smallerOf(k, broadcast<Ints>(overflowFrom));
        const auto bits = powerOfTwoBits<set>(reinterpret_cast<Unsigned>(bounded));
        value = reinterpret_cast<Floats>(bits);
        isUnderflow = reinterpret_cast<Floats>(k <= underflowFrom);
    }
};

template <InstructionSet set>
[[gnu::always_inline]] inline float scaledByPowerOfTwo(float p, float f) noexcept {
    const int32_t k = truncated(f);
    const auto bounded = static_cast<uint32_t>(smaller(k, overflowFrom));
    const uint32_t bits = powerOfTwoBits<set>(bounded);
    return k <= underflowFrom ? 0.0f : p * __builtin_bit_cast(float, bits);
}

template <InstructionSet set, class V>
[[gnu::always_inline]] inline V scaledByPowerOfTwo(V p, V f) noexcept {
    if constexpr (rulesOf(set).worksInHalves && sizeof(V) == 32) {
        using Half = PowerOfTwo<set, Lanes<float, 4>>;
        const Half lower(truncated(_mm256_castps256_ps128(f)));
        const Half upper(truncated(_mm256_extractf128_ps(f, 1)));
        return clearedBy(_mm256_set_m128(upper.isUnderflow, lower.isUnderflow),
                         p * _mm256_set_m128(upper.value, lower.value));
    } else {
        const PowerOfTwo<set, V> power(truncated(f));
        return clearedBy(power.isUnderflow, p * power.value);
    }
}

}  // namespace diffusefilt
