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
#include "options.h"
#include "pictureFile.h"
#include "report/noise.h"
#include "report/progress.h"
#include "report/report.h"
#include "report/sheet.h"
#include "startup.h"

namespace diffuse {

namespace {

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

Picture pictureOf(const Sheet& sheet) {
    Picture picture{{{sheet.width}, {sheet.height}}};
    picture.sampleType = SampleType::uint8;
    picture.channels = sheet.channels;
    picture.pixelKind = sheet.channels == 3 ? PixelKind::rgb : PixelKind::grey;
    picture.makeRoom();
    std::memcpy(picture.samples.get(), sheet.samples.data(), sheet.samples.size());
    return picture;
}

void requireWritableFiles(const Options& options, const Input& input) {
    for (const auto& written : {options.output, options.preview}) {
        for (const auto& file : input.files) {
            if (isSameFile(written, file)) {
                throw UsageError(written.string() +
                                 " is a part of the input, which stays as it is");
            }
        }
    }
    if (!options.output.empty()) requireWritable(options.output, input.picture);
    if (!options.preview.empty()) {
        requireWritable(options.preview, pictureOf(Sheet{1, 1, 1, {0}}));
    }
}

// Replaces the samples by the filtered ones.
void filterPicture(const Options& options, const Picture& picture, Report& report) {
    FilterSettings settings{pipelineOf(options, picture.dimensions())};
    report.pipeline = settings.pipeline.name();
    if (!options.threshold || options.json) report.noiseSigma = noiseSigma(picture.filtered());
    report.threshold = options.threshold
                           ? *options.threshold
                           : automaticThreshold(report.noiseSigma, picture.filtered(),
                                                settings.pipeline.conduction ==
                                                    diffusefilt_host::Conduction::exponential,
                                                options.iterations);
    Progress progress(std::int64_t{options.iterations} * picture.filteredChannels());
    try {
        requireUsableThreshold(report.threshold, settings.pipeline.elementType);
    } catch (const UsageError& error) {
        throw std::runtime_error(error.what());  // it was found, not given
    }
    settings.threshold = report.threshold;
    settings.iterations = options.iterations;
    settings.spreadsNan = options.spreadsNan;
    settings.measure = options.json;
    try {
        report.steps = filter(settings, picture, [&] { progress.advance(); });
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(options.input.string() + ": " + error.what());
    }
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

// What stands in the report before the work.
Report reportOn(const Options& options, const Picture& picture) {
    Report report;
    report.input = options.input;
    report.output = options.output;
    report.preview = options.preview;
    for (int d = 0; d < picture.dimensions(); ++d) {
        report.extents.push_back(picture.axes[d].extent);
        report.spacing.push_back(picture.axes[d].spacing);
    }
    report.channels = picture.channels;
    report.sampleType = picture.sampleType;
    report.thresholdIsAuto = !options.threshold;
    report.iterations = options.iterations;
    return report;
}

void run(const Options& options) {
    pipelineOf(options, 2);
    Stopwatch watch;
    const Input input = readPicture(options.input, options.slice, options.spreadsNan);
    requireWritableFiles(options, input);
    Report report = reportOn(options, input.picture);
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
    if (report.threads == 1 && options.threads != 1) {
        complain("only one thread can be started here, the work takes longer");
    }
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
        const auto shown = hasNoise ? std::vector{clean.shown(), noisy.shown(), picture.shown()}
                                    : std::vector{clean.shown(), picture.shown()};
        sheet = stagePicture(options.preview, pictureOf(montage(shown)));
    }
    // Both files are on the disk before either is put in place, and the report before that.
    if (hasNoise) picture = converted(picture, clean.sampleType);
    if (!options.output.empty()) output = stagePicture(options.output, picture);
    report.seconds.write = watch.lap();
    print(options.json ? jsonReport(report) : plainReport(report));
    if (output) commitPicture(*output);
    if (sheet) commitPicture(*sheet);
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
