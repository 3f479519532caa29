// Added noise, and how far a picture is from its clean original.
#pragma once

#include <cstdint>
#include <span>

#include "picture.h"

namespace diffuse {

// Adds Gaussian noise of standard deviation `sigma` to every value, unclipped.
// The noise is a function of the seed and the position alone and does not depend on the standard
// library: SplitMix64 (Steele, Lea and Flood, 2014) gives two uniform numbers for each pair of
// values, the Box-Muller transform makes two normal ones of them.
void addGaussianNoise(std::span<double> values, double sigma, std::uint64_t seed);

// The peak of the PSNR: 255 for samples of 8 bits, otherwise the range of the values.
double peakValue(const Picture& clean);

// Peak signal-to-noise ratio in dB, infinite for equal values.
double psnr(std::span<const double> clean, std::span<const double> values, double peak);

}  // namespace diffuse
