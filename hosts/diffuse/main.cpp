// diffuse: filters a picture or a volume with the library, from file to file.
#include <cstdio>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>

#include "filterLoop.h"
#include "montage.h"
#include "noise.h"
#include "options.h"
#include "pictureFile.h"
#include "pipelineTable.h"
#include "processor.h"

namespace diffuse {

namespace {

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

void run(const Options& options) {
    PipelineChoice choice = options.pipeline;
    choice.instructionSet = chooseInstructionSet(choice.instructionSet);
    const Picture clean = readInput(options);
    if (!options.output.empty()) requireWritableFormat(options.output, clean.dimensions());
    if (!options.montage.empty()) requireWritableFormat(options.montage, 2);
    const Pipeline& pipeline = findPipeline(clean.dimensions(), choice);

    Picture noisy = clean;
    const bool hasNoise = options.noiseSigma > 0;
    if (hasNoise) addGaussianNoise(noisy.values, options.noiseSigma, options.seed);
    Picture filtered = noisy;
    filter(pipeline, options.threshold, options.iterations, filtered);

    if (!options.output.empty()) writePicture(options.output, filtered);
    if (!options.montage.empty()) {
        writePicture(options.montage, hasNoise ? montage({&clean, &noisy, &filtered})
                                               : montage({&clean, &filtered}));
    }
    if (hasNoise) {
        const double peak = peakValue(clean);
        std::printf("PSNR before: %.2f dB\n", psnr(clean.values, noisy.values, peak));
        std::printf("PSNR after: %.2f dB\n", psnr(clean.values, filtered.values, peak));
    }
}

}  // namespace

}  // namespace diffuse

int main(int argc, char** argv) {
    try {
        const auto options = diffuse::parseOptions(argc, argv);
        if (options) diffuse::run(*options);
        return 0;
    } catch (const diffuse::UsageError& error) {
        std::cerr << "diffuse: " << error.what() << '\n';
        return 2;
    } catch (const std::exception& error) {
        std::cerr << "diffuse: " << error.what() << '\n';
        return 1;
    }
}
