// SPDX-License-Identifier: MIT
// How many random calls a test makes.
#pragma once

#include <cstdint>
#include <cstdlib>

namespace support {

inline int64_t environmentNumber(const char* name, int64_t otherwise) {
    const char* text = std::getenv(name);
    return text != nullptr ? static_cast<int64_t>(std::strtoull(text, nullptr, 0)) : otherwise;
}

// DIFFUSEFILT_CALLS where it is set; else `full` in a long run, which sets DIFFUSEFILT_LONG.
inline int64_t callCount(int64_t quick, int64_t full) {
    const bool isLong = environmentNumber("DIFFUSEFILT_LONG", 0) != 0;
    return environmentNumber("DIFFUSEFILT_CALLS", isLong ? full : quick);
}

}  // namespace support
