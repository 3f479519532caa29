// SPDX-License-Identifier: MIT
// A noisy picture or volume made by code, filtered by the library as a host does.
#pragma once

#include <cmath>
#include <cstdint>
#include <vector>

#include "diffusefilt_page.h"

namespace diffusefilt_page {

struct Sample {
    // Discs in each other on a slope, with noise of 12 grey values; one to three extents below
    // 2^15.
    Sample(const std::vector<int>& extents, int channels, double threshold, int steps) {
        namespace host = diffusefilt_host;
        const int dimensions = static_cast<int>(extents.size());
        content.pipeline = {dimensions, host::Connectivity::minimal, host::Conduction::quadratic,
                            host::ElementType::float32, host::InstructionSet::none};
        content.threshold = threshold;
        content.steps = steps;
        content.noiseSigma = 12;
        content.axes.resize(dimensions);
        content.commandsFor = [](double k, int n) -> std::vector<Command> {
            return {{"this file", "filter -k " + std::to_string(k) + " -n " + std::to_string(n)}};
        };
        before.resize(channels);
        after.resize(channels);
        for (int c = 0; c < channels; ++c) {
            paint(extents, c);
            std::vector<float> scratch = after[c] = before[c];
            const auto& pipeline = host::findPipeline(content.pipeline);
            const auto result =
                pipeline.iterate(view(after[c], extents), threshold, view(scratch, extents), steps);
            if (result.data() == scratch.data()) after[c] = scratch;
            content.before.emplace_back(view(before[c], extents));
            content.after.emplace_back(view(after[c], extents));
        }
    }

    Content content;
    std::vector<std::vector<float>> before, after;

private:
    static diffusefilt_host::View<float> view(std::vector<float>& values,
                                              const std::vector<int>& extents) {
        using View = diffusefilt_host::View<float>;
        return extents.size() == 2
                   ? View::dense(values.data(), {extents[0], extents[1]})
                   : View::dense(values.data(), {extents[0], extents[1], extents[2]});
    }

    void paint(const std::vector<int>& extents, int channel) {
        std::uint32_t state = 17 + channel;
        const auto uniform = [&] {
            state = state * 1664525 + 1013904223;
            return (state >> 8) / 16777216.0;
        };
        const int planes = extents.size() == 3 ? extents[2] : 1;
        for (int z = 0; z < planes; ++z) {
            for (int y = 0; y < extents[1]; ++y) {
                for (int x = 0; x < extents[0]; ++x) {
                    const double r =
                        std::hypot(2.0 * x / extents[0] - 1, 2.0 * y / extents[1] - 1.1,
                                   planes > 1 ? 2.0 * z / planes - 0.9 : 0);
                    const double shape = r > 0.85   ? 20
                                         : r > 0.7  ? 190
                                         : r < 0.25 ? 150
                                                    : 80 + 40 * channel;
                    const double noise = uniform() + uniform() + uniform() + uniform() - 2;
                    before[channel].push_back(static_cast<float>(shape + 30.0 * x / extents[0] +
                                                                 noise * 12 * std::sqrt(3.0)));
                }
            }
        }
    }
};

}  // namespace diffusefilt_page
