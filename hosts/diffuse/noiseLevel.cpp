#include "noiseLevel.h"

#include <diffusefilt_noise.h>

#include <stdexcept>
#include <vector>

namespace diffuse {

namespace {

using View = diffusefilt_host::View<const double>;

View viewOfChannel(const Picture& picture, int index) {
    const double* const values = picture.channel(index).data();
    const auto& axes = picture.axes;
    return picture.dimensions() == 2
               ? View::dense(values, {axes[0].extent, axes[1].extent})
               : View::dense(values, {axes[0].extent, axes[1].extent, axes[2].extent});
}

}  // namespace

NoiseLevel noiseLevel(const Picture& picture, diffusefilt_host::Axes pipeline, int iterations) {
    const int count = picture.filteredChannels();
    std::vector<View> views;
    views.reserve(count);
    for (int c = 0; c < count; ++c) views.push_back(viewOfChannel(picture, c));
    std::vector<halide_buffer_t> channels;
    channels.reserve(count);
    for (const View& view : views) channels.push_back(view.record());
    pipeline.elementType = diffusefilt_host::ElementType::float32;
    diffusefilt_noise found{};
    if (diffusefilt_noise_estimate(channels.data(), count,
                                   diffusefilt_host::findPipeline(pipeline).entry, iterations,
                                   &found) != 0) {
        throw std::runtime_error("no memory to estimate the noise");
    }
    return {found.sigma, found.correlation, found.is_correlated != 0, found.threshold};
}

}  // namespace diffuse
