// How noisy a picture is, and the gradient threshold that suits this noise: the estimates of
// hosts/noise, for pictures.
#pragma once

#include <diffusefilt_halide.hpp>

#include "picture.h"

namespace diffuse {

// All channels that are filtered are taken together.
// Throws std::bad_alloc, and std::length_error if the picture is too large for its records.
double noiseSigma(const Picture& picture);

double automaticThreshold(double sigma, const Picture& picture,
                          diffusefilt_host::Conduction conduction, int iterations);

}  // namespace diffuse
