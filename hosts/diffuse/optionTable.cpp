// SPDX-License-Identifier: MIT
// The options in words: this table is what parses them, the help, the manual and the completion.
#include "optionTable.h"

#include <cmath>
#include <limits>
#include <regex>

namespace diffuse {

namespace {

namespace host = diffusefilt_host;

// "z:90" is slice 90 on axis z.
SliceChoice parseSlice(const std::string& text) {
    std::smatch parts;
    if (std::regex_match(text, parts, std::regex("([xyz]):([0-9]{1,9})"))) {
        return {text[0] - 'x', std::stoi(parts[2])};
    }
    throw CLI::ValidationError("--slice", "expected AXIS:INDEX like z:90, not " + text);
}

// "40:400" is -160 to 240.
Range parseWindow(const std::string& text) {
    const std::size_t colon = text.find(':');
    double level = 0;
    double width = 0;
    if (colon != std::string::npos && CLI::detail::lexical_cast(text.substr(0, colon), level) &&
        CLI::detail::lexical_cast(text.substr(colon + 1), width) && std::isfinite(level) &&
        std::isfinite(width) && width > 0) {
        return {level - width / 2, level + width / 2};
    }
    throw CLI::ValidationError("--window", "expected LEVEL:WIDTH like 40:400, not " + text);
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

void addFiles(CLI::App& app, Plan& plan, CommandLine& line) {
    Options& options = plan.files.front();
    app.add_option(
           "input", line.inputs,
           "Pictures or volumes, or folders that hold one DICOM series each; - reads a PNG, "
           "NRRD or NIfTI file from standard input")
        ->type_name("INPUT...");
    const auto add = [&](const char* names, auto& value, const char* type, const char* words) {
        return app.add_option(names, value, words)->type_name(type)->group("Files");
    };
    add("-o,--output", options.output, "FILE",
        "Write the result here, in the format of the name's extension; - writes to standard "
        "output, "
        "in the format of the input");
    add("--output-dir", plan.folder, "DIR",
        "Write the results into this folder, which is made if it is missing, under the names of "
        "the "
        "inputs and in their formats, NRRD for those that are read only");
    add("--suffix", line.suffix, "TEXT",
        "Put this between the names of the results and their extensions; without --output-dir they "
        "stand beside the inputs");
    add("--jobs", plan.jobs, "N",
        "Work on so many files at once, each with its share of the threads (default 1)")
        ->check(wholeNumberFrom(1));
    const auto addFlag = [&](const char* name, bool& value, const char* words) {
        app.add_flag(name, value, words)->group("Files");
    };
    addFlag("--keep-going", plan.keepsGoing, "Go on with the other files when one fails");
    addFlag("--dry-run", plan.isDry, "Tell which files would be written, and do nothing");
}

void addInput(CLI::App& app, Options& options) {
    app.add_option_function<std::string>(
           "--slice", [&](const std::string& text) { options.slice = parseSlice(text); },
           "Filter one slice of a volume as a picture; AXIS is x, y or z, as the samples stand in "
           "the file, and INDEX counts from 0: z:90")
        ->type_name("AXIS:INDEX")
        ->group("Input");
    app.add_flag("--slice-wise", options.sliceWise,
                 "Filter every slice of a volume along its last axis by itself, as a picture: for "
                 "volumes whose slices lie far apart, since the step knows no spacing")
        ->group("Input");
    app.add_flag("--volume", options.pagesAreVolume,
                 "Take the pages of a TIFF file for the slices of a volume; without this each is "
                 "filtered as a picture of its own")
        ->group("Input");
    app.add_option_function<std::string>(
           "--nan", [&](const std::string& word) { options.spreadsNan = word == "spread"; },
           "What to do with samples that are infinite or no numbers: refuse the input (default), "
           "or let them spread to their neighbours with every step")
        ->type_name("refuse|spread")
        ->group("Input")
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
        ->type_name(CLI::detail::join(further, "|"))
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

void addFilter(CLI::App& app, Options& options) {
    const auto add = [&](const char* names, auto& value, const char* type, const auto& check,
                         const char* words) {
        app.add_option(names, value, words)->type_name(type)->group("Filter")->check(check);
    };
    add("-n,--iterations", options.iterations, "N", wholeNumberFrom(0),
        "Number of steps (default 3)");
    app.add_option_function<std::string>(
           "-k,--threshold",
           [&](const std::string& text) { options.threshold = positiveNumber(text); },
           "Gradient threshold K in the units of the samples. auto, the default, takes the one of "
           "the "
           "smallest estimated error after the steps, for the noise found in the input")
        ->type_name("VALUE|auto")
        ->group("Filter")
        ->check(requirePositiveOrAuto);
    addPipeline(app, options.pipeline);
    add("--threads", options.threads, "N", wholeNumberFrom(1),
        "Number of threads (default: all that the processor runs). It changes no result");
}

void addReports(CLI::App& app, Options& options) {
    const auto add = [&](const char* names, auto& value, const char* type, const char* words) {
        return app.add_option(names, value, words)->type_name(type)->group("Reports");
    };
    add("--report", options.page, "FILE",
        "Write a page for the browser, all in one HTML file: before and after, what was removed, "
        "histograms, and a sheet of other thresholds and numbers of steps with their command "
        "lines; "
        "of a volume, slices in three directions");
    add("--preview", options.preview, "FILE",
        "Write a picture in 8 bits to look at: the input and the result, with --add-noise the "
        "noisy one between them, side by side; of a volume, one above the other, its central "
        "axial, coronal and sagittal slices, in true proportions");
    app.add_option_function<std::string>(
           "--window", [&](const std::string& text) { options.window = parseWindow(text); },
           "Show this many grey values around a level from black to white, in --report and "
           "--preview: 40:400 for soft tissue in CT")
        ->type_name("LEVEL:WIDTH")
        ->group("Reports");
    const auto addFlag = [&](const char* names, bool& value, const char* words) {
        return app.add_flag(names, value, words)->group("Reports");
    };
    addFlag(
        "--json", options.json,
        "Print a report in JSON: pipeline, threshold, noise, times in seconds, and how far each "
        "step moved the values");
    addFlag("-q,--quiet", options.quiet, "Print nothing but complaints");
    addFlag("-v,--verbose", options.verbose,
            "Tell on standard error what was read, how it was filtered and what was written")
        ->excludes("--quiet");
    app.set_version_flag("--version", "diffuse " DIFFUSEFILT_VERSION, "Print the version and exit")
        ->group("Reports");
    app.set_help_flag("-h,--help", "Print this and exit")->group("Reports");
}

void addTrial(CLI::App& app, Options& options) {
    app.add_option("--add-noise", options.noiseSigma,
                   "Add Gaussian noise of this standard deviation before filtering, and report the "
                   "PSNR before and after")
        ->type_name("SIGMA")
        ->group("Trial")
        ->check(requirePositive);
    app.add_option("--seed", options.seed, "Seed of this noise (default 1)")
        ->type_name("N")
        ->group("Trial")
        ->check(CLI::NonNegativeNumber.description(""));
}

}  // namespace

void addOptions(CLI::App& app, Plan& plan, CommandLine& line) {
    Options& options = plan.files.front();
    addFiles(app, plan, line);
    addInput(app, options);
    addFilter(app, options);
    addReports(app, options);
    addTrial(app, options);
    app.add_option("--describe", line.described)
        ->group("")
        ->check(CLI::IsMember(std::vector<std::string>{"bash", "zsh", "mdoc"}));
}

}  // namespace diffuse
