// SPDX-License-Identifier: MIT
// A page for people who look: what a filter did to a picture or a volume, and what other thresholds
// and numbers of steps would do. One HTML file with all its pictures inside, which opens from disk.
#pragma once

#include <cstddef>
#include <diffusefilt_halide.hpp>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace diffusefilt_page {

using Samples = diffusefilt_host::View<const float>;

struct Axis {
    double spacing = 1;  // between neighbouring samples, in millimetres or any other unit
    // What the index rises towards in a body: 1 left, 2 posterior, 3 superior, negative for their
    // opposites; 0 if that is unknown.
    int heading = 0;
};

struct Range {
    double lowest = 0, highest = 0;
};

// A command line, ready for a shell, and what it is for.
struct Command {
    std::string purpose, line;
};

struct Content {
    std::string title;
    std::vector<std::pair<std::string, std::string>> facts;  // names and values
    std::vector<std::string> remarks;                        // what the reader should heed

    // One grey channel, or red, green and blue; pictures or volumes, all of one shape from
    // coordinate 0 on.
    std::vector<Samples> before, after;
    std::vector<Axis> axes;      // one for each dimension
    std::optional<Range> greys;  // shown as black and as white; none: what holds 99.8 % of `before`

    // What made `after` of `before`. A pipeline of two dimensions filters a volume plane by plane,
    // along its last axis.
    diffusefilt_host::Axes pipeline{};
    double threshold = 1;  // in the units of the samples
    int steps = 1;
    double noiseSigma = 0;  // as estimated from `before`; 0 if unknown

    // The command lines that filter with this threshold and this number of steps.
    std::function<std::vector<Command>(double threshold, int steps)> commandsFor;
};

constexpr std::size_t largestPage = 10'000'000;  // bytes

// The page, of at most `largestPage` bytes. It loads nothing, and follows the reader's choice of
// light or dark and of less motion. The sheet of thresholds and steps runs the library.
// Throws std::invalid_argument if the channels are neither one nor three, or differ in number or
// shape; std::runtime_error if a picture cannot be encoded; what the C++ layer throws.
std::string makePage(const Content& content);

}  // namespace diffusefilt_page
