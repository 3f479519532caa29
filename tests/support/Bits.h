// Comparison to the last bit: any NaN equals any NaN, -0.0 differs from +0.0.
#pragma once

#include <bit>
#include <cstdint>
#include <iomanip>
#include <sstream>
#include <string>
#include <type_traits>

#include "reference/Reference.h"

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

// Names the first element, dimension 0 innermost, that differs between two images of the
// same shape; empty where there is none.
template <class T>
std::string firstDifference(const reference::View<const T>& found,
                            const reference::View<const T>& wanted) {
    const int32_t planes = found.dimensions == 3 ? found.extent[2] : 1;
    for (int32_t k = 0; k < planes; ++k) {
        for (int32_t j = 0; j < found.extent[1]; ++j) {
            for (int32_t i = 0; i < found.extent[0]; ++i) {
                const int32_t at[3] = {i, j, k};
                int64_t foundAt = 0;
                int64_t wantedAt = 0;
                for (int d = 0; d < found.dimensions; ++d) {
                    foundAt += int64_t{at[d]} * found.stride[d];
                    wantedAt += int64_t{at[d]} * wanted.stride[d];
                }
                const T f = found.host[foundAt];
                const T w = wanted.host[wantedAt];
                if (sameBits(f, w)) continue;
                std::ostringstream text;
                text << "element (" << int64_t{found.min[0]} + i;
                for (int d = 1; d < found.dimensions; ++d) {
                    text << ", " << int64_t{found.min[d]} + at[d];
                }
                text << ") is " << showBits(f) << ", wanted " << showBits(w);
                return text.str();
            }
        }
    }
    return {};
}

}  // namespace support
