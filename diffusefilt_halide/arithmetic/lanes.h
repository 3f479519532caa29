// SPDX-License-Identifier: MIT
// Lanes: N elements that every operation treats alike and none mixes. One lane is the
// plain element; more are a vector of the compiler. The operators + - * / are the
// language's; here stands what it has no word for.
#pragma once

#include <immintrin.h>

#include <cstdint>
#include <type_traits>
#include <utility>

#include "pipelines/axes.h"

namespace diffusefilt {

template <class T, int N>
struct LanesType {
    using Type [[gnu::vector_size(N * sizeof(T))]] = T;
};
template <class T>
struct LanesType<T, 1> {
    using Type = T;
};
template <class T, int N>
using Lanes = typename LanesType<T, N>::Type;

template <class V>
[[gnu::always_inline]] inline auto laneOf(const V& v, int i) noexcept {
    if constexpr (std::is_arithmetic_v<V>) {
        return v;
    } else {
        return v[i];
    }
}
template <class V>
using ElementOfLanes = decltype(laneOf(V{}, 0));
template <class V>
constexpr int lanesOf = sizeof(V) / sizeof(ElementOfLanes<V>);

// The lanes element(0), element(1), ..., called in this order. They are put together
// from registers: written one by one to memory and read back whole, they would stall.
template <class V, class F>
[[gnu::always_inline]] inline V fromLanes(F element) noexcept {
    return [&]<int... i>(std::integer_sequence<int, i...>) __attribute__((always_inline)) {
        return V{element(i)...};
    }
    (std::make_integer_sequence<int, lanesOf<V>>{});
}

template <class V>
[[gnu::always_inline]] inline V broadcast(ElementOfLanes<V> value) noexcept {
    return fromLanes<V>([=](int) __attribute__((always_inline)) { return value; });
}

// Elements in memory may stand at any address.
template <class T>
struct Unaligned {
    T value;
} __attribute__((packed, may_alias));

template <class V>
[[gnu::always_inline]] inline V load(const ElementOfLanes<V>* from) noexcept {
    return reinterpret_cast<const Unaligned<V>*>(from)->value;
}

// Lane i is lane i + by of v, the lane at the end where there is none.
template <int by, class V>
[[gnu::always_inline]] inline V movedBy(V v) noexcept {
    constexpr int last = lanesOf<V> - 1;
    return [&]<int... i>(std::integer_sequence<int, i...>) __attribute__((always_inline)) {
        return __builtin_shufflevector(v, v, (i + by < 0 ? 0 : i + by > last ? last : i + by)...);
    }
    (std::make_integer_sequence<int, last + 1>{});
}

// The float as an integer. What does not fit, NaN among it, becomes the lowest integer.
[[gnu::always_inline]] inline int32_t truncated(float f) noexcept {
    return _mm_cvttss_si32(_mm_set_ss(f));
}
[[gnu::always_inline]] inline Lanes<int32_t, 4> truncated(__m128 f) noexcept {
    return reinterpret_cast<Lanes<int32_t, 4>>(_mm_cvttps_epi32(f));
}

// The smaller lanes of the two: g++ makes a comparison and a blend of the language's selection.
[[gnu::always_inline]] inline Lanes<int32_t, 4> smallerOf(Lanes<int32_t, 4> a,
                                                          Lanes<int32_t, 4> b) noexcept {
#ifdef __SSE4_1__
    return reinterpret_cast<Lanes<int32_t, 4>>(
        _mm_min_epi32(reinterpret_cast<__m128i>(a), reinterpret_cast<__m128i>(b)));
#else
    return a < b ? a : b;
#endif
}

// The lanes of v, +0.0 where the mask has all bits.
[[gnu::always_inline]] inline __m128 clearedBy(__m128 mask, __m128 v) noexcept {
    return _mm_andnot_ps(mask, v);
}

#ifdef __SSE4_1__
// floor(v).
[[gnu::always_inline]] inline float roundDown(float v) noexcept {
    return _mm_cvtss_f32(_mm_floor_ss(_mm_setzero_ps(), _mm_set_ss(v)));
}
[[gnu::always_inline]] inline __m128 roundDown(__m128 v) noexcept {
    return _mm_floor_ps(v);
}
#endif

#ifdef __AVX__
// The lanes of a, then those of b.
[[gnu::always_inline]] inline __m256 joined(__m128 a, __m128 b) noexcept {
    return _mm256_set_m128(b, a);
}
[[gnu::always_inline]] inline __m256d joined(__m128d a, __m128d b) noexcept {
    return _mm256_set_m128d(b, a);
}

[[gnu::always_inline]] inline __m256 roundDown(__m256 v) noexcept {
    return _mm256_floor_ps(v);
}
[[gnu::always_inline]] inline __m256 clearedBy(__m256 mask, __m256 v) noexcept {
    return _mm256_andnot_ps(mask, v);
}
#endif

#ifdef __AVX2__
[[gnu::always_inline]] inline Lanes<int32_t, 8> truncated(__m256 f) noexcept {
    return reinterpret_cast<Lanes<int32_t, 8>>(_mm256_cvttps_epi32(f));
}
[[gnu::always_inline]] inline Lanes<int32_t, 8> smallerOf(Lanes<int32_t, 8> a,
                                                          Lanes<int32_t, 8> b) noexcept {
    return reinterpret_cast<Lanes<int32_t, 8>>(
        _mm256_min_epi32(reinterpret_cast<__m256i>(a), reinterpret_cast<__m256i>(b)));
}
#endif

#ifdef __FMA__
// a * b + c with one rounding.
[[gnu::always_inline]] inline float fused(float a, float b, float c) noexcept {
    return __builtin_fmaf(a, b, c);
}
[[gnu::always_inline]] inline double fused(double a, double b, double c) noexcept {
    return __builtin_fma(a, b, c);
}
[[gnu::always_inline]] inline __m128 fused(__m128 a, __m128 b, __m128 c) noexcept {
    return _mm_fmadd_ps(a, b, c);
}
[[gnu::always_inline]] inline __m256 fused(__m256 a, __m256 b, __m256 c) noexcept {
    return _mm256_fmadd_ps(a, b, c);
}
[[gnu::always_inline]] inline __m256d fused(__m256d a, __m256d b, __m256d c) noexcept {
    return _mm256_fmadd_pd(a, b, c);
}
#endif

// a * b + c: one rounding where the set fuses, two elsewhere.
template <InstructionSet set, class V>
[[gnu::always_inline]] inline V multiplyAdd(V a, V b, V c) noexcept {
    if constexpr (rulesOf(set).fuses) {
        return fused(a, b, c);
    } else {
        return a * b + c;
    }
}

}  // namespace diffusefilt
