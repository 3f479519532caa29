// A dense image or volume from coordinate 0, for tests that set single elements.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <vector>

#include "reference/Reference.h"
#include "support/HalideBuffer.h"
#include "support/Pipelines.h"

namespace support {

template <class T>
struct SmallImage {
    int dimensions;
    std::array<int, 3> extent;
    std::vector<T> elements;

    // A plane where `depth` is 0.
    SmallImage(int width, int height, int depth, T value)
        : dimensions(depth == 0 ? 2 : 3),
          extent{width, height, depth == 0 ? 1 : depth},
          elements(static_cast<std::size_t>(width) * extent[1] * extent[2], value) {}

    T& operator()(int x, int y, int z) {
        return elements[static_cast<std::size_t>(x + extent[0] * (y + extent[1] * z))];
    }

    reference::View<T> view() {
        const auto [w, h, d] = extent;
        return {elements.data(), dimensions, {0, 0, 0}, {w, h, d}, {1, w, w * h}};
    }
};

// What the pipeline makes of the image, on the same elements.
template <class T>
SmallImage<T> filtered(const Pipeline& pipeline, SmallImage<T> image, double gradTIn) {
    SmallImage<T> result = image;
    EXPECT_EQ(pipeline.entry(HalideBuffer(image.view()), gradTIn, HalideBuffer(result.view())), 0);
    return result;
}

}  // namespace support
