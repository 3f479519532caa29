// SPDX-License-Identifier: MIT
#include "noise.h"

#include <diffusefilt_noise.h>

#include <cmath>
#include <new>
#include <numbers>
#include <stdexcept>

namespace diffuse {

namespace {

class SplitMix64 {
public:
    explicit SplitMix64(std::uint64_t seed) : state_(seed) {}

    // Uniform in (0, 1]: the upper 53 bits, plus one.
    double next() {
        std::uint64_t z = state_ += 0x9e3779b97f4a7c15;
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9;
        z = (z ^ (z >> 27)) * 0x94d049bb133111eb;
        z ^= z >> 31;
        return static_cast<double>((z >> 11) + 1) * 0x1p-53;
    }

private:
    std::uint64_t state_;
};

// The record's dimensions are put into `shape`.
halide_buffer_t recordOf(const Channel& channel, halide_dimension_t* shape) {
    halide_buffer_t record{};
    record.host = reinterpret_cast<std::uint8_t*>(channel.first);
    record.type = withSampleType(channel.type,
                                 []<typename Sample>(Sample*) { return halide_type_of<Sample>(); });
    record.dimensions = static_cast<int>(channel.extents.size());
    record.dim = shape;
    std::size_t stride = channel.stride;
    for (const int extent : channel.extents) {
        if (stride > std::numeric_limits<int>::max()) {
            throw std::length_error("too large for an estimate of its noise: -k gives a threshold");
        }
        *shape++ = {0, extent, static_cast<int>(stride)};
        stride *= extent;
    }
    return record;
}

}  // namespace

NoiseLevel noiseLevel(const std::vector<Channel>& channels, diffusefilt_host::Axes pipeline,
                      int iterations) {
    std::vector<halide_dimension_t> shapes(3 * channels.size());
    std::vector<halide_buffer_t> records;
    records.reserve(channels.size());
    for (const Channel& channel : channels) {
        records.push_back(recordOf(channel, &shapes[3 * records.size()]));
    }
    pipeline.elementType = diffusefilt_host::ElementType::float32;
    diffusefilt_noise found{};
    if (diffusefilt_noise_estimate(records.data(), static_cast<int>(records.size()),
                                   diffusefilt_host::findPipeline(pipeline).entry, iterations,
                                   &found) != 0) {
        throw std::runtime_error("no memory to estimate the noise");
    }
    return {found.sigma, found.correlation, found.is_correlated != 0, found.threshold};
}

void addGaussianNoise(const std::vector<Channel>& channels, double sigma, std::uint64_t seed) {
    SplitMix64 uniform(seed);
    bool isFirst = true;
    double radius = 0;
    double angle = 0;
    for (const Channel& channel : channels) {
        auto* const values = reinterpret_cast<double*>(channel.first);
        for (std::size_t i = 0; i < channel.size(); ++i, isFirst = !isFirst) {
            if (isFirst) {
                radius = sigma * std::sqrt(-2 * std::log(uniform.next()));
                angle = 2 * std::numbers::pi * uniform.next();
            }
            values[i * channel.stride] += radius * (isFirst ? std::cos(angle) : std::sin(angle));
        }
    }
}

double psnr(const std::vector<Channel>& clean, const std::vector<Channel>& channels) {
    const double peak = sizeOf(clean.front().type) == 1 ? 255 : rangeOf(clean).length();
    double sum = 0;
    std::size_t count = 0;
    for (std::size_t c = 0; c < clean.size(); ++c) {
        const std::size_t size = clean[c].size();
        for (std::size_t i = 0; i < size; ++i) {
            const double difference = channels[c].value(i) - clean[c].value(i);
            sum += difference * difference;
        }
        count += size;
    }
    return 10 * std::log10(peak * peak * static_cast<double>(count) / sum);
}

}  // namespace diffuse
