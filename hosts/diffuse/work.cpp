// SPDX-License-Identifier: MIT
#include "work.h"

#include <tbb/global_control.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <utility>
#include <vector>

#include "filterLoop.h"
#include "formats/Format.h"
#include "pictureFile.h"
#include "report/noise.h"
#include "report/progress.h"
#include "report/report.h"
#include "report/sheet.h"
#include "resultPage.h"
#include "standardStreams.h"
#include "startup.h"

namespace diffuse {

namespace {

namespace host = diffusefilt_host;

// Seconds since this was asked last.
class Stopwatch {
public:
    double lap() {
        const auto now = std::chrono::steady_clock::now();
        return std::chrono::duration<double>(now - std::exchange(last_, now)).count();
    }

private:
    std::chrono::steady_clock::time_point last_ = std::chrono::steady_clock::now();
};

void requireWritableFiles(const Options& options, const Input& input) {
    for (const auto& written : {options.output, options.preview, options.page}) {
        for (const auto& file : input.files) {
            if (isSameFile(written, file)) {
                throw UsageError(written.string() +
                                 " is a part of the input, which stays as it is");
            }
        }
    }
    if (!options.output.empty()) requireWritable(outputName(options.output, input), input.picture);
    Picture sheet{{{1}, {1}}};
    sheet.sampleType = SampleType::uint8;
    if (!options.preview.empty()) requireWritable(options.preview, sheet);
    if (!options.page.empty()) requirePlace(options.page);
}

host::Axes pipelineFor(const Options& options, const Picture& picture) {
    return pipelineOf(options, options.sliceWise ? 2 : picture.dimensions());
}

// Of a long series, as many as tell its noise.
std::vector<Channel> someOf(const std::vector<Channel>& channels) {
    constexpr std::size_t enough = 12;
    if (channels.size() <= enough) return channels;
    std::vector<Channel> some;
    for (std::size_t i = 0; i < enough; ++i) some.push_back(channels[i * channels.size() / enough]);
    return some;
}

// Replaces the samples by the filtered ones.
void filterPicture(const Options& options, const Picture& picture, Report& report) {
    const host::Axes pipeline = pipelineFor(options, picture);
    const auto channels = options.sliceWise ? planesOf(picture.filtered()) : picture.filtered();
    report.pipeline = pipeline.name();
    if (!options.threshold || options.json || !options.page.empty()) {
        report.noise = noiseLevel(someOf(channels), pipeline,
                                  options.threshold ? 0 : std::max(options.iterations, 1));
    }
    report.threshold = options.threshold.value_or(report.noise.threshold);
    Progress progress(std::int64_t{options.iterations} * std::ssize(channels),
                      options.quiet || options.isOneOfMany);
    explainFailures(options.input.string() + ": ", [&] {
        requireUsableThreshold(report.threshold, pipeline.elementType);
        report.steps = filter(
            {pipeline, report.threshold, options.iterations, options.spreadsNan, options.json},
            picture, [&] { progress.advance(); });
    });
}

// What the result may not be judged without.
std::vector<std::string> remarksOn(const Options& options, const Input& input) {
    constexpr double even = 1.5;  // quotient of spacings that the step may take for equal
    std::vector<std::string> remarks;
    const Picture& picture = input.picture;
    const auto [least, most] = std::ranges::minmax(picture.axes, {}, &Axis::spacing);
    if (picture.dimensions() == 3 && !options.sliceWise && input.knowsSpacing &&
        most.spacing > even * least.spacing) {
        char text[160];
        std::snprintf(text, sizeof text,
                      "the samples are %.3g, %.3g and %.3g apart, which the step does not know; "
                      "--slice-wise filters slice by slice",
                      picture.axes[0].spacing, picture.axes[1].spacing, picture.axes[2].spacing);
        remarks.emplace_back(text);
    }
    return remarks;
}

void printReports(const Options& options, const Report& report, const Picture& result) {
    if (options.quiet && !options.json) return;
    for (const std::string& remark : report.remarks) {
        if (!options.quiet) complain(options.input.string() + ": " + remark);
    }
    if (options.verbose) std::cerr << verboseReport(report, result);
    const std::string text = options.json          ? jsonReport(report, result)
                             : options.isOneOfMany ? shortReport(report)
                                                   : plainReport(report);
    // There stands the result.
    if (isStream(options.output)) {
        std::cerr << text;
    } else {
        print(text);
    }
}

// All files are on the disk before one is put in place, and the report before that.
void writeFiles(const Options& options, const Input& input, const Picture& before,
                const Picture& result, Report& report, Stopwatch& watch) {
    const bool hasNoise = options.noiseSigma > 0;
    std::vector<std::unique_ptr<StagedFile>> staged;
    if (!options.preview.empty()) {
        std::vector<const Picture*> shown = {&input.picture, &result};
        if (hasNoise) shown.insert(shown.begin() + 1, &before);
        staged.push_back(stagePicture(options.preview, montage(shown, options.window)));
    }
    if (!options.page.empty()) {
        staged.push_back(stageText(options.page, resultPage(options, before, result, report)));
    }
    // Noise was added in another type than that of the file.
    const Picture output = hasNoise ? converted(result, input.picture.sampleType) : result;
    if (!options.output.empty() && !isStream(options.output)) {
        staged.push_back(stagePicture(options.output, output));
    }
    report.seconds.write = watch.lap();
    printReports(options, report, output);
    if (isStream(options.output)) printPicture(outputName(options.output, input), output);
    for (const auto& file : staged) commitFile(*file);
}

void run(const Options& options) {
    pipelineOf(options, 2);
    Stopwatch watch;
    const Input input =
        readPicture(options.input, {options.slice, options.spreadsNan, options.pagesAreVolume});
    requireWritableFiles(options, input);
    Report report;
    report.input = options.input;
    report.output = options.output;
    report.preview = options.preview;
    report.page = options.page;
    report.thresholdIsAuto = !options.threshold;
    report.iterations = options.iterations;
    report.remarks = remarksOn(options, input);
    report.seconds.read = watch.lap();

    // Filtering replaces samples; what is shown and the PSNR need those before it.
    const Picture& clean = input.picture;
    const bool hasNoise = options.noiseSigma > 0;
    const bool isShown = !options.preview.empty() || !options.page.empty();
    Picture picture = hasNoise  ? converted(clean, SampleType::float64)
                      : isShown ? converted(clean, clean.sampleType)
                                : clean;
    if (hasNoise) addGaussianNoise(picture.filtered(), options.noiseSigma, options.seed);
    const Picture before = hasNoise ? converted(picture, picture.sampleType) : clean;
    report.threads = startThreads(options.threads);
    watch.lap();
    filterPicture(options, picture, report);
    report.seconds.filter = watch.lap();
    if (hasNoise) {
        report.psnr = {psnr(clean.filtered(), before.filtered()),
                       psnr(clean.filtered(), picture.filtered())};
    }
    writeFiles(options, input, before, picture, report, watch);
    // A failure would have a line of its own.
    if (report.threads == 1 && options.threads != 1 && !options.quiet) {
        complain("only one thread could be started here, the work took longer");
    }
}

}  // namespace

void complain(std::string words) {
    std::ranges::replace_if(
        words, [](unsigned char c) { return std::iscntrl(c) != 0; }, '?');
    std::cerr << "diffuse: " + words + "\n";
}

void print(const std::string& text) {
    std::cout << text << std::flush;
    if (!std::cout) throw std::runtime_error("cannot write to standard output");
}

void workOn(const Options& options) {
    if (options.threads == 0) return run(options);
    const tbb::global_control limit(tbb::global_control::max_allowed_parallelism, options.threads);
    run(options);
}

}  // namespace diffuse
