// SPDX-License-Identifier: MIT
// Noise of a picture: found, suited by a threshold, added for a trial, and measured.
#pragma once

#include <cstdint>
#include <diffusefilt_halide.hpp>
#include <vector>

#include "picture/samples.h"

namespace diffuse {

struct NoiseLevel {
    double sigma = 0;        // standard deviation
    double correlation = 0;  // of neighbours, beyond that of white noise
    bool isCorrelated = false;
    double threshold = 0;  // that suits the steps; 0 before none
};

// Of all channels together, and the gradient threshold for so many steps of the pipeline, as
// hosts/noise estimates both. Throws std::runtime_error if that cannot be done, and
// std::length_error if a channel is too large for a record.
NoiseLevel noiseLevel(const std::vector<Channel>& channels, diffusefilt_host::Axes pipeline,
                      int iterations);

// Adds Gaussian noise of standard deviation `sigma` to samples of type float64.
// The noise is a function of the seed and the position alone and does not depend on the standard
// library: SplitMix64 (Steele, Lea and Flood, 2014) gives two uniform numbers for each pair of
// samples, the Box-Muller transform makes two normal ones of them.
void addGaussianNoise(const std::vector<Channel>& channels, double sigma, std::uint64_t seed);

// Peak signal-to-noise ratio in dB, infinite for equal samples. The peak is 255 for samples of 8
// bits, otherwise the range of the clean ones.
double psnr(const std::vector<Channel>& clean, const std::vector<Channel>& channels);

}  // namespace diffuse
