// SPDX-License-Identifier: MIT
// 32-bit coordinates. Shape arithmetic wraps, as the calling convention has it; it is
// done in unsigned numbers, where wrapping is defined.
//
// Every function of the folders arithmetic/ and schedules/ that runs in element code and
// is not a template over the variant is always inlined: a copy that the linker could share
// between files built for different instruction sets must not exist.
#pragma once

#include <cstdint>

namespace diffusefilt {

[[gnu::always_inline]] constexpr int32_t plus(int32_t a, int32_t b) noexcept {
    return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

[[gnu::always_inline]] constexpr int32_t minus(int32_t a, int32_t b) noexcept {
    return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b));
}

[[gnu::always_inline]] constexpr int32_t times(int32_t a, int32_t b) noexcept {
    return static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b));
}

template <class Int>
[[gnu::always_inline]] constexpr Int smaller(Int a, Int b) noexcept {
    return a < b ? a : b;
}

template <class Int>
[[gnu::always_inline]] constexpr Int larger(Int a, Int b) noexcept {
    return a > b ? a : b;
}

// Addresses are 64-bit, and wrap too: a stride is sign-extended before it is multiplied.
[[gnu::always_inline]] constexpr int64_t plus(int64_t a, int64_t b) noexcept {
    return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}

[[gnu::always_inline]] constexpr int64_t minus(int64_t a, int64_t b) noexcept {
    return static_cast<int64_t>(static_cast<uint64_t>(a) - static_cast<uint64_t>(b));
}

[[gnu::always_inline]] constexpr int64_t negated(int64_t a) noexcept {
    return minus(int64_t{0}, a);
}

[[gnu::always_inline]] constexpr int64_t offsetOf(int32_t coordinate, int32_t stride) noexcept {
    return static_cast<int64_t>(coordinate) * stride;
}

}  // namespace diffusefilt
