#include "picture.h"

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

}  // namespace

Picture takeSlice(const Picture& volume, const SliceChoice& choice) {
    requireSlice(volume, choice);
    const std::size_t strides[] = {
        1, static_cast<std::size_t>(volume.axes[0].extent),
        static_cast<std::size_t>(volume.axes[0].extent) * volume.axes[1].extent};
    const int column = choice.axis == 0 ? 1 : 0;
    const int row = choice.axis == 2 ? 1 : 2;

    Picture slice{{volume.axes[column], volume.axes[row]}, volume.sampleType, {}};
    slice.values.reserve(static_cast<std::size_t>(slice.axes[0].extent) * slice.axes[1].extent);
    const std::size_t start = choice.index * strides[choice.axis];
    for (int j = 0; j < slice.axes[1].extent; ++j) {
        for (int i = 0; i < slice.axes[0].extent; ++i) {
            slice.values.push_back(volume.values[start + i * strides[column] + j * strides[row]]);
        }
    }
    return slice;
}

}  // namespace diffuse
