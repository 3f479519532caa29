// What the program tells of its work.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "filterLoop.h"
#include "noiseLevel.h"
#include "options.h"
#include "picture.h"

namespace diffuse {

struct Report {
    diffusefilt_host::Axes pipeline{};
    double threshold = 0;
    NoiseLevel noise;  // of what is filtered
    int threads = 0;
    struct {
        double read = 0, filter = 0, write = 0;
    } seconds;
    std::vector<StepReport> steps;
    struct Psnr {
        double before = 0, after = 0;  // in dB
    };
    std::optional<Psnr> psnr;  // if noise was added
};

// For people: what they did not choose themselves, and the PSNR.
std::string plainReport(const Report& report, const Options& options);

// One object; `filtered` is the result. Numbers that are not finite become null.
std::string jsonReport(const Report& report, const Options& options, const Picture& filtered);

}  // namespace diffuse
