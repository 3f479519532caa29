// SPDX-License-Identifier: MIT
#include "histograms.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace diffusefilt_page {

namespace {

// Calls `visit` with the coordinates of every sample.
template <typename Visitor>
void forEachSample(const Samples& samples, const Visitor& visit) {
    const auto& shape = samples.shape();
    const int planes = samples.dimensions() == 3 ? shape[2].extent : 1;
    for (int z = 0; z < planes; ++z) {
        for (int y = 0; y < shape[1].extent; ++y) {
            for (int x = 0; x < shape[0].extent; ++x) visit(x, y, z);
        }
    }
}

class Counter {
public:
    Counter(Range range, int bins) : range_(range), counts_(bins) {
        perUnit_ = bins / (range.highest - range.lowest);
    }

    void add(double value) {
        if (!std::isfinite(value)) return;
        ++all_;
        const double bin = std::floor((value - range_.lowest) * perUnit_);
        if (bin < 0) {
            ++below_;
        } else if (bin >= static_cast<double>(counts_.size())) {
            ++above_;
        } else {
            ++counts_[static_cast<std::size_t>(bin)];
        }
    }

    Histogram result() const {
        const auto share = [all = std::max<std::int64_t>(all_, 1)](std::int64_t count) {
            return static_cast<double>(count) / static_cast<double>(all);
        };
        Histogram histogram{range_, {}, share(below_), share(above_)};
        for (const std::int64_t count : counts_) histogram.shares.push_back(share(count));
        return histogram;
    }

private:
    Range range_;
    double perUnit_ = 1;
    std::vector<std::int64_t> counts_;
    std::int64_t all_ = 0, below_ = 0, above_ = 0;
};

// Bins that hold as many whole numbers each, where all samples are such: others would show a comb.
// `wanted` of them reach to `end`, from nothing or, if both signs count, from -end.
Counter counterTo(double end, int wanted, bool hasBothSigns, bool areWhole) {
    double width = (hasBothSigns ? 2 : 1) * end / wanted;
    if (areWhole) width = 2 * std::ceil((width - 1) / 2) + 1;  // odd: symmetrical about 0
    const int bins = std::max(1, static_cast<int>(std::ceil((hasBothSigns ? 2 : 1) * end / width)));
    if (hasBothSigns) {
        const int oneSide = bins / 2;
        const double half = (oneSide + 0.5) * width;
        return {{-half, half}, 2 * oneSide + 1};
    }
    const double start = areWhole ? -0.5 : 0;
    return {{start, start + bins * width}, bins};
}

bool areWhole(const std::vector<Samples>& channels) {
    bool result = true;
    for (const Samples& samples : channels) {
        forEachSample(samples, [&](int x, int y, int z) {
            const float value = samples(x, y, z);
            result = result && (value == std::rint(value) || !std::isfinite(value));
        });
    }
    return result;
}

template <typename Visitor>
void forEachDifference(const std::vector<Samples>& before, const std::vector<Samples>& after,
                       const Visitor& visit) {
    for (std::size_t c = 0; c < before.size(); ++c) {
        forEachSample(before[c], [&](int x, int y, int z) {
            const double d = static_cast<double>(before[c](x, y, z)) - after[c](x, y, z);
            if (std::isfinite(d)) visit(d);
        });
    }
}

}  // namespace

Removed measureRemoved(const std::vector<Samples>& before, const std::vector<Samples>& after) {
    constexpr int bins = 81;
    Removed removed;
    double sum = 0;
    double squares = 0;
    double count = 0;
    forEachDifference(before, after, [&](double d) {
        sum += d;
        squares += d * d;
        count += 1;
        removed.range.lowest = std::min(removed.range.lowest, d);
        removed.range.highest = std::max(removed.range.highest, d);
    });
    if (count > 0) {
        removed.mean = sum / count;
        removed.rootMeanSquare = std::sqrt(squares / count);
    }
    const double end = removed.rootMeanSquare > 0 ? 4 * removed.rootMeanSquare : 1;
    Counter counter = counterTo(end, bins, true, areWhole(before) && areWhole(after));
    forEachDifference(before, after, [&](double d) { counter.add(d); });
    removed.histogram = counter.result();
    return removed;
}

Histogram measureGradients(const std::vector<Samples>& channels, double threshold, int dimensions) {
    constexpr int bins = 120;
    Counter counter = counterTo(4 * threshold, bins, false, areWhole(channels));
    for (const Samples& samples : channels) {
        const auto& shape = samples.shape();
        forEachSample(samples, [&](int x, int y, int z) {
            const double here = samples(x, y, z);
            if (x + 1 < shape[0].extent) counter.add(std::abs(samples(x + 1, y, z) - here));
            if (y + 1 < shape[1].extent) counter.add(std::abs(samples(x, y + 1, z) - here));
            if (dimensions == 3 && z + 1 < shape[2].extent) {
                counter.add(std::abs(samples(x, y, z + 1) - here));
            }
        });
    }
    return counter.result();
}

Range commonGreys(const std::vector<Samples>& channels) {
    constexpr std::int64_t enough = 1'000'000;
    std::vector<float> values;
    for (const Samples& samples : channels) {
        std::int64_t all = 1;
        for (int d = 0; d < samples.dimensions(); ++d) all *= samples.shape()[d].extent;
        // Of many samples a part, at distances that are no multiple of a row for long.
        const std::int64_t stride = all > enough ? all / enough | 1 : 1;
        std::int64_t at = 0;
        forEachSample(samples, [&](int x, int y, int z) {
            if (at++ % stride == 0 && std::isfinite(samples(x, y, z))) {
                values.push_back(samples(x, y, z));
            }
        });
    }
    if (values.empty()) return {0, 1};
    const auto ranked = [&](std::size_t rank) {
        std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(rank),
                         values.end());
        return static_cast<double>(values[rank]);
    };
    const std::size_t tail = values.size() / 1000;
    return {ranked(tail), ranked(values.size() - 1 - tail)};
}

}  // namespace diffusefilt_page
