// SPDX-License-Identifier: MIT
// Comparison to the last bit: any NaN equals any NaN, -0.0 differs from +0.0.
#pragma once

#include <bit>
#include <cstdint>
#include <iomanip>
#include <sstream>
#include <string>
#include <type_traits>

namespace support {

template <class T>
using BitsOf = std::conditional_t<sizeof(T) == 4, uint32_t, uint64_t>;

template <class T>
BitsOf<T> bitsOf(T value) {
    return std::bit_cast<BitsOf<T>>(value);
}

template <class T>
bool sameBits(T a, T b) {
    return bitsOf(a) == bitsOf(b) || (a != a && b != b);
}

template <class T>
std::string showBits(T value) {
    std::ostringstream text;
    text << "0x" << std::hex << std::setw(2 * sizeof(T)) << std::setfill('0') << bitsOf(value)
         << std::dec << " (" << std::setprecision(17) << value << ")";
    return text.str();
}

}  // namespace support
