// Samples of a file as values of the program, and back.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <type_traits>

#include "picture.h"

namespace diffuse {

// Calls `visit` with a null pointer to the C++ type of a sample.
template <typename Visitor>
decltype(auto) withSampleType(SampleType type, const Visitor& visit) {
    switch (type) {
        case SampleType::uint8:
            return visit(static_cast<std::uint8_t*>(nullptr));
        case SampleType::int8:
            return visit(static_cast<std::int8_t*>(nullptr));
        case SampleType::uint16:
            return visit(static_cast<std::uint16_t*>(nullptr));
        case SampleType::int16:
            return visit(static_cast<std::int16_t*>(nullptr));
        case SampleType::uint32:
            return visit(static_cast<std::uint32_t*>(nullptr));
        case SampleType::int32:
            return visit(static_cast<std::int32_t*>(nullptr));
        case SampleType::uint64:
            return visit(static_cast<std::uint64_t*>(nullptr));
        case SampleType::int64:
            return visit(static_cast<std::int64_t*>(nullptr));
        case SampleType::float32:
            return visit(static_cast<float*>(nullptr));
        default:
            return visit(static_cast<double*>(nullptr));
    }
}

// Integers are rounded to the nearest, halves away from 0, and saturated; NaN becomes the lowest.
template <typename Sample>
Sample toSample(double value) {
    if constexpr (std::is_integral_v<Sample>) {
        using Limits = std::numeric_limits<Sample>;
        if (value >= static_cast<double>(Limits::max())) return Limits::max();
        // NaN fails the comparison.
        if (!(value > static_cast<double>(Limits::lowest()))) return Limits::lowest();
        return static_cast<Sample>(std::round(value));
    } else {
        return static_cast<Sample>(value);
    }
}

inline std::size_t sizeOf(SampleType type) {
    return withSampleType(type, [](auto* sample) { return sizeof(*sample); });
}

// All samples as files have them: of the picture's type, the channels of a pixel together.
inline std::string samplesOf(const Picture& picture) {
    std::string bytes(picture.values.size() * sizeOf(picture.sampleType), '\0');
    withSampleType(picture.sampleType, [&]<typename Sample>(Sample*) {
        auto* samples = reinterpret_cast<Sample*>(bytes.data());
        for (int c = 0; c < picture.channels; ++c) {
            std::size_t at = c;
            for (const double value : picture.channel(c)) {
                samples[at] = toSample<Sample>(value);
                at += picture.channels;
            }
        }
    });
    return bytes;
}

}  // namespace diffuse
