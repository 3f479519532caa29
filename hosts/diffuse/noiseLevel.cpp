#include "noiseLevel.h"

#include <algorithm>
#include <cmath>
#include <span>

namespace diffuse {

namespace {

// The corners of a block of two samples along every axis that has two.
struct Corner {
    std::size_t offset;
    double sign;
};

std::vector<Corner> cornersOf(const Picture& picture) {
    std::vector<Corner> corners = {{0, 1}};
    std::size_t stride = 1;
    for (int d = 0; d < picture.dimensions(); ++d) {
        const std::size_t count = picture.axes[d].extent >= 2 ? corners.size() : 0;
        for (std::size_t i = 0; i < count; ++i) {
            corners.push_back({corners[i].offset + stride, -corners[i].sign});
        }
        stride *= picture.axes[d].extent;
    }
    return corners;
}

// Calls `visit` with the first sample of every block; blocks do not overlap.
template <typename Visitor>
void forEachBlock(const Picture& picture, const Visitor& visit) {
    std::size_t extents[3] = {1, 1, 1};
    for (int d = 0; d < picture.dimensions(); ++d) extents[d] = picture.axes[d].extent;
    const auto last = [](std::size_t extent) { return extent < 2 ? extent : extent - 1; };
    for (std::size_t z = 0; z < last(extents[2]); z += 2) {
        for (std::size_t y = 0; y < last(extents[1]); y += 2) {
            for (std::size_t x = 0; x < last(extents[0]); x += 2) {
                visit(x + extents[0] * (y + extents[1] * z));
            }
        }
    }
}

void appendCoefficients(const Picture& picture, std::span<const double> values,
                        std::vector<double>& coefficients) {
    const Range range = rangeOf(values);
    const std::vector<Corner> corners = cornersOf(picture);
    const double norm = 1 / std::sqrt(static_cast<double>(corners.size()));
    forEachBlock(picture, [&](std::size_t start) {
        double sum = 0;
        bool counts = true;
        for (const Corner& corner : corners) {
            const double value = values[start + corner.offset];
            counts = counts && value > range.lowest && value < range.highest;
            sum += corner.sign * value;
        }
        if (counts && std::isfinite(sum)) coefficients.push_back(std::abs(norm * sum));
    });
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

}  // namespace

double noiseSigma(const Picture& picture) {
    constexpr double medianOfNormal = 0.674489750196082;  // of |x| for a standard normal x
    std::vector<double> coefficients;
    for (int c = 0; c < picture.filteredChannels(); ++c) {
        appendCoefficients(picture, picture.channel(c), coefficients);
    }
    return coefficients.empty() ? 0 : groupedMedian(coefficients) / medianOfNormal;
}

double automaticThreshold(double sigma, const Picture& picture, const std::string& conduction,
                          int iterations) {
    if (!(sigma > 0)) {
        const Range range = rangeOf(picture.values);
        return range.highest > range.lowest ? (range.highest - range.lowest) / 1000 : 1;
    }
    const double decay = conduction == "quadratic" ? 0.9 : 0.62;
    return sigma * 5.4 * std::pow(std::max(iterations, 1), -decay);
}

}  // namespace diffuse
