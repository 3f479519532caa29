// SPDX-License-Identifier: MIT
// The command line of the program.
#pragma once

#include <cstdint>
#include <diffusefilt_halide.hpp>
#include <filesystem>
#include <optional>
#include <stdexcept>

#include "picture/picture.h"

namespace diffuse {

struct Options {
    std::filesystem::path input;
    std::filesystem::path output;   // empty: no picture is written
    std::filesystem::path preview;  // empty: no preview is written
    std::optional<SliceChoice> slice;
    int iterations = 3;
    std::optional<double> threshold;  // in grey values of the input; none: from the input's noise
    int threads = 0;                  // 0: as many as the processor has
    bool json = false;
    double noiseSigma = 0;  // in grey values of the input; 0: no noise is added
    std::uint64_t seed = 1;
    bool spreadsNan = false;  // whether samples that are no finite numbers are let in
    // Its dimensions are those of the picture; the first of each axis but for the type and the set.
    diffusefilt_host::Axes pipeline{
        0, {}, {}, diffusefilt_host::ElementType::float64, diffusefilt_host::bestInstructionSet()};
};

// The command line is wrong in itself, whatever the files hold.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Whether both name the same file, symbolic and hard links included. An empty path names none.
bool isSameFile(const std::filesystem::path& a, const std::filesystem::path& b);

// The pipeline for a picture of so many dimensions.
// Throws std::runtime_error with one line if its instruction set cannot be run here.
diffusefilt_host::Axes pipelineOf(const Options& options, int dimensions);

// Throws UsageError if the arithmetic has no number for the threshold or for its reciprocal.
void requireUsableThreshold(double threshold, diffusefilt_host::ElementType elementType);

// Returns nothing if the help was asked for and printed. Throws UsageError with one line.
std::optional<Options> parseOptions(int argc, const char* const* argv);

}  // namespace diffuse
