// How noisy a picture is, and the gradient threshold that suits this noise: the estimates of
// hosts/noise, for pictures.
#pragma once

#include <diffusefilt_halide.hpp>

#include "picture.h"

namespace diffuse {

struct NoiseLevel {
    double sigma = 0;  // standard deviation
    double correlation = 0;
    bool isCorrelated = false;  // not white: sigma is too low then
    double threshold = 0;       // that suits the steps; 0 before none
};

// All channels that are filtered are taken together.
// Throws std::runtime_error if it cannot be estimated, and std::length_error if the picture is too
// large for its records.
NoiseLevel noiseLevel(const Picture& picture, diffusefilt_host::Axes pipeline, int iterations);

}  // namespace diffuse
