// SPDX-License-Identifier: MIT
// Random calls that a pipeline must accept: shapes, threshold and image content, all
// from one seed, the same on every platform.
#pragma once

#include <cstdint>

#include "reference/Reference.h"
#include "support/GuardedBuffer.h"

namespace support {

using reference::Shape;

// Where the elements of a shape lie: the lowest one, relative to the element at the min
// coordinates, and the count of places from the lowest to the highest, gaps included.
struct Span {
    int64_t lowest;
    int64_t count;
};

Span spanOf(const Shape& shape);

template <class T>
reference::View<T> viewOf(const Shape& shape, T* lowest) {
    return {shape, lowest - spanOf(shape).lowest};
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

// The part of the input that the call needs.
Shape neededOf(const RandomCall& call);

RandomCall makeRandomCall(uint64_t seed, int dimensions, int lanes);

// Fills the input's memory, gaps included.
template <class T>
void fillContent(const RandomCall& call, T* lowest, int64_t count);

}  // namespace support
