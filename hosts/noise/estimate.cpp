#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <new>
#include <vector>

#include "diffusefilt_noise.h"

namespace {

constexpr double nothing = std::numeric_limits<double>::quiet_NaN();

struct Axis {
    std::ptrdiff_t extent = 1, stride = 0;  // in elements
    // Where its last block begins, plus one. An axis of one element has one, without a partner.
    [[nodiscard]] std::ptrdiff_t blocks() const { return extent < 2 ? extent : extent - 1; }
};

// One channel; the axes that a record does not have hold one element.
template <typename Element>
struct Channel {
    const Element* elements;
    Axis x, y, z;

    explicit Channel(const halide_buffer_t& buffer)
        : elements(reinterpret_cast<const Element*>(buffer.host)) {
        Axis* const axes[] = {&x, &y, &z};
        for (int d = 0; d < buffer.dimensions; ++d) {
            *axes[d] = {buffer.dim[d].extent, buffer.dim[d].stride};
        }
    }
};

// The corners of a block of two elements along every axis that has two.
struct Corner {
    std::ptrdiff_t offset;
    double sign;
};

template <typename Element>
std::vector<Corner> cornersOf(const Channel<Element>& channel) {
    std::vector<Corner> corners = {{0, 1}};
    for (const Axis& axis : {channel.x, channel.y, channel.z}) {
        const std::size_t count = axis.extent >= 2 ? corners.size() : 0;
        for (std::size_t i = 0; i < count; ++i) {
            corners.push_back({corners[i].offset + axis.stride, -corners[i].sign});
        }
    }
    return corners;
}

struct Range {
    double lowest = HUGE_VAL, highest = -HUGE_VAL;
};

// Of the finite elements.
template <typename Element>
Range rangeOf(const Channel<Element>& channel) {
    Range range;
    for (std::ptrdiff_t z = 0; z < channel.z.extent; ++z) {
        for (std::ptrdiff_t y = 0; y < channel.y.extent; ++y) {
            const Element* const row =
                channel.elements + z * channel.z.stride + y * channel.y.stride;
            for (std::ptrdiff_t x = 0; x < channel.x.extent; ++x) {
                const auto value = static_cast<double>(row[x * channel.x.stride]);
                // Seldom true, so that no element waits for the one before.
                if ((value < range.lowest || value > range.highest) && std::isfinite(value)) {
                    range.lowest = std::min(range.lowest, value);
                    range.highest = std::max(range.highest, value);
                }
            }
        }
    }
    return range;
}

// Calls `visit` with the first element of every block; blocks do not overlap.
template <typename Element, typename Visitor>
void forEachBlock(const Channel<Element>& channel, const Visitor& visit) {
    for (std::ptrdiff_t z = 0; z < channel.z.blocks(); z += 2) {
        for (std::ptrdiff_t y = 0; y < channel.y.blocks(); y += 2) {
            const Element* const row =
                channel.elements + z * channel.z.stride + y * channel.y.stride;
            for (std::ptrdiff_t x = 0; x < channel.x.blocks(); x += 2) {
                visit(row + x * channel.x.stride);
            }
        }
    }
}

template <std::size_t count, typename Element>
void appendCoefficients(const Channel<Element>& channel, const std::vector<Corner>& corners,
                        std::vector<double>& coefficients) {
    const Range range = rangeOf(channel);
    const double norm = 1 / std::sqrt(static_cast<double>(count));
    forEachBlock(channel, [&](const Element* start) {
        double sum = 0;
        bool counts = true;
        for (std::size_t i = 0; i < count; ++i) {
            const auto value = static_cast<double>(start[corners[i].offset]);
            counts &= value > range.lowest && value < range.highest;
            sum += corners[i].sign * value;
        }
        if (counts && std::isfinite(sum)) coefficients.push_back(std::abs(norm * sum));
    });
}

template <typename Element>
void appendCoefficients(const halide_buffer_t& buffer, std::vector<double>& coefficients) {
    const Channel<Element> channel(buffer);
    const std::vector<Corner> corners = cornersOf(channel);
    switch (corners.size()) {
        case 1:
            return appendCoefficients<1>(channel, corners, coefficients);
        case 2:
            return appendCoefficients<2>(channel, corners, coefficients);
        case 4:
            return appendCoefficients<4>(channel, corners, coefficients);
        default:
            return appendCoefficients<8>(channel, corners, coefficients);
    }
}

using Append = void (*)(const halide_buffer_t&, std::vector<double>&);

template <typename Of8, typename Of16, typename Of32, typename Of64>
Append appendForIntegers(int bits) {
    if (bits == 8) return appendCoefficients<Of8>;
    if (bits == 16) return appendCoefficients<Of16>;
    if (bits == 32) return appendCoefficients<Of32>;
    return bits == 64 ? appendCoefficients<Of64> : nullptr;
}

// Null for a type that is not known.
Append appendFor(const halide_type_t& type) {
    if (type.lanes != 1) return nullptr;
    if (type.code == halide_type_int) {
        return appendForIntegers<std::int8_t, std::int16_t, std::int32_t, std::int64_t>(type.bits);
    }
    if (type.code == halide_type_uint) {
        return appendForIntegers<std::uint8_t, std::uint16_t, std::uint32_t, std::uint64_t>(
            type.bits);
    }
    if (type == halide_type_of<float>()) return appendCoefficients<float>;
    return type == halide_type_of<double>() ? appendCoefficients<double> : nullptr;
}

// The median of values above or at 0 that may be rounded: those equal to it are taken as spread
// evenly between the middles to their neighbours.
double groupedMedian(std::vector<double>& values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    const double median = *middle;
    double below = 0;
    double equal = 0;
    double lower = -median;
    double upper = *std::max_element(middle, values.end());
    for (const double value : values) {
        below += value < median;
        equal += value == median;
        if (value < median) lower = std::max(lower, value);
        if (value > median) upper = std::min(upper, value);
    }
    const double begin = (lower + median) / 2;
    const double end = (median + upper) / 2;
    return begin + (end - begin) * (static_cast<double>(values.size()) / 2 - below) / equal;
}

double noiseSigma(const halide_buffer_t* channels, int count) {
    constexpr double medianOfNormal = 0.674489750196082;  // of |x| for a standard normal x
    std::vector<double> coefficients;
    for (int c = 0; c < count; ++c) {
        const Append append = appendFor(channels[c].type);
        if (append == nullptr || channels[c].dimensions < 1 || channels[c].dimensions > 3) {
            return nothing;
        }
        append(channels[c], coefficients);
    }
    return coefficients.empty() ? 0 : groupedMedian(coefficients) / medianOfNormal;
}

}  // namespace

extern "C" {

double diffusefilt_noise_sigma(const halide_buffer_t* channels, int count) {
    try {
        return noiseSigma(channels, count);
    } catch (const std::bad_alloc&) {
        return nothing;
    }
}

double diffusefilt_noise_threshold(double sigma, double range, int isExponential, int iterations) {
    if (!(sigma > 0)) return range > 0 ? range / 1000 : 1;
    return sigma * 5.4 * std::pow(std::max(iterations, 1), isExponential != 0 ? -0.62 : -0.9);
}

}  // extern "C"
