// The weights of the stencils, by their bits. They are not all the nearest values to
// their fractions: the corner weight is the square of the rounded reciprocal of sqrt(3).
#pragma once

#include <cstdint>

#include "PipelineVariant.h"

namespace diffusefilt {

[[gnu::always_inline]] constexpr float fromBits(uint32_t bits) noexcept {
    return __builtin_bit_cast(float, bits);
}
[[gnu::always_inline]] constexpr double fromBits(uint64_t bits) noexcept {
    return __builtin_bit_cast(double, bits);
}

// The factor of the whole sum of fluxes: 1 over the count of neighbours.
template <int dimensions, Connectivity connectivity, class T>
constexpr T rate = T(0);

template <class T>
inline constexpr T rate<2, Connectivity::minimal, T> = T(0.25);
template <class T>
inline constexpr T rate<2, Connectivity::maximal, T> = T(0.125);
template <>
inline constexpr float rate<3, Connectivity::minimal, float> = fromBits(uint32_t{0x3e2aaaab});
template <>
inline constexpr double rate<3, Connectivity::minimal, double> = fromBits(uint64_t{
    0x3fc5555555555555});
template <>
inline constexpr float rate<3, Connectivity::maximal, float> = fromBits(uint32_t{0x3d1d89d9});
template <>
inline constexpr double rate<3, Connectivity::maximal, double> = fromBits(uint64_t{
    0x3fa3b13b13b13b14});

// The diagonals in 2-D and the edges in 3-D.
template <class T>
constexpr T diagonalWeight = T(0.5);
template <class T>
constexpr T edgeWeight = T(0.5);

// The corners in 3-D. The double weight is worked out from the square root of 3 by two
// rounded steps, which give 0x3fd5555555555557; the single one is stored.
constexpr double sqrtThree = fromBits(uint64_t{0x3ffbb67ae8584caa});

template <class T>
[[gnu::always_inline]] inline T cornerWeight(double squareRootOfThree) noexcept {
    if constexpr (sizeof(T) == sizeof(float)) {
        return fromBits(uint32_t{0x3eaaaaaa});
    } else {
        const double r = 1.0 / squareRootOfThree;
        return r * r;
    }
}

}  // namespace diffusefilt
