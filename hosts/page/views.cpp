// SPDX-License-Identifier: MIT
#include "views.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "image.h"

namespace diffusefilt_page {

namespace {

class Painter {
public:
    Painter(const Content& content, const Range& greys, double removedScale)
        : content_(content), greys_(greys), removedScale_(removedScale) {}

    // What was removed keeps its scale: it is never averaged.
    [[nodiscard]] Slice slice(const View& view, int index) const {
        const auto take = [&](const std::vector<Samples>& channels, bool averaged) {
            return takePlane(channels, view.layout, index, view.region,
                             {view.reduction.factor, averaged});
        };
        const bool averaged = view.reduction.averaged;
        return {index, pictureOf(take(content_.before, averaged), greys_),
                pictureOf(take(content_.after, averaged), greys_),
                pictureOfDifference(
                    difference(take(content_.before, false), take(content_.after, false)),
                    removedScale_)};
    }

private:
    const Content& content_;
    Range greys_;
    double removedScale_;
};

double pixelsOf(const Region& region) {
    return static_cast<double>(region.width) * region.height;
}

int factorFor(double pixels, double room) {
    return std::max(1, static_cast<int>(std::ceil(std::sqrt(pixels / room))));
}

std::vector<View> pictureViews(const Content& content, const Painter& painter, double pixels) {
    const Layout layout = layoutAlong(content.axes, -1);
    const Region whole = wholePlane(content.before.front(), layout);
    std::vector<View> views;
    if (pixelsOf(whole) <= pixels) {
        views.push_back({"Whole picture", layout, whole, {}, {}});
    } else {
        const int factor = factorFor(pixelsOf(whole), pixels / 2);
        views.push_back({"Whole picture", layout, whole, {factor, true}, {}});
        views.push_back({"Part at full size", layout, middleOf(whole, pixels / 2), {}, {}});
    }
    for (View& view : views) view.slices.push_back(painter.slice(view, 0));
    return views;
}

// `count` slices at equal distances, the middle one among them if it is odd.
void fillView(const Content& content, const Painter& painter, int count, View& view) {
    const int extent = content.before.front().shape()[view.layout.along].extent;
    const int stored = std::min(count, extent);
    view.slices.clear();
    for (int i = 0; i < stored; ++i) {
        const auto index = static_cast<int>((i + 0.5) * extent / stored);
        view.slices.push_back(painter.slice(view, index));
    }
}

double charactersOf(const std::vector<View>& views) {
    double sum = 0;
    for (const View& view : views) {
        for (const Slice& slice : view.slices) {
            sum += static_cast<double>(slice.before.size() + slice.after.size() +
                                       slice.removed.size());
        }
    }
    return sum;
}

std::vector<View> volumeViews(const Content& content, const Painter& painter, double pixels,
                              double characters) {
    constexpr int most = 63;
    constexpr int planes = 9;  // in full size, if so many of each have room
    std::vector<int> along{2, 1, 0};
    std::ranges::stable_sort(along, [&](int a, int b) {
        return std::abs(content.axes[a].heading) > std::abs(content.axes[b].heading);
    });
    std::vector<View> views;
    double size = 0;
    for (const int axis : along) {
        const Layout layout = layoutAlong(content.axes, axis);
        const Region whole = wholePlane(content.before.front(), layout);
        views.push_back({nameOf(layout, content.axes), layout, whole, {}, {}});
        size += pixelsOf(whole);
    }
    for (View& view : views) {
        view.reduction.factor = factorFor(size * planes, pixels);
        fillView(content, painter, 1, view);
    }
    // Those in the middle are the largest, as a rule.
    int count = static_cast<int>(std::clamp(characters / charactersOf(views), 3.0, 1.0 * most));
    for (count -= 1 - count % 2;; count -= 2) {
        for (View& view : views) fillView(content, painter, count, view);
        if (count <= 3 || charactersOf(views) <= characters) return views;
    }
}

}  // namespace

std::vector<View> makeViews(const Content& content, const Range& greys, double removedScale,
                            const Room& room) {
    const Painter painter(content, greys, removedScale);
    const double pixels = room.samples / static_cast<double>(content.before.size());
    return content.before.front().dimensions() == 3
               ? volumeViews(content, painter, pixels, room.characters)
               : pictureViews(content, painter, pixels);
}

}  // namespace diffusefilt_page
