// What the program works on: a picture or volume in memory, and one slice of a volume.
#pragma once

#include <vector>

namespace diffuse {

// The type of one sample in the file.
enum class SampleType {
    uint8,
    int8,
    uint16,
    int16,
    uint32,
    int32,
    uint64,
    int64,
    float32,
    float64
};

struct Axis {
    int extent = 0;                      // samples along the axis
    double spacing = 1;                  // between neighbouring samples, usually in millimetres
    double origin = 0;                   // of the first sample, in the same unit
    std::vector<double> direction = {};  // in the file's space: left, posterior, superior
};

struct Picture {
    std::vector<Axis> axes;  // the first is the one whose samples are neighbours in memory
    SampleType sampleType = SampleType::float64;
    std::vector<double> values;  // in the units of the file, not clipped to the sample type

    [[nodiscard]] int dimensions() const { return static_cast<int>(axes.size()); }
};

struct SliceChoice {
    int axis = 2;   // 0, 1, 2 for x, y, z: the axis that the slice stands on
    int index = 0;  // of the slice along that axis
};

// The slice as a picture of two dimensions; its axes keep their order.
// Throws std::runtime_error if the volume has no such slice.
Picture takeSlice(const Picture& volume, const SliceChoice& choice);

}  // namespace diffuse
