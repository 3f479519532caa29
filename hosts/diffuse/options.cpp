// SPDX-License-Identifier: MIT
#include "options.h"

#include <CLI/CLI.hpp>
#include <cmath>
#include <iostream>
#include <limits>
#include <regex>
#include <string>

#include "manual.h"

namespace diffuse {

namespace {

namespace fs = std::filesystem;
namespace host = diffusefilt_host;

// "z:90" is slice 90 on axis z.
SliceChoice parseSlice(const std::string& text) {
    std::smatch parts;
    if (std::regex_match(text, parts, std::regex("([xyz]):([0-9]{1,9})"))) {
        return {text[0] - 'x', std::stoi(parts[2])};
    }
    throw CLI::ValidationError("--slice", "expected AXIS:INDEX like z:90, not " + text);
}

// NaN and infinities are numbers for CLI11.
std::optional<double> positiveNumber(const std::string& text) {
    double value = 0;
    const bool good = CLI::detail::lexical_cast(text, value) && std::isfinite(value) && value > 0;
    return good ? std::optional(value) : std::nullopt;
}

std::string requirePositive(const std::string& text) {
    return positiveNumber(text) ? "" : "expected a finite number above 0, not " + text;
}

std::string requirePositiveOrAuto(const std::string& text) {
    return text == "auto" ? "" : requirePositive(text);
}

CLI::Validator wholeNumberFrom(int least) {
    return CLI::Range(least, std::numeric_limits<int>::max()).description("");
}

void requireSense(const Options& options) {
    if (options.output.empty() && options.preview.empty() && !options.json &&
        options.noiseSigma == 0) {
        throw UsageError("nothing to do without --output, --preview, --json or --add-noise");
    }
    for (const fs::path& written : {options.output, options.preview}) {
        if (isSameFile(options.input, written)) {
            throw UsageError(written.string() + " is the input, which stays as it is");
        }
    }
    if (isSameFile(options.output, options.preview)) {
        throw UsageError("--output and --preview name the same file");
    }
    if (options.threshold) {
        requireUsableThreshold(*options.threshold, options.pipeline.elementType);
    }
}

void addFiles(CLI::App& app, Options& options, std::string& slice) {
    app.add_option("input", options.input,
                   "Picture or volume, or a folder that holds one DICOM series")
        ->required()
        ->type_name("INPUT");
    const auto add = [&](const char* names, auto& value, const char* type, const char* words) {
        return app.add_option(names, value, words)->type_name(type)->group("Files");
    };
    add("-o,--output", options.output, "FILE",
        "Write the result here, in the format of the name's extension");
    add("--preview", options.preview, "FILE",
        "Write a picture in 8 bits to look at: the input and the result, with --add-noise the "
        "noisy one between them, side by side; of a volume, one above the other, its central "
        "axial, coronal and sagittal slices");
    add("--slice", slice, "AXIS:INDEX",
        "Filter one slice of a volume as a picture; AXIS is x, y or z, as the samples stand in the "
        "file, and INDEX counts from 0: z:90");
    app.add_option_function<std::string>(
           "--nan", [&](const std::string& word) { options.spreadsNan = word == "spread"; },
           "What to do with samples that are infinite or no numbers: refuse the input (default), "
           "or let them spread to their neighbours with every step")
        ->type_name("refuse|spread")
        ->group("Files")
        ->check(CLI::IsMember(std::vector<std::string>{"refuse", "spread"}).description(""));
}

// An axis of the pipeline, in the words of the exported names or one of `further`, which leave it.
template <class Axis>
void addAxis(CLI::App& app, const char* name, Axis& axis, const char* words,
             std::vector<std::string> further = {}) {
    static constexpr auto known = host::wordsOf<Axis>();
    const auto take = [&axis](const std::string& word) {
        if (std::ranges::find(known, word) != known.end()) axis = host::fromWord<Axis>(word);
    };
    further.insert(further.end(), known.begin(), known.end());
    app.add_option_function<std::string>(name, take, words)
        ->type_name("NAME")
        ->group("Filter")
        ->check(CLI::IsMember(further).description(""));
}

void addPipeline(CLI::App& app, host::Axes& axes) {
    addAxis(app, "--connectivity", axes.connectivity,
            "minimal: the neighbours that share a side, 4 or 6 (default); maximal: those that "
            "share a corner too, 8 or 26");
    addAxis(app, "--conduction", axes.conduction,
            "Conductance of a difference d. quadratic: 1 / (1 + (d / K)^2) (default); "
            "exponential: exp(-(d / K)^2), which keeps edges more strictly");
    addAxis(app, "--type", axes.elementType,
            "Arithmetic: float64 (default), or float32, which is faster");
    addAxis(app, "--instruction-set", axes.instructionSet,
            "Of the processor: none (any x86-64), avx, avx2 (with FMA3 and BMI1), or auto, the "
            "best that it can run (default). Results differ between them by rounding",
            {"auto"});
}

void addFilter(CLI::App& app, Options& options, std::string& threshold) {
    const auto add = [&](const char* names, auto& value, const char* type, const auto& check,
                         const char* words) {
        app.add_option(names, value, words)->type_name(type)->group("Filter")->check(check);
    };
    add("-n,--iterations", options.iterations, "N", wholeNumberFrom(0),
        "Number of steps (default 3)");
    add("-k,--threshold", threshold, "VALUE|auto", requirePositiveOrAuto,
        "Gradient threshold K in the units of the samples. auto, the default, takes a multiple of "
        "the standard deviation of the noise, estimated from the input, that falls with the number "
        "of steps");
    addPipeline(app, options.pipeline);
    add("--threads", options.threads, "N", wholeNumberFrom(1),
        "Number of threads (default: all that the processor runs). It changes no result");
}

void addReports(CLI::App& app, Options& options) {
    app.add_flag("--json", options.json,
                 "Print a report in JSON: pipeline, threshold, noise, times in seconds, and how "
                 "far each step moved the values")
        ->group("Reports");
    app.add_option("--add-noise", options.noiseSigma,
                   "Add Gaussian noise of this standard deviation before filtering, and report the "
                   "PSNR before and after")
        ->type_name("SIGMA")
        ->group("Reports")
        ->check(requirePositive);
    app.add_option("--seed", options.seed, "Seed of this noise (default 1)")
        ->type_name("N")
        ->group("Reports");
    app.set_help_flag("-h,--help", "Print this and exit")->group("Reports");
}

}  // namespace

bool isSameFile(const fs::path& a, const fs::path& b) {
    std::error_code ignored;
    const auto name = [](const fs::path& file) { return fs::weakly_canonical(fs::absolute(file)); };
    return !a.empty() && !b.empty() && (fs::equivalent(a, b, ignored) || name(a) == name(b));
}

host::Axes pipelineOf(const Options& options, int dimensions) {
    host::Axes axes = options.pipeline;
    axes.dimensions = dimensions;
    if (axes.instructionSet <= host::bestInstructionSet()) return axes;
    throw std::runtime_error("this processor or its operating system cannot run the " +
                             std::string(wordOf(axes.instructionSet)) +
                             " pipelines, --instruction-set auto finds those that it can");
}

void requireUsableThreshold(double threshold, host::ElementType elementType) {
    const bool isDouble = elementType == host::ElementType::float64;
    const double element = isDouble ? threshold : static_cast<float>(threshold);
    const double reciprocal = isDouble ? 1 / element : 1 / static_cast<float>(element);
    if (std::isfinite(element) && std::isfinite(reciprocal)) return;
    throw UsageError("the threshold " + CLI::detail::to_string(threshold) + " is beyond what " +
                     wordOf(elementType) + " can divide by");
}

std::optional<Options> parseOptions(int argc, const char* const* argv) {
    Options options;
    std::string slice;
    std::string threshold = "auto";
    CLI::App app(introduction(), "diffuse");
    app.footer(closing());
    app.formatter(std::make_shared<ManualFormatter>());
    addFiles(app, options, slice);
    addFilter(app, options, threshold);
    addReports(app, options);
    try {
        app.parse(argc, argv);
        if (!slice.empty()) options.slice = parseSlice(slice);
        options.threshold = positiveNumber(threshold);
        requireSense(options);
    } catch (const CLI::CallForHelp&) {
        std::cout << app.help();
        return std::nullopt;
    } catch (const CLI::ParseError& error) {
        throw UsageError(std::string(error.what()) + " (see diffuse --help)");
    }
    return options;
}

}  // namespace diffuse
