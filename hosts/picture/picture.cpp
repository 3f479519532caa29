// SPDX-License-Identifier: MIT
#include "picture.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace diffuse {

namespace {

std::vector<Channel> channelsOf(const Picture& picture, int count) {
    std::vector<int> extents;
    extents.reserve(picture.axes.size());
    for (int d = 0; d < picture.dimensions(); ++d) extents.push_back(picture.axes[d].extent);
    std::vector<Channel> channels;
    for (int i = 0; i < picture.count; ++i) {
        std::byte* const first = picture.samples.get() + picture.bytes() / picture.count * i;
        for (int c = 0; c < count; ++c) {
            channels.push_back({first + c * sizeOf(picture.sampleType), picture.sampleType,
                                static_cast<std::size_t>(picture.channels), extents});
        }
    }
    return channels;
}

void requireSlice(const Picture& volume, const SliceChoice& choice) {
    if (volume.dimensions() != 3) {
        throw std::runtime_error("a slice needs a volume of 3 dimensions, this picture has " +
                                 std::to_string(volume.dimensions()));
    }
    if (volume.count > 1) {
        throw std::runtime_error("a slice is taken of a volume, not of a series");
    }
    const int extent = volume.axes[choice.axis].extent;
    if (choice.index >= extent) {
        throw std::runtime_error("slice " + std::to_string(choice.index) +
                                 " is outside the volume, which has slices 0 to " +
                                 std::to_string(extent - 1) + " on that axis");
    }
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

std::size_t Picture::bytes() const {
    std::size_t bytes = std::size_t{1} * count * channels * sizeOf(sampleType);
    for (const Axis& axis : axes) bytes *= axis.extent;
    return bytes;
}

void Picture::makeRoom() {
    samples.reset(new std::byte[bytes()], std::default_delete<std::byte[]>());
}

std::vector<Channel> Picture::filtered() const {
    return channelsOf(*this, filteredChannels());
}

std::vector<Channel> Picture::shown() const {
    auto channels = channelsOf(*this, inColour(pixelKind) ? 3 : 1);
    channels.resize(inColour(pixelKind) ? 3 : 1);
    return channels;
}

Picture converted(const Picture& picture, SampleType type, double slope, double shift) {
    Picture other = picture;
    other.sampleType = type;
    other.makeRoom();
    withSampleType(picture.sampleType, [&]<typename From>(From*) {
        withSampleType(type, [&]<typename To>(To*) {
            const auto* from = reinterpret_cast<const From*>(picture.samples.get());
            auto* to = reinterpret_cast<To*>(other.samples.get());
            std::transform(from, from + picture.bytes() / sizeof(From), to, [&](From sample) {
                return toSample<To>(slope * static_cast<double>(sample) + shift);
            });
        });
    });
    return other;
}

Picture takeSlice(const Picture& volume, const SliceChoice& choice) {
    requireSlice(volume, choice);
    Picture slice = volume;
    Axis cut = volume.axes[choice.axis];
    for (std::size_t i = 0; i < std::min(slice.origin.size(), cut.direction.size()); ++i) {
        slice.origin[i] += choice.index * cut.spacing * cut.direction[i];
    }
    cut.extent = 1;
    // Taking the second axis behind the third mirrors the space; turning it round mirrors it back.
    if (choice.axis == 1) {
        for (double& component : cut.direction) component = -component;
    }
    slice.axes.erase(slice.axes.begin() + choice.axis);
    slice.axes.push_back(cut);
    slice.makeRoom();

    const std::size_t pixel = volume.channels * sizeOf(volume.sampleType);
    const std::size_t strides[] = {pixel, pixel * volume.axes[0].extent,
                                   pixel * volume.axes[0].extent * volume.axes[1].extent};
    const std::size_t column = strides[choice.axis == 0 ? 1 : 0];
    const std::size_t row = strides[choice.axis == 2 ? 1 : 2];
    const std::byte* const start = volume.samples.get() + choice.index * strides[choice.axis];
    std::byte* to = slice.samples.get();
    for (int j = 0; j < slice.axes[1].extent; ++j) {
        for (int i = 0; i < slice.axes[0].extent; ++i, to += pixel) {
            std::memcpy(to, start + i * column + j * row, pixel);
        }
    }
    return slice;
}

}  // namespace diffuse
