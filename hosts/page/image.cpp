// SPDX-License-Identifier: MIT
#include "image.h"

#include <glib.h>
#include <png.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <stdexcept>

namespace diffusefilt_page {

namespace {

using Colour = std::array<std::uint8_t, 3>;

// Of level 0 to 255 with nothing at 128: two hues that the colour-blind tell apart, dark at the
// ends, equally light at equal distance from the middle.
Colour differenceColour(int level) {
    constexpr std::array<double, 3> negative{24, 84, 150};
    constexpr std::array<double, 3> positive{176, 74, 8};
    constexpr double nothing = 246;
    const double distance = std::min(1.0, std::abs(level - 128) / 127.0);
    const double share = std::pow(distance, 0.8);
    const auto& end = level < 128 ? negative : positive;
    Colour colour{};
    for (std::size_t c = 0; c < colour.size(); ++c) {
        colour[c] = static_cast<std::uint8_t>(std::lround(nothing + share * (end[c] - nothing)));
    }
    return colour;
}

std::uint8_t levelOf(double value) {
    return value > 0 ? static_cast<std::uint8_t>(std::lround(std::min(value, 255.0))) : 0;
}

// The channels of a pixel together.
std::vector<std::uint8_t> levelsOf(const Plane& plane, double lowest, double scale) {
    const std::size_t channels = plane.channels.size();
    std::vector<std::uint8_t> levels(channels * plane.width * plane.height);
    for (std::size_t c = 0; c < channels; ++c) {
        std::size_t at = c;
        for (const float value : plane.channels[c]) {
            levels[at] = levelOf((value - lowest) * scale);
            at += channels;
        }
    }
    return levels;
}

// `palette` is empty or holds 256 colours.
std::string addressOf(const Plane& plane, const std::vector<std::uint8_t>& levels,
                      const std::vector<Colour>& palette) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = plane.width;
    image.height = plane.height;
    image.colormap_entries = palette.size();
    image.format = !palette.empty()             ? PNG_FORMAT_RGB_COLORMAP
                   : plane.channels.size() == 3 ? PNG_FORMAT_RGB
                                                : PNG_FORMAT_GRAY;
    png_alloc_size_t size = PNG_IMAGE_PNG_SIZE_MAX(image);
    std::vector<unsigned char> bytes(size);
    if (png_image_write_to_memory(&image, bytes.data(), &size, 0, levels.data(), 0,
                                  palette.data()) == 0) {
        throw std::runtime_error(std::string("cannot encode a picture: ") + image.message);
    }
    const std::unique_ptr<gchar, decltype(&g_free)> text(g_base64_encode(bytes.data(), size),
                                                         g_free);
    return std::string("data:image/png;base64,") + text.get();
}

}  // namespace

std::string pictureOf(const Plane& plane, const Range& greys) {
    const double width = greys.highest - greys.lowest;
    return addressOf(plane, levelsOf(plane, greys.lowest, width > 0 ? 255 / width : 1), {});
}

std::string pictureOfDifference(const Plane& plane, double scale) {
    std::vector<Colour> palette;
    for (int level = 0; plane.channels.size() == 1 && level < 256; ++level) {
        palette.push_back(differenceColour(level));
    }
    const double perUnit = 127 / scale;
    return addressOf(plane, levelsOf(plane, -128 / perUnit, perUnit), palette);
}

std::vector<std::string> differenceColours(int count) {
    std::vector<std::string> colours;
    for (int i = 0; i < count; ++i) {
        const Colour colour = differenceColour(1 + 254 * i / (count - 1));
        char text[32];
        std::snprintf(text, sizeof text, "rgb(%d %d %d)", colour[0], colour[1], colour[2]);
        colours.emplace_back(text);
    }
    return colours;
}

}  // namespace diffusefilt_page
