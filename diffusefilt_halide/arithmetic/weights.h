// SPDX-License-Identifier: MIT
// The weights of the stencils, by their bits where they are no powers of two. They are
// not all the nearest values to their fractions: the corner weight is the square of the
// rounded reciprocal of sqrt(3).
#pragma once

#include <cstdint>

#include "pipelines/axes.h"

namespace diffusefilt {

[[gnu::always_inline]] constexpr float fromBits(uint32_t bits) noexcept {
    return __builtin_bit_cast(float, bits);
}
[[gnu::always_inline]] constexpr double fromBits(uint64_t bits) noexcept {
    return __builtin_bit_cast(double, bits);
}

// One of two constants, by the element type.
template <class T>
[[gnu::always_inline]] constexpr T fromBits(uint32_t ofFloat, uint64_t ofDouble) noexcept {
    if constexpr (sizeof(T) == sizeof(float)) {
        return fromBits(ofFloat);
    } else {
        return fromBits(ofDouble);
    }
}

// The factor of the whole sum of fluxes: 1 over the count of neighbours.
template <class T>
constexpr T rateOfMinimal2 = T(0.25);
template <class T>
constexpr T rateOfMaximal2 = T(0.125);
template <class T>
constexpr T rateOfMinimal3 = fromBits<T>(0x3e2aaaab, 0x3fc5555555555555);
template <class T>
constexpr T rateOfMaximal3 = fromBits<T>(0x3d1d89d9, 0x3fa3b13b13b13b14);

// The diagonals in 2-D and the edges in 3-D.
template <class T>
constexpr T diagonalWeight = T(0.5);
template <class T>
constexpr T edgeWeight = T(0.5);

// The corners in 3-D: stored in single precision; in double worked out from the square root
// of 3 by two rounded steps, which give 0x3fd5555555555557.
constexpr float cornerWeight = fromBits(uint32_t{0x3eaaaaaa});
constexpr double sqrtThree = fromBits(uint64_t{0x3ffbb67ae8584caa});

[[gnu::always_inline]] inline double cornerWeightFrom(double squareRootOfThree) noexcept {
    const double r = 1.0 / squareRootOfThree;
    return r * r;
}

}  // namespace diffusefilt
