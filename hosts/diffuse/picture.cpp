#include "picture.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>

namespace diffuse {

namespace {

void requireSlice(const Picture& volume, const SliceChoice& choice) {
    if (volume.dimensions() != 3) {
        throw std::runtime_error("a slice needs a volume of 3 dimensions, this picture has " +
                                 std::to_string(volume.dimensions()));
    }
    const int extent = volume.axes[choice.axis].extent;
    if (choice.index >= extent) {
        throw std::runtime_error("slice " + std::to_string(choice.index) +
                                 " is outside the volume, which has slices 0 to " +
                                 std::to_string(extent - 1) + " on that axis");
    }
}

// The volume without its samples: moved to the slice along the axis, which becomes the third.
Picture placeSlice(const Picture& volume, const SliceChoice& choice) {
    Picture slice{volume.axes,
                  volume.origin,
                  volume.sampleType,
                  volume.pixelKind,
                  volume.channels,
                  volume.notes,
                  {}};
    const auto cut = slice.axes.begin() + choice.axis;
    for (std::size_t i = 0; i < std::min(slice.origin.size(), cut->direction.size()); ++i) {
        slice.origin[i] += choice.index * cut->spacing * cut->direction[i];
    }
    cut->extent = 1;
    // Taking the second axis behind the third mirrors the space; turning it round mirrors it back.
    if (choice.axis == 1) {
        for (double& component : cut->direction) component = -component;
    }
    std::rotate(cut, cut + 1, slice.axes.begin() + 3);
    return slice;
}

}  // namespace

int Picture::dimensions() const {
    std::size_t count = axes.size();
    while (count > 2 && axes[count - 1].extent == 1) --count;
    return static_cast<int>(count);
}

int Picture::filteredChannels() const {
    return hasOpacity(pixelKind) ? channels - 1 : channels;
}

std::span<double> Picture::filteredValues() {
    return std::span(values).first(values.size() / channels * filteredChannels());
}

std::span<const double> Picture::filteredValues() const {
    return std::span(values).first(values.size() / channels * filteredChannels());
}

std::span<double> Picture::channel(int index) {
    const std::size_t size = values.size() / channels;
    return std::span(values).subspan(index * size, size);
}

std::span<const double> Picture::channel(int index) const {
    const std::size_t size = values.size() / channels;
    return std::span(values).subspan(index * size, size);
}

Range rangeOf(std::span<const double> values) {
    Range range{HUGE_VAL, -HUGE_VAL};
    for (const double value : values) {
        if (!std::isfinite(value)) continue;
        range.lowest = std::min(range.lowest, value);
        range.highest = std::max(range.highest, value);
    }
    return range.lowest > range.highest ? Range{} : range;
}

Picture takeSlice(const Picture& volume, const SliceChoice& choice) {
    requireSlice(volume, choice);
    const std::size_t strides[] = {
        1, static_cast<std::size_t>(volume.axes[0].extent),
        static_cast<std::size_t>(volume.axes[0].extent) * volume.axes[1].extent};
    const int column = choice.axis == 0 ? 1 : 0;
    const int row = choice.axis == 2 ? 1 : 2;

    Picture slice = placeSlice(volume, choice);
    slice.values.reserve(volume.values.size() / volume.axes[choice.axis].extent);
    const std::size_t start = choice.index * strides[choice.axis];
    for (int c = 0; c < volume.channels; ++c) {
        const auto samples = volume.channel(c);
        for (int j = 0; j < slice.axes[1].extent; ++j) {
            for (int i = 0; i < slice.axes[0].extent; ++i) {
                slice.values.push_back(samples[start + i * strides[column] + j * strides[row]]);
            }
        }
    }
    return slice;
}

}  // namespace diffuse
