// SPDX-License-Identifier: MIT
#include "plane.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace diffusefilt_page {

namespace {

constexpr int superior = 3;

bool areKnown(const std::vector<Axis>& axes) {
    std::array<int, 4> found{};
    for (const Axis& axis : axes) ++found[std::abs(axis.heading)];
    return found[0] == 0 && std::ranges::all_of(found, [](int count) { return count <= 1; });
}

// Rows run downwards, so that superior is against their way.
bool runsBackwards(int heading) {
    return std::abs(heading) == superior ? heading > 0 : heading < 0;
}

float meanOf(const Samples& samples, std::array<int, 3> at, const Layout& layout,
             std::array<int, 2> size) {
    const std::array<int, 3> start = at;
    double sum = 0;
    for (int j = 0; j < size[1]; ++j) {
        for (int i = 0; i < size[0]; ++i) {
            at[layout.across] = start[layout.across] + (layout.mirrored ? -i : i);
            at[layout.down] = start[layout.down] + (layout.upsideDown ? -j : j);
            sum += samples(at[0], at[1], at[2]);
        }
    }
    return static_cast<float>(sum / size[0] / size[1]);
}

}  // namespace

Layout layoutAlong(const std::vector<Axis>& axes, int along) {
    Layout layout{along == 0 ? 1 : 0, along == 2 || along < 0 ? 1 : 2, along, false, false};
    if (!areKnown(axes)) return layout;
    if (std::abs(axes[layout.across].heading) > std::abs(axes[layout.down].heading)) {
        std::swap(layout.across, layout.down);
    }
    layout.mirrored = runsBackwards(axes[layout.across].heading);
    layout.upsideDown = runsBackwards(axes[layout.down].heading);
    return layout;
}

std::array<std::string, 4> sidesOf(const Layout& layout, const std::vector<Axis>& axes) {
    if (!areKnown(axes)) return {};
    const auto ends = [&](int axis) -> std::array<std::string, 2> {
        switch (std::abs(axes[axis].heading)) {
            case 1:
                return {"R", "L"};
            case 2:
                return {"A", "P"};
            default:
                return {"S", "I"};
        }
    };
    const auto horizontal = ends(layout.across);
    const auto vertical = ends(layout.down);
    return {horizontal[0], horizontal[1], vertical[0], vertical[1]};
}

std::string nameOf(const Layout& layout, const std::vector<Axis>& axes) {
    constexpr const char* planes[] = {"Sagittal", "Coronal", "Axial"};
    if (layout.along >= 0 && areKnown(axes)) {
        return planes[std::abs(axes[layout.along].heading) - 1];
    }
    const std::string letters = "xyz";
    return std::string(1, letters[layout.across]) + ", " + letters[layout.down];
}

Region wholePlane(const Samples& samples, const Layout& layout) {
    return {0, 0, samples.shape()[layout.across].extent, samples.shape()[layout.down].extent};
}

Region middleOf(const Region& whole, double pixels) {
    const double side = std::max(1.0, std::floor(std::sqrt(pixels)));
    const auto atMost = [](int extent, double wanted) {
        return static_cast<int>(std::min<double>(extent, wanted));
    };
    // Where one side is short, the other may be up to twice as long as that of a square.
    Region region;
    region.width = atMost(whole.width, side);
    region.height = atMost(whole.height, std::min(2 * side, pixels / region.width));
    region.width = atMost(whole.width, std::min(2 * side, pixels / region.height));
    region.left = whole.left + (whole.width - region.width) / 2;
    region.top = whole.top + (whole.height - region.height) / 2;
    return region;
}

Plane takePlane(const std::vector<Samples>& channels, const Layout& layout, int index,
                const Region& region, const Reduction& reduction) {
    const int factor = reduction.factor;
    Plane plane{(region.width + factor - 1) / factor, (region.height + factor - 1) / factor, {}};
    for (const Samples& samples : channels) {
        const auto& shape = samples.shape();
        std::vector<float>& values = plane.channels.emplace_back();
        values.reserve(static_cast<std::size_t>(plane.width) * plane.height);
        for (int j = 0; j < region.height; j += factor) {
            for (int i = 0; i < region.width; i += factor) {
                std::array<int, 3> at{};
                const int x = region.left + i;
                const int y = region.top + j;
                if (layout.along >= 0) at[layout.along] = index;
                at[layout.across] = layout.mirrored ? shape[layout.across].extent - 1 - x : x;
                at[layout.down] = layout.upsideDown ? shape[layout.down].extent - 1 - y : y;
                values.push_back(reduction.averaged ? meanOf(samples, at, layout,
                                                             {std::min(factor, region.width - i),
                                                              std::min(factor, region.height - j)})
                                                    : samples(at[0], at[1], at[2]));
            }
        }
    }
    return plane;
}

Plane difference(const Plane& before, const Plane& after) {
    Plane plane = before;
    for (std::size_t c = 0; c < plane.channels.size(); ++c) {
        std::ranges::transform(plane.channels[c], after.channels[c], plane.channels[c].begin(),
                               std::minus());
    }
    return plane;
}

double rootMeanSquare(const Plane& plane) {
    double sum = 0;
    std::size_t count = 0;
    for (const auto& channel : plane.channels) {
        for (const float value : channel) {
            if (!std::isfinite(value)) continue;
            sum += static_cast<double>(value) * value;
            ++count;
        }
    }
    return count == 0 ? 0 : std::sqrt(sum / static_cast<double>(count));
}

}  // namespace diffusefilt_page
