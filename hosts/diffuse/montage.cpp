#include "montage.h"

#include <algorithm>
#include <cmath>
#include <span>

namespace diffuse {

namespace {

constexpr int gap = 4;  // pixels between two panels
constexpr int superior = 2;

using Row = std::vector<Picture>;

// The way of an axis through the body: along left, posterior or superior (0, 1, 2), whichever
// component is the largest in size, and whether it runs against the way that pictures do. Their
// rows run downwards, so that superior is against it.
struct Heading {
    int component = 0;
    bool backwards = false;
};

Heading headingOf(const Axis& axis) {
    if (axis.direction.size() < 3) return {};
    const auto& d = axis.direction;
    const auto largest = std::max_element(
        d.begin(), d.begin() + 3, [](double a, double b) { return std::abs(a) < std::abs(b); });
    const int component = static_cast<int>(largest - d.begin());
    return {component, component == superior ? *largest > 0 : *largest < 0};
}

// The channels of a pixel that are shown.
int shownChannels(const Picture& picture) {
    const bool inColour =
        picture.pixelKind == PixelKind::rgb || picture.pixelKind == PixelKind::rgba;
    return inColour ? 3 : 1;
}

Picture emptySheet(int width, int height, int channels) {
    Picture sheet{{{width}, {height}}};
    sheet.sampleType = SampleType::uint8;
    sheet.channels = channels;
    sheet.pixelKind = channels == 3 ? PixelKind::rgb : PixelKind::grey;
    sheet.values.assign(static_cast<std::size_t>(width) * height * channels, 255);
    return sheet;
}

Picture upright(const Picture& slice) {
    const Heading headings[] = {headingOf(slice.axes[0]), headingOf(slice.axes[1])};
    const std::size_t strides[] = {1, static_cast<std::size_t>(slice.axes[0].extent)};
    const int across = headings[0].component > headings[1].component ? 1 : 0;
    const int down = 1 - across;
    Picture turned =
        emptySheet(slice.axes[across].extent, slice.axes[down].extent, shownChannels(slice));
    const auto offset = [&](int axis, int i) {
        return (headings[axis].backwards ? slice.axes[axis].extent - 1 - i : i) * strides[axis];
    };
    auto value = turned.values.begin();
    for (int c = 0; c < turned.channels; ++c) {
        const auto samples = slice.channel(c);
        for (int j = 0; j < turned.axes[1].extent; ++j) {
            for (int i = 0; i < turned.axes[0].extent; ++i) {
                *value++ = samples[offset(across, i) + offset(down, j)];
            }
        }
    }
    return turned;
}

Row centralSlices(const Picture& volume) {
    std::vector<int> axes = {2, 1, 0};
    std::stable_sort(axes.begin(), axes.end(), [&](int a, int b) {
        return headingOf(volume.axes[a]).component > headingOf(volume.axes[b]).component;
    });
    Row row;
    for (const int axis : axes) {
        row.push_back(upright(takeSlice(volume, {axis, volume.axes[axis].extent / 2})));
    }
    return row;
}

std::vector<Row> arrange(const std::vector<const Picture*>& pictures) {
    std::vector<Row> rows;
    for (const Picture* picture : pictures) {
        if (picture->dimensions() == 3) {
            rows.push_back(centralSlices(*picture));
        } else {
            rows.resize(1);
            rows.front().push_back(upright(*picture));
        }
    }
    return rows;
}

// The panel, in the sheet's greys, with its first sample at the given column and row.
void paste(const Picture& panel, int left, int top, double lowest, double scale, Picture& sheet) {
    const int panelWidth = panel.axes[0].extent;
    for (int c = 0; c < sheet.channels; ++c) {
        const auto from = panel.channel(c);
        const auto to = sheet.channel(c);
        for (std::size_t i = 0; i < from.size(); ++i) {
            const std::size_t column = left + i % panelWidth;
            const std::size_t row = top + i / panelWidth;
            to[row * sheet.axes[0].extent + column] = (from[i] - lowest) * scale;
        }
    }
}

}  // namespace

Picture montage(const std::vector<const Picture*>& pictures) {
    const std::vector<Row> rows = arrange(pictures);
    const Picture& first = *pictures.front();
    const auto shown =
        std::span(first.values).first(first.values.size() / first.channels * shownChannels(first));
    const Range range = rangeOf(shown);
    const double scale = range.highest > range.lowest ? 255 / (range.highest - range.lowest) : 1;

    int width = -gap;
    int rowHeight = 0;
    for (const Picture& panel : rows.front()) {
        width += panel.axes[0].extent + gap;
        rowHeight = std::max(rowHeight, panel.axes[1].extent);
    }
    const int height = static_cast<int>(rows.size()) * (rowHeight + gap) - gap;
    Picture sheet = emptySheet(width, height, shownChannels(first));
    int top = 0;
    for (const Row& row : rows) {
        int left = 0;
        for (const Picture& panel : row) {
            paste(panel, left, top, range.lowest, scale, sheet);
            left += panel.axes[0].extent + gap;
        }
        top += rowHeight + gap;
    }
    return sheet;
}

}  // namespace diffuse
