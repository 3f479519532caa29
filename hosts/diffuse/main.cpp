// diffuse: filters a picture or a volume with the library, from file to file.
#include <tbb/global_control.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <iostream>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "filterLoop.h"
#include "montage.h"
#include "noise.h"
#include "noiseLevel.h"
#include "options.h"
#include "pictureFile.h"
#include "progress.h"
#include "report.h"
#include "stagedFile.h"
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

void requireWritableFiles(const Options& options, const Picture& picture,
                          const std::vector<std::filesystem::path>& inputs) {
    Picture sheet{{{1}, {1}}};
    sheet.sampleType = SampleType::uint8;
    for (const auto& written : {options.output, options.preview}) {
        for (const auto& input : inputs) {
            if (isSameFile(written, input)) {
                throw UsageError(written.string() +
                                 " is a part of the input, which stays as it is");
            }
        }
        if (!written.empty()) requireWritable(written, written == options.output ? picture : sheet);
    }
}

bool isFinite(const Picture& picture) {
    return std::ranges::all_of(picture.values, [](double value) { return std::isfinite(value); });
}

void requireFinite(const Options& options, const Picture& picture) {
    if (options.spreadsNan || isFinite(picture)) return;
    throw std::runtime_error(options.input.string() +
                             ": it has samples that are infinite or no numbers, which would spread "
                             "with every step (--nan spread lets them)");
}

// Replaces the picture by the filtered one.
void filterPicture(const Options& options, Picture& picture, Report& report) {
    report.noise = noiseLevel(picture, report.pipeline,
                              options.threshold ? 0 : std::max(options.iterations, 1));
    report.threshold = options.threshold.value_or(report.noise.threshold);
    Progress progress(std::int64_t{options.iterations} * picture.filteredChannels());
    try {
        requireUsableThreshold(report.threshold, options.pipeline.elementType);
    } catch (const UsageError& error) {
        throw std::runtime_error(error.what());  // it was found, not given
    }
    report.steps = filter({report.pipeline, report.threshold, options.iterations, options.json},
                          picture, [&] { progress.advance(); });
    if (!options.spreadsNan && !isFinite(picture)) {
        throw std::runtime_error(options.input.string() +
                                 ": its samples are too large for the arithmetic of " +
                                 wordOf(options.pipeline.elementType));
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

// Has both files on the disk before either is put in place, and the report before that.
void finish(const Options& options, const Picture& picture, const Picture& preview,
            Report& report) {
    Stopwatch watch;
    const auto output = options.output.empty() ? nullptr : stagePicture(options.output, picture);
    const auto sheet = options.preview.empty() ? nullptr : stagePicture(options.preview, preview);
    report.seconds.write = watch.lap();
    print(options.json ? jsonReport(report, options, picture) : plainReport(report, options));
    if (output) commitPicture(*output);
    if (sheet) commitPicture(*sheet);
}

void run(const Options& options) {
    Report report;
    Stopwatch watch;
    report.pipeline = axesOf(options.pipeline);
    auto [picture, inputs] = readPicture(options.input);
    if (options.slice) picture = takeSlice(picture, *options.slice);
    watchInterruptions();
    requireFinite(options, picture);
    report.pipeline.dimensions = picture.dimensions();
    requireWritableFiles(options, picture, inputs);
    report.seconds.read = watch.lap();

    // Copies for the preview and the PSNR alone.
    const bool hasNoise = options.noiseSigma > 0;
    const bool isCompared = hasNoise || !options.preview.empty();
    const Picture clean = isCompared ? picture : Picture();
    if (hasNoise) addGaussianNoise(picture.filteredValues(), options.noiseSigma, options.seed);
    const Picture noisy = hasNoise ? picture : Picture();
    report.threads = startThreads(options.threads);
    if (report.threads == 1 && options.threads != 1) {
        complain("only one thread can be started here, the work takes longer");
    }
    watch.lap();
    filterPicture(options, picture, report);
    report.seconds.filter = watch.lap();

    if (hasNoise) {
        const auto values = clean.filteredValues();
        const double peak = peakValue(clean);
        report.psnr = {psnr(values, std::as_const(noisy).filteredValues(), peak),
                       psnr(values, std::as_const(picture).filteredValues(), peak)};
    }
    Picture preview;
    if (!options.preview.empty()) {
        preview = hasNoise ? montage({&clean, &noisy, &picture}) : montage({&clean, &picture});
    }
    finish(options, picture, preview, report);
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
