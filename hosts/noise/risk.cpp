// SPDX-License-Identifier: MIT
#include "risk.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>

namespace noise {

namespace {

// In units of sigma: far below it, far above the rounding of a float.
constexpr float perturbation = 0.02F;

// Nothing flows to or from a value that is so far from all others: the conductance is exactly 0.
constexpr float insulating = std::numeric_limits<float>::max() / 4;

// One of the two signs at a time, as likely.
class Signs {
public:
    float next() {
        state_ ^= state_ << 13;
        state_ ^= state_ >> 7;
        state_ ^= state_ << 17;
        return (state_ >> 40 & 1) != 0 ? 1.0F : -1.0F;
    }

private:
    std::uint64_t state_ = 0x9e3779b97f4a7c15;
};

// All tiles in units of sigma, first as they are and then with each value moved a little to see how
// the result follows, in one picture: tile after tile along the slowest axis, with insulation
// between them.
class Stack {
public:
    Stack(const std::vector<Tile>& tiles, double sigma)
        : dimensions_(tiles.front().dimensions), extents_(tiles.front().extents) {
        extents_[dimensions_ - 1] = 0;
        for (const Tile& tile : tiles) append(tile, sigma);
        Signs random;
        const std::size_t half = values_.size();
        for (std::size_t i = 0; i < half; ++i) {
            signs_[i] *= random.next();
            values_.push_back(values_[i] + perturbation * signs_[i]);
        }
        extents_[dimensions_ - 1] *= 2;
    }

    // Stein's estimate of the sum of all squared errors after the steps, less a constant, in units
    // of sigma.
    [[nodiscard]] double risk(diffusefilt_noise_step step, int iterations, double threshold) const {
        std::vector<float> result = values_;
        std::vector<float> next(result.size());
        for (int i = 0; i < iterations; ++i) {
            if (!take(step, threshold, result, next)) throw std::runtime_error("a step failed");
            result.swap(next);
        }
        double sum = 0;
        const std::size_t half = signs_.size();
        for (std::size_t i = 0; i < half; ++i) {
            if (values_[i] == insulating) continue;
            const double change = result[i] - values_[i];
            const double follows = (result[half + i] - result[i]) * signs_[i] / perturbation;
            sum += change * change + 2 * follows;
        }
        return sum;
    }

private:
    void append(const Tile& tile, double sigma) {
        const auto isFinite = [](double value) { return std::isfinite(value); };
        const auto first = std::ranges::find_if(tile.values, isFinite);
        for (std::size_t i = 0; i < tile.values.size(); ++i) {
            const double value = tile.values[i];
            values_.push_back(isFinite(value) ? static_cast<float>((value - *first) / sigma)
                                              : insulating);
            signs_.push_back(tile.moves[i] ? 1 : 0);
        }
        extents_[dimensions_ - 1] += tile.extents[dimensions_ - 1] + 1;
        values_.resize(sizeOf(extents_), insulating);
        signs_.resize(values_.size(), 0);
    }

    bool take(diffusefilt_noise_step step, double threshold, std::vector<float>& from,
              std::vector<float>& to) const {
        halide_dimension_t shape[] = {{0, extents_[0], 1},
                                      {0, extents_[1], extents_[0]},
                                      {0, extents_[2], extents_[0] * extents_[1]}};
        halide_buffer_t records[2]{};
        for (halide_buffer_t& record : records) {
            record.host = reinterpret_cast<std::uint8_t*>((&record == records ? from : to).data());
            record.type = halide_type_of<float>();
            record.dimensions = dimensions_;
            record.dim = shape;
        }
        return step(&records[0], threshold, &records[1]) == 0;
    }

    int dimensions_;
    Extents extents_;
    std::vector<float> values_;
    std::vector<float> signs_;  // of the first half; 0 where a value does not move
};

// Where the parabola through a lowest value and its two neighbours is lowest; 0 if one of them is
// infinite.
double vertex(const double* lowest) {
    const double bend = lowest[-1] - 2 * lowest[0] + lowest[1];
    return bend > 0 && std::isfinite(bend) ? (lowest[-1] - lowest[1]) / (2 * bend) : 0;
}

}  // namespace

double bestThreshold(const std::vector<Tile>& tiles, double sigma, diffusefilt_noise_step step,
                     int iterations) {
    const Stack stack(tiles, sigma);
    // Beyond these, of all pictures tried, no best threshold lay.
    const double lowest = 1.2 * std::pow(iterations, -0.6);
    const double highest = 14 * std::pow(iterations, -0.5);
    constexpr int last = 16;
    const auto thresholdAt = [&](double place) {
        return lowest * std::pow(highest / lowest, place / last);
    };
    std::array<double, last + 3> guarded;  // one more at each end
    guarded.fill(HUGE_VAL);
    double* const risks = &guarded[1];
    const auto measure = [&](int place) {
        if (place < 0 || place > last) return;
        risks[place] = stack.risk(step, iterations, thresholdAt(place));
    };
    const auto best = [&] { return std::min_element(risks, risks + last + 1); };
    for (int place = 0; place <= last; place += 4) measure(place);
    for (const int distance : {2, 1}) {
        const auto middle = static_cast<int>(best() - risks);
        measure(middle - distance);
        measure(middle + distance);
    }
    return sigma * thresholdAt(static_cast<double>(best() - risks) + vertex(best()));
}

}  // namespace noise
