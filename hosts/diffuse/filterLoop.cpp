#include "filterLoop.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <utility>

namespace diffuse {

namespace {

template <typename Element>
diffusefilt_host::View<Element> viewOf(std::vector<Element>& elements, const Picture& picture) {
    using View = diffusefilt_host::View<Element>;
    const auto& axes = picture.axes;
    return picture.dimensions() == 2
               ? View::dense(elements.data(), {axes[0].extent, axes[1].extent})
               : View::dense(elements.data(), {axes[0].extent, axes[1].extent, axes[2].extent});
}

// Adds what a step did to one of `channels` channels.
template <typename Element>
void addChange(const std::vector<Element>& before, const std::vector<Element>& after, int channels,
               StepReport& report) {
    double squares = 0;
    for (std::size_t i = 0; i < before.size(); ++i) {
        const double change = std::abs(static_cast<double>(after[i]) - before[i]);
        squares += change * change;
        report.largestChange = std::max(report.largestChange, change);
    }
    const double sum = std::pow(report.rootMeanSquareChange, 2) +
                       squares / static_cast<double>(before.size()) / channels;
    report.rootMeanSquareChange = std::sqrt(sum);
}

template <typename Element>
std::vector<StepReport> filterIn(const FilterSettings& settings, Picture& picture,
                                 const std::function<void()>& onStep) {
    using Clock = std::chrono::steady_clock;
    const diffusefilt_host::Pipeline& pipeline = diffusefilt_host::findPipeline(settings.pipeline);
    std::vector<StepReport> reports;
    for (int c = 0; c < picture.filteredChannels(); ++c) {
        const auto values = picture.channel(c);
        std::vector<Element> image(values.begin(), values.end());
        std::vector<Element> next(image.size());
        for (int i = 0; i < settings.iterations; ++i) {
            const auto start = Clock::now();
            pipeline.step(viewOf(image, picture), settings.threshold, viewOf(next, picture));
            if (settings.measure) {
                if (c == 0) reports.emplace_back();
                reports[i].seconds += std::chrono::duration<double>(Clock::now() - start).count();
                addChange(image, next, picture.filteredChannels(), reports[i]);
            }
            image.swap(next);
            onStep();
        }
        std::copy(image.begin(), image.end(), values.begin());
    }
    return reports;
}

}  // namespace

std::vector<StepReport> filter(const FilterSettings& settings, Picture& picture,
                               const std::function<void()>& onStep) {
    return settings.pipeline.elementType == diffusefilt_host::ElementType::float64
               ? filterIn<double>(settings, picture, onStep)
               : filterIn<float>(settings, picture, onStep);
}

}  // namespace diffuse
