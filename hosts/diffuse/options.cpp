#include "options.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <cmath>
#include <iostream>
#include <limits>
#include <string>

namespace diffuse {

namespace {

// "z:90" is slice 90 on axis z.
SliceChoice parseSlice(const std::string& text) {
    const std::string axes = "xyz";
    SliceChoice choice;
    const char* const end = text.data() + text.size();
    if (text.size() >= 3 && text[1] == ':' && axes.find(text[0]) != std::string::npos) {
        choice.axis = static_cast<int>(axes.find(text[0]));
        const auto [stop, error] = std::from_chars(text.data() + 2, end, choice.index);
        if (error == std::errc() && stop == end && choice.index >= 0) return choice;
    }
    throw CLI::ValidationError("--slice", "expected AXIS:INDEX like z:90, not " + text);
}

// NaN and infinities are numbers for CLI11.
std::string requirePositive(const std::string& text) {
    double value = 0;
    const bool good = CLI::detail::lexical_cast(text, value) && std::isfinite(value) && value > 0;
    return good ? "" : "expected a finite number above 0, not " + text;
}

}  // namespace

std::optional<Options> parseOptions(int argc, const char* const* argv) {
    Options options;
    std::string slice;
    CLI::App app(
        "Smooths the noise of a grey picture or volume and keeps its edges: steps of Perona-Malik "
        "diffusion "
        "with libdiffusefilt_halide. Reads and writes PNG, TIFF, JPEG, BMP, NIfTI, NRRD, MetaImage "
        "and DICOM.\nExit status: 0, 1 if the work failed, 2 if the command line is wrong.",
        "diffuse");
    app.add_option("input", options.input, "Grey picture or volume")->required();
    app.add_option("-o,--output", options.output,
                   "Write the filtered picture here, in the sample type of the input");
    app.add_option("--slice", slice,
                   "Filter one slice of a volume, not the whole: AXIS:INDEX, like z:90");
    app.add_option("-n,--iterations", options.iterations, "Number of steps")
        ->capture_default_str()
        ->check(CLI::Range(0, std::numeric_limits<int>::max()).description(""));
    app.add_option("-k,--threshold", options.threshold,
                   "Gradient threshold in grey values: weaker differences are smoothed, "
                   "stronger ones kept")
        ->required()
        ->check(requirePositive);
    app.add_option("--connectivity", options.pipeline.connectivity,
                   "minimal: neighbours that share a side; maximal: those that share a corner too")
        ->capture_default_str()
        ->check(CLI::IsMember({"minimal", "maximal"}).description(""));
    app.add_option("--conduction", options.pipeline.conduction,
                   "Conductance of a difference d at threshold K. quadratic: 1 / (1 + (d / K)^2); "
                   "exponential: exp(-(d / K)^2)")
        ->capture_default_str()
        ->check(CLI::IsMember({"quadratic", "exponential"}).description(""));
    app.add_option("--type", options.pipeline.elementType, "Arithmetic: float32 or float64")
        ->capture_default_str()
        ->check(CLI::IsMember({"float32", "float64"}).description(""));
    app.add_option("--instruction-set", options.pipeline.instructionSet,
                   "Of the processor: none (any x86-64), avx, avx2 (with FMA3 and BMI1), or auto, "
                   "the best that it can run")
        ->capture_default_str()
        ->check(CLI::IsMember({"auto", "none", "avx", "avx2"}).description(""));
    app.add_option("--add-noise", options.noiseSigma,
                   "Add Gaussian noise of this standard deviation, in grey values, before "
                   "filtering, and print the PSNR before and after")
        ->check(requirePositive);
    app.add_option("--seed", options.seed, "Seed of the noise")->capture_default_str();
    app.add_option(
        "--montage", options.montage,
        "Write clean, noisy and filtered picture side by side here, in 8 bits; of a volume its "
        "three central slices");
    try {
        app.parse(argc, argv);
        if (!slice.empty()) options.slice = parseSlice(slice);
        if (options.output.empty() && options.montage.empty() && !app.count("--add-noise")) {
            throw CLI::ValidationError("nothing to do without --output, --montage or --add-noise");
        }
    } catch (const CLI::CallForHelp&) {
        std::cout << app.help();
        return std::nullopt;
    } catch (const CLI::ParseError& error) {
        throw UsageError(std::string(error.what()) + " (see diffuse --help)");
    }
    return options;
}

}  // namespace diffuse
