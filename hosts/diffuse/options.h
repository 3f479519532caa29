// SPDX-License-Identifier: MIT
// The command line of the program.
#pragma once

#include <cstdint>
#include <diffusefilt_halide.hpp>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "picture/picture.h"

namespace diffuse {

struct Options {
    std::filesystem::path input;    // one of the command line; - is standard input
    std::filesystem::path output;   // empty: no picture is written; - is standard output
    std::filesystem::path preview;  // empty: no preview is written
    std::filesystem::path page;     // empty: no page is written
    std::optional<SliceChoice> slice;
    bool sliceWise = false;       // whether the planes of a volume are filtered as pictures
    bool pagesAreVolume = false;  // whether the pages of a file are the slices of a volume
    std::optional<Range> window;  // of grey values that are shown
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
    bool quiet = false;  // nothing but complaints
    bool verbose = false;
    bool isOneOfMany = false;
    // Those words of the command line that decide on the result, but for the number of steps
    // and the threshold.
    std::vector<std::string> words;
};

// All that the command line asks for: the same for every input, each with its output.
struct Plan {
    std::vector<Options> files;
    std::filesystem::path folder;  // of the outputs, to be made; empty for none
    int jobs = 1;
    bool keepsGoing = false;
    bool isDry = false;  // whether it is told and not carried out
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

// Returns nothing if the help or the like was asked for and printed. Throws UsageError with one
// line.
std::optional<Plan> parseOptions(int argc, const char* const* argv);

}  // namespace diffuse
