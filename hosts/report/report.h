// SPDX-License-Identifier: MIT
// What the program tells of its work.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "noise.h"
#include "picture/picture.h"

namespace diffuse {

struct StepReport {
    double seconds = 0;  // of the library's calls, for all channels
    // How far the step moved the filtered values.
    double rootMeanSquareChange = 0;
    double largestChange = 0;
};

struct Report {
    std::string input, output, preview, page;  // names of files; empty for none
    std::string pipeline;
    double threshold = 0;
    bool thresholdIsAuto = false;
    NoiseLevel noise;  // of what is filtered, if that was needed
    int iterations = 0;
    int threads = 0;
    struct {
        double read = 0, filter = 0, write = 0;
    } seconds;
    std::vector<StepReport> steps;
    struct Psnr {
        double before = 0, after = 0;  // in dB
    };
    std::optional<Psnr> psnr;          // if noise was added
    std::vector<std::string> remarks;  // what the reader should heed
};

// For people: what they did not choose themselves, and the PSNR.
std::string plainReport(const Report& report);

// One line on one of many files.
std::string shortReport(const Report& report);

// All of the work, in lines; `result` may be without samples.
std::string verboseReport(const Report& report, const Picture& result);

// One object; `result` may be without samples. Numbers that are not finite become null.
std::string jsonReport(const Report& report, const Picture& result);

}  // namespace diffuse
