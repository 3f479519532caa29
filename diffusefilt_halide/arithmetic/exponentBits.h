// The integer side of the inline exponential: p * 2^f for an integral f, by the bits of
// the exponent field.
#pragma once

#include "arithmetic/lanes.h"

namespace diffusefilt {

#ifdef __SSE4_1__
// floor(v), the instruction.
[[gnu::always_inline]] inline float roundDown(float v) noexcept {
    return _mm_cvtss_f32(_mm_floor_ss(_mm_setzero_ps(), _mm_set_ss(v)));
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

// The bits of 2^k, for every k that the selects let through. The sum wraps. avx adds the
// bias before the shift, the other sets behind it.
template <InstructionSet set, class Unsigned>
[[gnu::always_inline]] inline Unsigned powerOfTwoBits(Unsigned k) noexcept {
    if constexpr (set == InstructionSet::avx) {
        return (k + 127u) << 23;
    } else {
        return (k << 23) + 0x3f800000u;
    }
}

// Selects on k alone: infinity from 128 on, then +0.0 from -127 down, else v. No argument
// of the pipelines makes k positive; the first select is part of the routine all the same.
constexpr int32_t overflowFrom = 128;
constexpr int32_t underflowFrom = -127;

template <InstructionSet set>
[[gnu::always_inline]] inline float scaledByPowerOfTwo(float p, float f) noexcept {
    const int32_t k = truncated(f);
    const uint32_t bits = powerOfTwoBits<set>(static_cast<uint32_t>(k));
    const float v = p * __builtin_bit_cast(float, bits);
    const float bounded = k >= overflowFrom ? __builtin_inff() : v;
    return k <= underflowFrom ? 0.0f : bounded;
}

// 2^k by its bits, and the masks of the two selects, for as many lanes as the set's
// integer operations take at once.
template <InstructionSet set, class Floats, class Ints>
struct PowerOfTwo {
    Floats value;
    Floats isOverflow;
    Floats isUnderflow;

    [[gnu::always_inline]] explicit PowerOfTwo(Ints k) noexcept {
        using Unsigned = Lanes<uint32_t, LanesTraits<Ints>::count>;
        const auto bits = powerOfTwoBits<set>(reinterpret_cast<Unsigned>(k));
        value = reinterpret_cast<Floats>(bits);
        isOverflow = reinterpret_cast<Floats>(k >= overflowFrom);
        isUnderflow = reinterpret_cast<Floats>(k <= underflowFrom);
    }
};

template <InstructionSet set>
[[gnu::always_inline]] inline Lanes<float, 4> scaledByPowerOfTwo(Lanes<float, 4> p,
                                                                 Lanes<float, 4> f) noexcept {
    const PowerOfTwo<set, Lanes<float, 4>, Lanes<int32_t, 4>> power(truncated(f));
    const auto select = [](__m128 mask, __m128 a, __m128 b) __attribute__((always_inline)) {
        return _mm_or_ps(_mm_and_ps(mask, a), _mm_andnot_ps(mask, b));
    };
    const auto bounded = select(power.isOverflow, _mm_set1_ps(__builtin_inff()), p * power.value);
    return _mm_andnot_ps(power.isUnderflow, bounded);
}

#ifdef __AVX__
template <InstructionSet set>
[[gnu::always_inline]] inline Lanes<float, 8> scaledByPowerOfTwo(Lanes<float, 8> p,
                                                                 Lanes<float, 8> f) noexcept {
    const auto finish = [&](__m256 value, __m256 isOverflow, __m256 isUnderflow)
        __attribute__((always_inline)) {
        const auto infinity = _mm256_set1_ps(__builtin_inff());
        // Not blendv: g++ takes it apart into scalar branches where the set has no 256-bit
        // integer comparison, and the whole step takes 1.6 times as long.
        const auto bounded = _mm256_or_ps(_mm256_and_ps(isOverflow, infinity),
                                          _mm256_andnot_ps(isOverflow, p * value));
        return _mm256_andnot_ps(isUnderflow, bounded);
    };
#ifdef __AVX2__
    const auto k = reinterpret_cast<Lanes<int32_t, 8>>(_mm256_cvttps_epi32(f));
    const PowerOfTwo<set, Lanes<float, 8>, Lanes<int32_t, 8>> power(k);
    return finish(power.value, power.isOverflow, power.isUnderflow);
#else
    // The set has no 256-bit integer operation: two halves, and the masks are widened.
    using Half = PowerOfTwo<set, Lanes<float, 4>, Lanes<int32_t, 4>>;
    const Half low(truncated(_mm256_castps256_ps128(f)));
    const Half high(truncated(_mm256_extractf128_ps(f, 1)));
    return finish(_mm256_set_m128(high.value, low.value),
                  _mm256_set_m128(high.isOverflow, low.isOverflow),
                  _mm256_set_m128(high.isUnderflow, low.isUnderflow));
#endif
}
#endif

}  // namespace diffusefilt
