// Repeating the library's step.
#pragma once

#include <diffusefilt_halide.hpp>
#include <functional>
#include <vector>

#include "picture.h"

namespace diffuse {

struct StepReport {
    double seconds = 0;  // of the library's calls, for all channels
    // How far the step moved the filtered values.
    double rootMeanSquareChange = 0;
    double largestChange = 0;
};

struct FilterSettings {
    diffusefilt_host::Axes pipeline;
    double threshold = 0;  // in the units of the values
    int iterations = 0;
    bool measure = false;  // whether to report on the steps
};

// Replaces the values of every channel by those after the iterations, computed in the element type
// of the pipeline, and calls `onStep` after each step of each channel. Returns a report for each
// iteration, or none.
// Throws std::runtime_error with the library's words if a step fails, std::length_error if the
// picture is too large for its records.
std::vector<StepReport> filter(const FilterSettings& settings, Picture& picture,
                               const std::function<void()>& onStep);

}  // namespace diffuse
