// Random calls that a pipeline must accept: shapes, threshold and image content, all
// from one seed, the same on every platform.
#pragma once

#include <cstdint>
#include <string>

#include "reference/Reference.h"
#include "support/GuardedBuffer.h"

namespace support {

struct Shape {
    int dimensions;
    int32_t min[3];
    int32_t extent[3];
    int32_t stride[3];
};

// Where the elements of a shape lie: the lowest one, relative to the element at the min
// coordinates, and the count of places from the lowest to the highest, gaps included.
struct Span {
    int64_t lowest;
    int64_t count;
};

Span spanOf(const Shape& shape);

template <class T>
reference::View<T> viewOf(const Shape& shape, T* lowest) {
    reference::View<T> view = {lowest - spanOf(shape).lowest, shape.dimensions, {}, {}, {}};
    for (int d = 0; d < shape.dimensions; ++d) {
        view.min[d] = shape.min[d];
        view.extent[d] = shape.extent[d];
        view.stride[d] = shape.stride[d];
    }
    return view;
}

enum class Content { smooth, noise, pulses, patches, integers, huge, subnormal };

struct RandomCall {
    uint64_t seed;
    Shape input;
    Shape output;
    bool inLine;  // the path: the input is no wider than a vector
    double gradTIn;
    Content content;
    int oddPercent;  // share of NaN, infinities and -0.0 sprinkled over the content
    Placement inputPlacement;
    Placement outputPlacement;
};

RandomCall makeRandomCall(uint64_t seed, int dimensions, int lanes);

// Fills the input's memory, gaps included.
template <class T>
void fillContent(const RandomCall& call, T* lowest, int64_t count);

std::string describe(const RandomCall& call);

}  // namespace support
