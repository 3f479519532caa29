// SPDX-License-Identifier: MIT
// Random numbers that are the same on every platform (splitmix64).
#pragma once

#include <cstddef>
#include <cstdint>

namespace support {

class RandomNumbers {
public:
    explicit RandomNumbers(uint64_t seed) : state_(seed) {}

    uint64_t next() {
        uint64_t z = state_ += 0x9e3779b97f4a7c15u;
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
        z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
        return z ^ (z >> 31);
    }

    // Both ends included.
    int32_t between(int32_t lowest, int32_t highest) {
        const uint64_t count = static_cast<uint64_t>(int64_t{highest} - lowest + 1);
        return static_cast<int32_t>(lowest + static_cast<int64_t>(next() % count));
    }

    bool chance(int percent) { return between(0, 99) < percent; }

    // 0 <= unit < 1
    double unit() { return static_cast<double>(next() >> 11) * 0x1p-53; }

    template <class T, std::size_t n>
    T oneOf(const T (&choices)[n]) {
        return choices[next() % n];
    }

private:
    uint64_t state_;
};

}  // namespace support
