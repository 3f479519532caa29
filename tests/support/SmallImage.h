// SPDX-License-Identifier: MIT
// What a pipeline makes of an image of its own memory: a dense one from coordinate 0, whose
// elements a test sets one by one, or that of a random call.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <vector>

#include "reference/Reference.h"
#include "support/HalideBuffer.h"
#include "support/Pipelines.h"
#include "support/RandomCall.h"

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
        return {{dimensions, {0, 0, 0}, {w, h, d}, {1, w, w * h}}, elements.data()};
    }
};

// What the pipeline makes of the image, on the same elements.
template <class T>
SmallImage<T> filtered(const Pipeline& pipeline, SmallImage<T> image, double gradTIn) {
    SmallImage<T> result = image;
    EXPECT_EQ(pipeline.entry(HalideBuffer(image.view()), gradTIn, HalideBuffer(result.view())), 0);
    return result;
}

// The memory of the call's output, with zeros between the elements.
template <class T>
std::vector<T> outputOf(const Pipeline& pipeline, const RandomCall& call) {
    std::vector<T> input(static_cast<std::size_t>(spanOf(call.input).count));
    std::vector<T> output(static_cast<std::size_t>(spanOf(call.output).count));
    fillContent(call, input.data(), std::ssize(input));
    const auto from = viewOf<const T>(call.input, input.data());
    const auto to = viewOf(call.output, output.data());
    EXPECT_EQ(pipeline.entry(HalideBuffer(from), call.gradTIn, HalideBuffer(to)), 0);
    return output;
}

}  // namespace support
