// SPDX-License-Identifier: MIT
// diffuse: filters a picture or a volume with the library, from file to file.
#include <tbb/global_control.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstring>
#include <exception>
#include <filesystem>
#include <iostream>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "filterLoop.h"
#include "formats/Format.h"
#include "options.h"
#include "pictureFile.h"
#include "report/noise.h"
#include "report/progress.h"
#include "report/report.h"
#include "report/sheet.h"
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
    for (const auto& file : input.files) {
        for (const auto& written : {options.output, options.preview}) {
            if (!isSameFile(written, file)) continue;
            throw UsageError(written.string() + " is a part of the input, which stays as it is");
        }
    }
    if (!options.output.empty()) requireWritable(options.output, input.picture);
    Picture sheet{{{1}, {1}}};
    sheet.sampleType = SampleType::uint8;
    if (!options.preview.empty()) requireWritable(options.preview, sheet);
}

// Replaces the samples by the filtered ones.
void filterPicture(const Options& options, const Picture& picture, Report& report) {
    const host::Axes pipeline = pipelineOf(options, picture.dimensions());
    report.pipeline = pipeline.name();
    if (!options.threshold || options.json) {
        report.noise = noiseLevel(picture.filtered(), pipeline,
                                  options.threshold ? 0 : std::max(options.iterations, 1));
    }
    report.threshold = options.threshold.value_or(report.noise.threshold);
    Progress progress(std::int64_t{options.iterations} * picture.filteredChannels());
    explainFailures(options.input.string() + ": ", [&] {
        requireUsableThreshold(report.threshold, pipeline.elementType);
        report.steps = filter(
            {pipeline, report.threshold, options.iterations, options.spreadsNan, options.json},
            picture, [&] { progress.advance(); });
    });
}

// One line, whatever the names of files hold.
void complain(std::string words) {
    std::ranges::replace_if(
        words, [](unsigned char c) { return std::iscntrl(c) != 0; }, '?');
    std::cerr << "diffuse: " << words << '\n';
}

void print(const std::string& text) {
    std::cout << text << std::flush;
    if (!std::cout) throw std::runtime_error("cannot write to standard output");
}

void run(const Options& options) {
    pipelineOf(options, 2);
    Stopwatch watch;
    const Input input = readPicture(options.input, options.slice, options.spreadsNan);
    requireWritableFiles(options, input);
    Report report;
    report.input = options.input;
    report.output = options.output;
    report.preview = options.preview;
    report.thresholdIsAuto = !options.threshold;
    report.iterations = options.iterations;
    report.seconds.read = watch.lap();

    // Filtering replaces samples; the preview and the PSNR need those before it.
    const Picture& clean = input.picture;
    const bool hasNoise = options.noiseSigma > 0;
    const bool isShown = !options.preview.empty();
    Picture picture = hasNoise  ? converted(clean, SampleType::float64)
                      : isShown ? converted(clean, clean.sampleType)
                                : clean;
    if (hasNoise) addGaussianNoise(picture.filtered(), options.noiseSigma, options.seed);
    const Picture noisy = hasNoise ? converted(picture, picture.sampleType) : Picture();
    report.threads = startThreads(options.threads);
    watch.lap();
    filterPicture(options, picture, report);
    report.seconds.filter = watch.lap();

    if (hasNoise) {
        report.psnr = {psnr(clean.filtered(), noisy.filtered()),
                       psnr(clean.filtered(), picture.filtered())};
    }
    std::unique_ptr<StagedFile> sheet;
    std::unique_ptr<StagedFile> output;
    if (isShown) {
        sheet = stagePicture(options.preview, hasNoise ? montage({&clean, &noisy, &picture})
                                                       : montage({&clean, &picture}));
    }
    // Both files are on the disk before either is put in place, and the report before that.
    if (hasNoise) picture = converted(picture, clean.sampleType);
    if (!options.output.empty()) output = stagePicture(options.output, picture);
    report.seconds.write = watch.lap();
    print(options.json ? jsonReport(report, picture) : plainReport(report));
    if (output) commitPicture(*output);
    if (sheet) commitPicture(*sheet);
    // A failure would have a line of its own.
    if (report.threads == 1 && options.threads != 1) {
        complain("only one thread could be started here, the work took longer");
    }
}

void runWithThreads(const Options& options) {
    if (options.threads == 0) return run(options);
    const tbb::global_control limit(tbb::global_control::max_allowed_parallelism, options.threads);
    run(options);
}

int runCommandLine(int argc, const char* const* argv) {
    const auto fail = [](const std::string& words, int status) {
        complain(words);
        return status;
    };
    try {
        secureStandardStreams();
        const auto options = parseOptions(argc, argv);
        if (options) {
            runWithThreads(*options);
        } else {
            print("");
        }
        return 0;
    } catch (const UsageError& error) {
        return fail(error.what(), 2);
    } catch (const std::bad_alloc&) {
        return fail("not enough memory", 1);
    } catch (const std::exception& error) {
        return fail(error.what(), 1);
    }
}

}  // namespace

}  // namespace diffuse

int main(int argc, char** argv) {
    return diffuse::runCommandLine(argc, argv);
}
