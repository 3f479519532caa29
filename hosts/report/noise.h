// SPDX-License-Identifier: MIT
// Noise of a picture: found, suited by a threshold, added for a trial, and measured.
#pragma once

#include <cstdint>
#include <vector>

#include "picture/samples.h"

namespace diffuse {

// The standard deviation of the noise of all channels together, as hosts/noise estimates it.
// Throws std::bad_alloc, and std::length_error if a channel is too large for a record.
double noiseSigma(const std::vector<Channel>& channels);

// The gradient threshold that suits noise of this deviation, as hosts/noise has it.
double automaticThreshold(double sigma, const std::vector<Channel>& channels, bool isExponential,
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
