// SPDX-License-Identifier: MIT
#include "sheet.h"

#include <algorithm>
#include <cmath>

namespace diffuse {

namespace {

constexpr int gap = 4;  // pixels between two panels
constexpr int superior = 2;

// The way of an axis through the body: along left, posterior or superior (0, 1, 2), whichever
// component is the largest in size, and whether it runs against the way that pictures do. Their
// rows run downwards, so that superior is against it.
struct Heading {
    int component = 0;
    bool backwards = false;
};

Heading headingOf(const Picture& picture, std::size_t axis) {
    if (axis >= picture.axes.size() || picture.axes[axis].direction.size() < 3) return {};
    const auto& d = picture.axes[axis].direction;
    const auto largest = std::max_element(
        d.begin(), d.begin() + 3, [](double a, double b) { return std::abs(a) < std::abs(b); });
    const int component = static_cast<int>(largest - d.begin());
    return {component, component == superior ? *largest > 0 : *largest < 0};
}

// Samples of a picture as they are shown: the first, and the steps to the right and downwards.
struct Panel {
    std::vector<Channel> channels;
    int width, height;  // in samples
    std::ptrdiff_t first, right, down;
    int shownWidth, shownHeight;  // in pixels
};

// The pixels of an axis of a volume, whose finest axis has one for each sample.
int pixelsOf(const Picture& picture, std::size_t axis) {
    constexpr double most = 16;  // pixels for a sample
    const auto& axes = picture.axes;
    if (picture.dimensions() < 3) return axes[axis].extent;
    const double finest = std::ranges::min(axes, {}, &Axis::spacing).spacing;
    return static_cast<int>(
        std::lround(axes[axis].extent * std::min(most, axes[axis].spacing / finest)));
}

// The plane in the middle of an axis; of a picture, whose third axis is none, all of it.
Panel uprightPanel(const Picture& picture, std::size_t cut) {
    const std::vector<Channel> channels = picture.shown();
    const std::vector<int>& extents = channels.front().extents;
    const std::ptrdiff_t strides[] = {1, extents[0], std::ptrdiff_t{extents[0]} * extents[1]};
    std::size_t axes[] = {cut == 0 ? 1U : 0U, cut == 2 ? 1U : 2U};
    if (headingOf(picture, axes[0]).component > headingOf(picture, axes[1]).component) {
        std::swap(axes[0], axes[1]);
    }
    Panel panel{
        channels,         extents[axes[0]], extents[axes[1]],           0,
        strides[axes[0]], strides[axes[1]], pixelsOf(picture, axes[0]), pixelsOf(picture, axes[1])};
    if (cut < extents.size()) panel.first = extents[cut] / 2 * strides[cut];
    if (headingOf(picture, axes[0]).backwards) {
        panel.first += (panel.width - 1) * panel.right;
        panel.right = -panel.right;
    }
    if (headingOf(picture, axes[1]).backwards) {
        panel.first += (panel.height - 1) * panel.down;
        panel.down = -panel.down;
    }
    return panel;
}

using Row = std::vector<Panel>;

std::vector<Row> arrange(const std::vector<const Picture*>& pictures) {
    std::vector<Row> rows;
    for (const Picture* picture : pictures) {
        if (picture->dimensions() == 2) {
            rows.resize(1);
            rows.front().push_back(uprightPanel(*picture, 2));
            continue;
        }
        std::size_t axes[] = {2, 1, 0};
        std::ranges::stable_sort(axes, std::greater<>(),
                                 [&](std::size_t a) { return headingOf(*picture, a).component; });
        Row& row = rows.emplace_back();
        for (const std::size_t axis : axes) row.push_back(uprightPanel(*picture, axis));
    }
    return rows;
}

// The panel, in the sheet's greys, with its first sample at the given column and row.
void paste(const Panel& panel, int left, int top, const Range& range, const Picture& sheet) {
    const double scale = range.length() > 0 ? 255 / range.length() : 1;
    for (int c = 0; c < sheet.channels; ++c) {
        const Channel& channel = panel.channels[c];
        for (int y = 0; y < panel.shownHeight; ++y) {
            for (int x = 0; x < panel.shownWidth; ++x) {
                const std::int64_t column = std::int64_t{x} * panel.width / panel.shownWidth;
                const std::int64_t row = std::int64_t{y} * panel.height / panel.shownHeight;
                const double value =
                    channel.value(panel.first + column * panel.right + row * panel.down);
                const std::size_t pixel = std::size_t(top + y) * sheet.axes[0].extent + left + x;
                sheet.samples.get()[pixel * sheet.channels + c] =
                    std::byte(toSample<std::uint8_t>((value - range.lowest) * scale));
            }
        }
    }
}

}  // namespace

Picture montage(const std::vector<const Picture*>& pictures, const std::optional<Range>& greys) {
    const std::vector<Row> rows = arrange(pictures);
    const Range range = greys ? *greys : rangeOf(pictures.front()->shown());
    int width = -gap;
    int rowHeight = 0;
    for (const Panel& panel : rows.front()) {
        width += panel.shownWidth + gap;
        rowHeight = std::max(rowHeight, panel.shownHeight);
    }
    const int height = static_cast<int>(rows.size()) * (rowHeight + gap) - gap;
    Picture sheet{{{width}, {height}}};
    sheet.sampleType = SampleType::uint8;
    sheet.channels = static_cast<int>(pictures.front()->shown().size());
    sheet.pixelKind = sheet.channels == 3 ? PixelKind::rgb : PixelKind::grey;
    sheet.makeRoom();
    std::fill_n(sheet.samples.get(), sheet.bytes(), std::byte{255});
    int top = 0;
    for (const Row& row : rows) {
        int left = 0;
        for (const Panel& panel : row) {
            paste(panel, left, top, range, sheet);
            left += panel.shownWidth + gap;
        }
        top += rowHeight + gap;
    }
    return sheet;
}

}  // namespace diffuse
