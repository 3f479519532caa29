// SPDX-License-Identifier: MIT
// Samples in memory, of whatever type.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <type_traits>
#include <vector>

namespace diffuse {

enum class SampleType {
    uint8,
    int8,
    uint16,
    int16,
    uint32,
    int32,
    uint64,
    int64,
    float32,
    float64
};

inline constexpr const char* sampleTypeNames[] = {
    "uint8", "int8", "uint16", "int16", "uint32", "int32", "uint64", "int64", "float32", "float64"};

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

inline std::size_t sizeOf(SampleType type) {
    return withSampleType(type, [](auto* sample) { return sizeof(*sample); });
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

// One channel of a picture of 2 or 3 dimensions, the first axis innermost, without gaps but for
// the other channels: sample i stands `i * stride` samples behind the first.
struct Channel {
    std::byte* first = nullptr;
    SampleType type = SampleType::float64;
    std::size_t stride = 1;
    std::vector<int> extents = {};

    [[nodiscard]] std::size_t size() const {
        std::size_t count = 1;
        for (const int extent : extents) count *= extent;
        return count;
    }
    [[nodiscard]] double value(std::size_t i) const {
        return withSampleType(type, [&]<typename Sample>(Sample*) {
            return static_cast<double>(reinterpret_cast<const Sample*>(first)[i * stride]);
        });
    }
};

// The planes of volumes along their last axis; pictures as they are.
inline std::vector<Channel> planesOf(const std::vector<Channel>& channels) {
    std::vector<Channel> planes;
    for (const Channel& channel : channels) {
        const int count = channel.extents.size() == 3 ? channel.extents[2] : 1;
        Channel plane = channel;
        plane.extents.resize(2);
        const std::size_t bytes = plane.size() * plane.stride * sizeOf(plane.type);
        for (int i = 0; i < count; ++i, plane.first += bytes) planes.push_back(plane);
    }
    return planes;
}

struct Range {
    double lowest = HUGE_VAL, highest = -HUGE_VAL;
    // 0 without finite samples.
    [[nodiscard]] double length() const { return std::max(highest - lowest, 0.0); }
};

// Of the finite samples of all channels.
inline Range rangeOf(const std::vector<Channel>& channels) {
    Range range;
    for (const Channel& channel : channels) {
        withSampleType(channel.type, [&]<typename Sample>(Sample*) {
            const auto* sample = reinterpret_cast<const Sample*>(channel.first);
            for (std::size_t i = channel.size(); i > 0; --i, sample += channel.stride) {
                const auto value = static_cast<double>(*sample);
                // Seldom true, so that no sample waits for the one before.
                if ((value < range.lowest || value > range.highest) && std::isfinite(value)) {
                    range.lowest = std::min(range.lowest, value);
                    range.highest = std::max(range.highest, value);
                }
            }
        });
    }
    return range;
}

}  // namespace diffuse
