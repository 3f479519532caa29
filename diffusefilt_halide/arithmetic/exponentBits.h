// The integer side of the inline exponential: p * 2^f for an integral f, by the bits of
// the exponent field.
#pragma once

#include "arithmetic/coordinates.h"
#include "arithmetic/lanes.h"

namespace diffusefilt {

#ifdef __SSE4_1__
// floor(v), the instruction.
[[gnu::always_inline]] inline float roundDown(float v) noexcept {
    return _mm_cvtss_f32(_mm_floor_ss(_mm_setzero_ps(), _mm_set_ss(v)));
}
[[gnu::always_inline]] inline __m128 roundDown(__m128 v) noexcept {
    return _mm_floor_ps(v);
}
#endif
#ifdef __AVX__
[[gnu::always_inline]] inline __m256 roundDown(__m256 v) noexcept {
    return _mm256_floor_ps(v);
}
#endif

// f as an integer. What does not fit, NaN among it, becomes the lowest integer.
[[gnu::always_inline]] inline int32_t truncated(float f) noexcept {
    return _mm_cvttss_si32(_mm_set_ss(f));
}
[[gnu::always_inline]] inline Lanes<int32_t, 4> truncated(__m128 f) noexcept {
    return reinterpret_cast<Lanes<int32_t, 4>>(_mm_cvttps_epi32(f));
}

// The bits of 2^k, for every k that the selects let through. The sum wraps.
template <InstructionSet set, class Unsigned>
[[gnu::always_inline]] inline Unsigned powerOfTwoBits(Unsigned k) noexcept {
    if constexpr (rulesOf(set).bias == Bias::beforeShift) {
        return (k + 127u) << 23;
    } else {
        return (k << 23) + 0x3f800000u;
    }
}

// The smaller lanes of the two, by the instruction where the set has it: g++ makes a
// comparison and a blend of the language's selection.
[[gnu::always_inline]] inline Lanes<int32_t, 4> smallerOf(Lanes<int32_t, 4> a,
                                                          Lanes<int32_t, 4> b) noexcept {
#ifdef __SSE4_1__
    using Integers = __m128i;
    return reinterpret_cast<Lanes<int32_t, 4>>(
        _mm_min_epi32(reinterpret_cast<Integers>(a), reinterpret_cast<Integers>(b)));
#else
    return a < b ? a : b;
#endif
}
#ifdef __AVX2__
[[gnu::always_inline]] inline Lanes<int32_t, 8> smallerOf(Lanes<int32_t, 8> a,
                                                          Lanes<int32_t, 8> b) noexcept {
    using Integers = __m256i;
    return reinterpret_cast<Lanes<int32_t, 8>>(
        _mm256_min_epi32(reinterpret_cast<Integers>(a), reinterpret_cast<Integers>(b)));
}
#endif

// p * 2^k, with two selects on k alone: from 128 on k is bounded there, where the bits are
// those of infinity; from -127 down the result is +0.0. No argument of the pipelines makes
// k positive; the first select is part of the routine all the same.
constexpr int32_t overflowFrom = 128;
constexpr int32_t underflowFrom = -127;

template <InstructionSet set>
[[gnu::always_inline]] inline float scaledByPowerOfTwo(float p, float f) noexcept {
    const int32_t k = truncated(f);
    const auto bounded = static_cast<uint32_t>(smaller(k, overflowFrom));
    const uint32_t bits = powerOfTwoBits<set>(bounded);
    return k <= underflowFrom ? 0.0f : p * __builtin_bit_cast(float, bits);
}

// 2^k by its bits, and the mask of the second select, for as many lanes as the set's
// integer operations take at once.
template <InstructionSet set, class Floats, class Ints>
struct PowerOfTwo {
    Floats value;
    Floats isUnderflow;

    [[gnu::always_inline]] explicit PowerOfTwo(Ints k) noexcept {
        using Unsigned = Lanes<uint32_t, LanesTraits<Ints>::count>;
        const auto bounded = smallerOf(k, broadcast<Ints>(overflowFrom));
        const auto bits = powerOfTwoBits<set>(reinterpret_cast<Unsigned>(bounded));
        value = reinterpret_cast<Floats>(bits);
        isUnderflow = reinterpret_cast<Floats>(k <= underflowFrom);
    }
};

template <InstructionSet set>
[[gnu::always_inline]] inline Lanes<float, 4> scaledByPowerOfTwo(Lanes<float, 4> p,
                                                                 Lanes<float, 4> f) noexcept {
    const PowerOfTwo<set, Lanes<float, 4>, Lanes<int32_t, 4>> power(truncated(f));
    return _mm_andnot_ps(power.isUnderflow, p * power.value);
}

#ifdef __AVX__
template <InstructionSet set>
[[gnu::always_inline]] inline Lanes<float, 8> scaledByPowerOfTwo(Lanes<float, 8> p,
                                                                 Lanes<float, 8> f) noexcept {
#ifdef __AVX2__
    const auto k = reinterpret_cast<Lanes<int32_t, 8>>(_mm256_cvttps_epi32(f));
    const PowerOfTwo<set, Lanes<float, 8>, Lanes<int32_t, 8>> power(k);
    return _mm256_andnot_ps(power.isUnderflow, p * power.value);
#else
    // The set has no 256-bit integer operation: two halves, and the mask is widened.
    using Half = PowerOfTwo<set, Lanes<float, 4>, Lanes<int32_t, 4>>;
    const Half low(truncated(_mm256_castps256_ps128(f)));
    const Half high(truncated(_mm256_extractf128_ps(f, 1)));
    return _mm256_andnot_ps(_mm256_set_m128(high.isUnderflow, low.isUnderflow),
                            p * _mm256_set_m128(high.value, low.value));
#endif
}
#endif

}  // namespace diffusefilt
