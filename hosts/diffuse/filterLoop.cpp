// SPDX-License-Identifier: MIT
#include "filterLoop.h"

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <utility>

#include "picture/parallel.h"

namespace diffuse {

namespace {

constexpr std::size_t part = 1 << 16;  // samples that a thread converts at once

template <typename Element>
void convertFrom(const Channel& channel, Element* elements) {
    withSampleType(channel.type, [&]<typename Sample>(Sample*) {
        const auto* samples = reinterpret_cast<const Sample*>(channel.first);
        inParts(channel.size(), part, [&](std::size_t begin, std::size_t end) {
            for (std::size_t i = begin; i < end; ++i) {
                elements[i] = static_cast<Element>(samples[i * channel.stride]);
            }
        });
    });
}

// Returns whether all elements are finite.
template <typename Element>
bool convertTo(const Channel& channel, const Element* elements) {
    std::atomic<bool> isFinite = true;
    withSampleType(channel.type, [&]<typename Sample>(Sample*) {
        auto* samples = reinterpret_cast<Sample*>(channel.first);
        inParts(channel.size(), part, [&](std::size_t begin, std::size_t end) {
            Element sum = 0;  // of zeros, or NaN
            for (std::size_t i = begin; i < end; ++i) {
                sum += 0 * elements[i];
                samples[i * channel.stride] = toSample<Sample>(elements[i]);
            }
            if (sum != 0) isFinite = false;
        });
    });
    return isFinite;
}

template <typename Element>
diffusefilt_host::View<Element> viewOf(Element* elements, const std::vector<int>& extents) {
    using View = diffusefilt_host::View<Element>;
    return extents.size() == 2 ? View::dense(elements, {extents[0], extents[1]})
                               : View::dense(elements, {extents[0], extents[1], extents[2]});
}

// Adds what a step did to one of `channels` channels.
template <typename Element>
void addChange(const Element* before, const Element* after, std::size_t count, int channels,
               StepReport& report) {
    double squares = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const double change = std::abs(static_cast<double>(after[i]) - before[i]);
        squares += change * change;
        report.largestChange = std::max(report.largestChange, change);
    }
    const double sum = report.rootMeanSquareChange * report.rootMeanSquareChange +
                       squares / static_cast<double>(count) / channels;
    report.rootMeanSquareChange = std::sqrt(sum);
}

template <typename Element>
std::vector<StepReport> filterIn(const FilterSettings& settings, const Picture& picture,
                                 const std::function<void()>& onStep) {
    using Clock = std::chrono::steady_clock;
    const diffusefilt_host::Pipeline& pipeline = diffusefilt_host::findPipeline(settings.pipeline);
    std::vector<StepReport> reports(settings.measure ? settings.iterations : 0);
    const bool hasPlanes = settings.pipeline.dimensions == 2;
    const auto channels = hasPlanes ? planesOf(picture.filtered()) : picture.filtered();
    const auto channelCount = static_cast<int>(channels.size());
    const std::size_t count = channels.front().size();
    auto image = roomFor<Element>(count);
    auto next = roomFor<Element>(count);
    for (const Channel& channel : channels) {
        convertFrom(channel, image.get());
        for (int i = 0; i < settings.iterations; ++i) {
            const auto start = Clock::now();
            pipeline.step(viewOf(image.get(), channel.extents), settings.threshold,
                          viewOf(next.get(), channel.extents));
            if (settings.measure) {
                reports[i].seconds += std::chrono::duration<double>(Clock::now() - start).count();
                addChange(image.get(), next.get(), count, channelCount, reports[i]);
            }
            image.swap(next);
            onStep();
        }
        if (!convertTo(channel, image.get()) && !settings.spreadsNan) {
            throw std::runtime_error("its samples are too large for the arithmetic of " +
                                     std::string(wordOf(settings.pipeline.elementType)));
        }
    }
    return reports;
}

}  // namespace

std::vector<StepReport> filter(const FilterSettings& settings, const Picture& picture,
                               const std::function<void()>& onStep) {
    if (settings.iterations == 0) return {};
    return settings.pipeline.elementType == diffusefilt_host::ElementType::float64
               ? filterIn<double>(settings, picture, onStep)
               : filterIn<float>(settings, picture, onStep);
}

}  // namespace diffuse
