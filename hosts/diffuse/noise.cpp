#include "noise.h"

#include <algorithm>
#include <cmath>
#include <numbers>

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

}  // namespace

void addGaussianNoise(std::span<double> values, double sigma, std::uint64_t seed) {
    SplitMix64 uniform(seed);
    for (std::size_t i = 0; i < values.size(); i += 2) {
        const double radius = sigma * std::sqrt(-2 * std::log(uniform.next()));
        const double angle = 2 * std::numbers::pi * uniform.next();
        values[i] += radius * std::cos(angle);
        if (i + 1 < values.size()) values[i + 1] += radius * std::sin(angle);
    }
}

double peakValue(const Picture& clean) {
    if (clean.sampleType == SampleType::uint8 || clean.sampleType == SampleType::int8) return 255;
    const Range range = rangeOf(clean.values);
    return range.highest - range.lowest;
}

double psnr(std::span<const double> clean, std::span<const double> values, double peak) {
    double sum = 0;
    for (std::size_t i = 0; i < clean.size(); ++i) {
        sum += (values[i] - clean[i]) * (values[i] - clean[i]);
    }
    return 10 * std::log10(peak * peak * static_cast<double>(clean.size()) / sum);
}

}  // namespace diffuse
