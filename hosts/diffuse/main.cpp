// diffuse: filters a picture or a volume with the library, from file to file.
#include <tbb/global_control.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <exception>
#include <iostream>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>

#include "filterLoop.h"
#include "interruption.h"
#include "montage.h"
#include "noise.h"
#include "noiseLevel.h"
#include "options.h"
#include "pictureFile.h"
#include "progress.h"
#include "report.h"

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

Picture readInput(const Options& options) {
    Picture picture = readPicture(options.input);
    if (options.slice) return takeSlice(picture, *options.slice);
    if (picture.dimensions() != 2 && picture.dimensions() != 3) {
        throw std::runtime_error(options.input.string() + " has " +
                                 std::to_string(picture.dimensions()) +
                                 " dimensions, 2 or 3 are needed");
    }
    return picture;
}

void requireWritableFiles(const Options& options, const Picture& picture) {
    if (!options.output.empty()) {
        requireWritable(options.output, picture.dimensions(), picture.pixelKind);
    }
    if (!options.preview.empty()) requireWritable(options.preview, 2, PixelKind::grey);
}

// Replaces the picture by the filtered one.
void filterPicture(const Options& options, Picture& picture, Report& report) {
    report.noiseSigma = noiseSigma(picture);
    report.threshold = options.threshold.value_or(automaticThreshold(
        report.noiseSigma, picture, wordOf(options.pipeline.conduction), options.iterations));
    Progress progress(std::int64_t{options.iterations} * picture.filteredChannels());
    report.steps = filter({report.pipeline, report.threshold, options.iterations, options.json},
                          picture, [&] { progress.advance(); });
}

void print(const std::string& text) {
    std::cout << text << std::flush;
    if (!std::cout) throw std::runtime_error("cannot write to standard output");
}

void run(const Options& options) {
    Report report;
    Stopwatch watch;
    report.pipeline = axesOf(options.pipeline);
    Picture picture = readInput(options);
    report.pipeline.dimensions = picture.dimensions();
    requireWritableFiles(options, picture);
    report.seconds.read = watch.lap();

    // Copies for the preview and the PSNR alone.
    const bool hasNoise = options.noiseSigma > 0;
    const bool isCompared = hasNoise || !options.preview.empty();
    const Picture clean = isCompared ? picture : Picture();
    if (hasNoise) addGaussianNoise(picture.filteredValues(), options.noiseSigma, options.seed);
    const Picture noisy = hasNoise ? picture : Picture();
    watch.lap();
    filterPicture(options, picture, report);
    report.seconds.filter = watch.lap();

    if (!options.output.empty()) writePicture(options.output, picture);
    if (!options.preview.empty()) {
        writePicture(options.preview,
                     hasNoise ? montage({&clean, &noisy, &picture}) : montage({&clean, &picture}));
    }
    report.seconds.write = watch.lap();
    if (hasNoise) {
        const auto values = clean.filteredValues();
        const double peak = peakValue(clean);
        report.psnr = {psnr(values, std::as_const(noisy).filteredValues(), peak),
                       psnr(values, std::as_const(picture).filteredValues(), peak)};
    }
    report.threads = static_cast<int>(
        tbb::global_control::active_value(tbb::global_control::max_allowed_parallelism));
    print(options.json ? jsonReport(report, options, picture) : plainReport(report, options));
}

void runWithThreads(const Options& options) {
    if (options.threads == 0) return run(options);
    const tbb::global_control limit(tbb::global_control::max_allowed_parallelism, options.threads);
    run(options);
}

int runCommandLine(int argc, const char* const* argv) {
    const auto complain = [](const std::string& words, int status) {
        std::cerr << "diffuse: " << words << '\n';
        return status;
    };
    try {
        const auto options = parseOptions(argc, argv);
        if (options) runWithThreads(*options);
        return 0;
    } catch (const UsageError& error) {
        return complain(error.what(), 2);
    } catch (const std::bad_alloc&) {
        return complain("not enough memory", 1);
    } catch (const std::exception& error) {
        return complain(error.what(), 1);
    }
}

}  // namespace

}  // namespace diffuse

int main(int argc, char** argv) {
    // A file beyond the limit for its size is an error like a full disk.
    std::signal(SIGXFSZ, SIG_IGN);
    diffuse::watchInterruptions();
    return diffuse::runCommandLine(argc, argv);
}
