// SPDX-License-Identifier: MIT
// Repeating the library's step.
#pragma once

#include <diffusefilt_halide.hpp>
#include <functional>
#include <vector>

#include "picture/picture.h"
#include "report/report.h"

namespace diffuse {

struct FilterSettings {
    diffusefilt_host::Axes pipeline;
    double threshold = 0;  // in the units of the samples
    int iterations = 0;
    bool spreadsNan = false;  // whether results may be no finite numbers
    bool measure = false;     // whether to report on the steps
};

// Replaces the samples of every filtered channel by those after the iterations, computed in the
// element type of the pipeline and put back into the type of the samples: integers are rounded to
// the nearest and saturated, NaN becomes the lowest. Calls `onStep` after each step of each
// channel. A pipeline of two dimensions filters a volume plane by plane. Returns a report for each
// iteration, or none. Throws std::runtime_error with one line if a step fails or a result is no
// finite number, std::length_error if the picture is too large for the library's records.
std::vector<StepReport> filter(const FilterSettings& settings, const Picture& picture,
                               const std::function<void()>& onStep);

}  // namespace diffuse
