// SPDX-License-Identifier: MIT
#include "resultPage.h"

#include <commandline/shellWords.h>
#include <diffusefilt_page.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "formats/Format.h"

namespace diffuse {

namespace {

namespace fs = std::filesystem;
namespace page = diffusefilt_page;

// The channels that are shown, as the page takes them.
struct FloatSamples {
    std::vector<std::vector<float>> values;
    std::vector<page::Samples> views;

    explicit FloatSamples(const Picture& picture) {
        for (const Channel& channel : picture.shown()) {
            auto& floats = values.emplace_back(channel.size());
            withSampleType(channel.type, [&]<typename Sample>(Sample*) {
                const auto* sample = reinterpret_cast<const Sample*>(channel.first);
                for (float& value : floats) {
                    value = static_cast<float>(*sample);
                    sample += channel.stride;
                }
            });
            const auto& e = channel.extents;
            views.push_back(e.size() == 2
                                ? page::Samples::dense(floats.data(), {e[0], e[1]})
                                : page::Samples::dense(floats.data(), {e[0], e[1], e[2]}));
        }
    }
};

// The way of the body that the axis runs along most.
int headingOf(const Axis& axis) {
    if (axis.direction.size() != 3) return 0;
    const auto largest = std::ranges::max_element(
        axis.direction, {}, [](double component) { return std::abs(component); });
    const int way = static_cast<int>(largest - axis.direction.begin()) + 1;
    return *largest < 0 ? -way : way;
}

std::string number(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.6g", value);
    return text;
}

std::vector<page::Command> commandsFor(const Options& options, double threshold, int steps) {
    const auto line = [&](const std::string& inputs, std::vector<std::string> output) {
        std::vector<std::string> words = options.words;
        words.insert(words.end(),
                     {"--threshold", number(threshold), "--iterations", std::to_string(steps)});
        words.insert(words.end(), output.begin(), output.end());
        std::string text = "diffuse ";
        return text.append(inputs).append(" ").append(commandline::quoted(words));
    };
    const fs::path& input = options.input;
    std::vector<std::string> output = {"--suffix", "_smooth"};
    if (!options.output.empty()) output = {"--output", options.output.string()};
    std::vector<page::Command> commands = {
        {"this file", line(commandline::quoted({input.string()}), output)}};
    if (!fs::is_directory(input) && input.has_extension()) {
        // The shell looks for the files, so that the asterisk stays outside the quotes.
        std::string all;
        if (input.has_parent_path()) all = commandline::quoted({input.parent_path().string()});
        if (!all.empty()) all.push_back('/');
        all.append("*").append(commandline::quoted({input.extension().string()}));
        commands.push_back(
            {"all such files of the folder", line(all, {"--output-dir", "filtered"})});
    }
    return commands;
}

}  // namespace

std::string resultPage(const Options& options, const Picture& before, const Picture& after,
                       const Report& report) {
    const FloatSamples samplesBefore(before);
    const FloatSamples samplesAfter(after);
    page::Content content;
    content.title = options.input.filename().empty()
                        ? options.input.parent_path().filename().string()
                        : options.input.filename().string();
    content.facts = {
        {"Samples", sampleTypeNames[static_cast<int>(before.sampleType)]},
        {"Threshold",
         number(report.threshold) + (report.thresholdIsAuto ? ", from the noise" : ", as given")},
        {"Noise", "standard deviation " + number(report.noise.sigma) + ", estimated"}};
    content.facts.emplace_back("Made by", "diffuse " DIFFUSEFILT_VERSION);
    content.remarks = report.remarks;
    if (report.noise.isCorrelated) {
        content.remarks.push_back("The noise is not white, with a correlation of " +
                                  number(report.noise.correlation) +
                                  " between neighbours: its estimate is too low.");
    }
    if (before.count > 1) {
        content.remarks.push_back("This is the first of " + std::to_string(before.count) +
                                  " pictures or volumes, which were all filtered.");
    }
    if (before.pixelKind == PixelKind::vector) {
        content.remarks.emplace_back("Of the components of its vectors, the first is shown.");
    }
    content.before = samplesBefore.views;
    content.after = samplesAfter.views;
    for (int d = 0; d < before.dimensions(); ++d) {
        content.axes.push_back({before.axes[d].spacing, headingOf(before.axes[d])});
    }
    if (options.window) {
        content.greys = {options.window->lowest, options.window->highest};
    } else if (before.sampleType == SampleType::uint8) {
        content.greys = {0, 255};
    }
    content.pipeline = pipelineOf(options, options.sliceWise ? 2 : before.dimensions());
    content.threshold = report.threshold;
    content.steps = report.iterations;
    content.noiseSigma = report.noise.sigma;
    content.commandsFor = [&](double threshold, int steps) {
        return commandsFor(options, threshold, steps);
    };
    return makePage(content);
}

}  // namespace diffuse
