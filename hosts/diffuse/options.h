// The command line of the program.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <stdexcept>

#include "picture.h"
#include "pipelineTable.h"

namespace diffuse {

struct Options {
    std::filesystem::path input;
    std::filesystem::path output;   // empty: no picture is written
    std::filesystem::path montage;  // empty: no montage is written
    std::optional<SliceChoice> slice;
    int iterations = 2;
    double threshold = 0;   // in grey values of the input
    double noiseSigma = 0;  // in grey values of the input; 0: no noise is added
    std::uint64_t seed = 1;
    PipelineChoice pipeline = {.instructionSet = "auto"};
};

// The command line is wrong in itself, whatever the files hold.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Returns nothing if the help was asked for and printed. Throws UsageError with one line.
std::optional<Options> parseOptions(int argc, const char* const* argv);

}  // namespace diffuse
