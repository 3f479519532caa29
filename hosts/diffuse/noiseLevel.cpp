#include "noiseLevel.h"

#include <diffusefilt_noise.h>

#include <cmath>
#include <new>
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

double noiseSigma(const Picture& picture) {
    const int count = picture.filteredChannels();
    std::vector<View> views;
    views.reserve(count);
    for (int c = 0; c < count; ++c) views.push_back(viewOfChannel(picture, c));
    std::vector<halide_buffer_t> channels;
    channels.reserve(count);
    for (const View& view : views) channels.push_back(view.record());
    const double sigma = diffusefilt_noise_sigma(channels.data(), count);
    if (std::isnan(sigma)) throw std::bad_alloc();
    return sigma;
}

double automaticThreshold(double sigma, const Picture& picture,
                          diffusefilt_host::Conduction conduction, int iterations) {
    double range = 0;
    if (!(sigma > 0)) {
        const Range found = rangeOf(picture.values);
        range = found.highest - found.lowest;
    }
    const bool isExponential = conduction == diffusefilt_host::Conduction::exponential;
    return diffusefilt_noise_threshold(sigma, range, isExponential, iterations);
}

}  // namespace diffuse
