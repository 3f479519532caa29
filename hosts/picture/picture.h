// SPDX-License-Identifier: MIT
// What the program works on: a picture or volume in memory, and one slice of a volume.
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "samples.h"

namespace diffuse {

// What the channels of a pixel mean. Opacity, the last channel where there is one, is not filtered.
enum class PixelKind { grey, greyOpacity, rgb, rgba, vector };

inline bool hasOpacity(PixelKind kind) {
    return kind == PixelKind::greyOpacity || kind == PixelKind::rgba;
}

inline bool inColour(PixelKind kind) {
    return kind == PixelKind::rgb || kind == PixelKind::rgba;
}

struct Axis {
    int extent = 0;      // samples along the axis
    double spacing = 1;  // between neighbouring samples, in millimetres
    // In space: left, posterior, superior. Empty if the place of the picture is unknown.
    std::vector<double> direction = {};

    bool operator==(const Axis&) const = default;
};

struct Picture {
    // As in the file; the first is the one whose samples are neighbours in memory.
    std::vector<Axis> axes;
    std::vector<double> origin = {};  // of the first sample; empty if the place is unknown
    SampleType sampleType = SampleType::float64;
    PixelKind pixelKind = PixelKind::grey;
    int channels = 1;
    int count = 1;  // of pictures or volumes of these axes in a series, one after the other
    // What else the file tells and its own format can keep, as text or bytes, by names that only
    // the formats know.
    std::map<std::string, std::string> notes = {};
    // As files have them, the channels of a pixel together; null before they are read.
    std::shared_ptr<std::byte> samples = {};

    // Those that are filtered. One slice is a picture, whatever space its file places it in:
    // trailing axes of a single sample do not count, down to two.
    [[nodiscard]] int dimensions() const;
    [[nodiscard]] int filteredChannels() const;
    [[nodiscard]] std::size_t bytes() const;              // of all samples
    void makeRoom();                                      // for samples of its own
    [[nodiscard]] std::vector<Channel> filtered() const;  // of the whole series
    // Those that are looked at: of the first of a series, colours without their opacity, of vectors
    // the first component.
    [[nodiscard]] std::vector<Channel> shown() const;
};

// The picture with samples of its own, each `slope * sample + shift` in the other type.
Picture converted(const Picture& picture, SampleType type, double slope = 1, double shift = 0);

struct SliceChoice {
    int axis = 2;   // 0, 1, 2 for x, y, z: the axis that the slice stands on
    int index = 0;  // of the slice along that axis
};

// The slice as a volume of a single slice, in its place in space; its own axes keep their order.
// Throws std::runtime_error if the volume has no such slice.
Picture takeSlice(const Picture& volume, const SliceChoice& choice);

}  // namespace diffuse
