// SPDX-License-Identifier: MIT
#include "sheet.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace diffusefilt_page {

namespace {

constexpr int planarMargin = 32, spatialMargin = 12;

// The chosen number between others that can be told from it by eye.
std::array<int, 3> stepsAround(int chosen) {
    if (chosen <= 1) return {chosen, chosen + 1, chosen + 2};
    return {(chosen + 1) / 2, chosen, 2 * chosen};
}

// Half to double, rounded to three digits but for the chosen one.
std::array<double, sheetThresholds> thresholdsAround(double chosen) {
    std::array<double, sheetThresholds> thresholds{};
    for (int i = 0; i < sheetThresholds; ++i) {
        const double exact = chosen * std::exp2((i - 2) / 2.0);
        char text[32];
        std::snprintf(text, sizeof text, "%.3g", exact);
        thresholds[i] = i == 2 ? chosen : std::strtod(text, nullptr);
    }
    return thresholds;
}

// From `begin` to before `end` on each axis of the file; 0 to 1 on one that there is not.
struct Box {
    std::array<int, 3> begin{}, end{1, 1, 1};

    [[nodiscard]] std::size_t size() const {
        std::size_t count = 1;
        for (int d = 0; d < 3; ++d) count *= end[d] - begin[d];
        return count;
    }
};

Box boxAround(const Content& content, const Sheet& sheet) {
    const auto& samples = content.before.front();
    const Layout& layout = sheet.layout;
    Box box;
    const auto place = [&](int axis, int first, int count, bool turned, int margin) {
        const int extent = samples.shape()[axis].extent;
        const int start = turned ? extent - first - count : first;
        box.begin[axis] = std::max(0, start - margin);
        box.end[axis] = std::min(extent, start + count + margin);
    };
    const Region& region = sheet.region;
    place(layout.across, region.left, region.width, layout.mirrored, sheet.margin);
    place(layout.down, region.top, region.height, layout.upsideDown, sheet.margin);
    if (layout.along >= 0) {
        const int depth = content.pipeline.dimensions == 3 ? sheet.margin : 0;
        place(layout.along, sheet.index, 1, false, depth);
    }
    return box;
}

template <typename Element>
diffusefilt_host::View<Element> viewOf(std::vector<Element>& elements, const Box& box,
                                       int dimensions) {
    using View = diffusefilt_host::View<Element>;
    const auto extent = [&](int d) { return box.end[d] - box.begin[d]; };
    return dimensions == 2 ? View::dense(elements.data(), {extent(0), extent(1)})
                           : View::dense(elements.data(), {extent(0), extent(1), extent(2)});
}

// The part of the sheet, taken out of the filtered box.
template <typename Element>
void takePart(const std::vector<Element>& box, const Box& place, const Content& content,
              const Sheet& sheet, Plane& plane) {
    const auto& samples = content.before.front();
    const Layout& layout = sheet.layout;
    std::array<std::size_t, 3> strides{1, 0, 0};
    for (int d = 1; d < 3; ++d) {
        strides[d] = strides[d - 1] * (place.end[d - 1] - place.begin[d - 1]);
    }
    const auto offset = [&](int axis, int at, bool turned) {
        const int inFile = turned ? samples.shape()[axis].extent - 1 - at : at;
        return (inFile - place.begin[axis]) * strides[axis];
    };
    std::vector<float>& values = plane.channels.emplace_back();
    const Region& region = sheet.region;
    const std::size_t start = layout.along < 0 ? 0 : offset(layout.along, sheet.index, false);
    for (int y = region.top; y < region.top + region.height; ++y) {
        for (int x = region.left; x < region.left + region.width; ++x) {
            values.push_back(
                static_cast<float>(box[start + offset(layout.across, x, layout.mirrored) +
                                       offset(layout.down, y, layout.upsideDown)]));
        }
    }
}

// Adds one channel to all cells. Those of one threshold are stations of the same way.
template <typename Element>
void filterChannel(const Content& content, const Samples& samples, Sheet& sheet) {
    const auto& pipeline = diffusefilt_host::findPipeline(content.pipeline);
    const Box box = boxAround(content, sheet);
    std::vector<Element> original;
    original.reserve(box.size());
    for (int z = box.begin[2]; z < box.end[2]; ++z) {
        for (int y = box.begin[1]; y < box.end[1]; ++y) {
            for (int x = box.begin[0]; x < box.end[0]; ++x) original.push_back(samples(x, y, z));
        }
    }
    std::vector<Element> scratch(original.size());
    for (int t = 0; t < sheetThresholds; ++t) {
        std::vector<Element> image = original;
        int done = 0;
        for (std::size_t c = t; c < sheet.cells.size(); c += sheetThresholds) {
            Cell& cell = sheet.cells[c];
            for (; done < cell.steps; ++done) {
                pipeline.step(viewOf(image, box, pipeline.dimensions), cell.threshold,
                              viewOf(scratch, box, pipeline.dimensions));
                image.swap(scratch);
            }
            takePart(image, box, content, sheet, cell.plane);
        }
    }
}

}  // namespace

Sheet makeSheet(const Content& content, double samples) {
    const Samples& first = content.before.front();
    const bool isVolume = first.dimensions() == 3;
    Sheet sheet;
    sheet.layout = layoutAlong(content.axes, isVolume ? 2 : -1);
    sheet.index = isVolume ? first.shape()[2].extent / 2 : 0;
    sheet.region = middleOf(wholePlane(first, sheet.layout),
                            samples / static_cast<double>(content.before.size()));
    const auto steps = stepsAround(content.steps);
    sheet.margin =
        std::min(steps.back(), content.pipeline.dimensions == 3 ? spatialMargin : planarMargin);
    sheet.before = takePlane(content.before, sheet.layout, sheet.index, sheet.region, {});
    for (const int count : steps) {
        for (const double threshold : thresholdsAround(content.threshold)) {
            sheet.cells.push_back(
                {threshold, count, {sheet.region.width, sheet.region.height, {}}, 0});
        }
    }
    for (const Samples& channel : content.before) {
        if (content.pipeline.elementType == diffusefilt_host::ElementType::float64) {
            filterChannel<double>(content, channel, sheet);
        } else {
            filterChannel<float>(content, channel, sheet);
        }
    }
    for (Cell& cell : sheet.cells)
        cell.removed = rootMeanSquare(difference(sheet.before, cell.plane));
    return sheet;
}

}  // namespace diffusefilt_page
