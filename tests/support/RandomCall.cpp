// SPDX-License-Identifier: MIT
#include "RandomCall.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <utility>

#include "RandomNumbers.h"

namespace support {
namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

// Extents of dimensions 1 and 2: often 1 or 2, seldom above 6.
int32_t smallExtent(RandomNumbers& random) {
    if (random.chance(40)) return random.between(1, 2);
    return random.chance(15) ? random.between(1, 12) : random.between(1, 6);
}

// Places the output's dimension against the input's 0 .. extent - 1.
void placeOutput(RandomNumbers& random, int32_t inputExtent, int32_t& min, int32_t& extent) {
    switch (random.between(0, 7)) {
        case 0:  // the input itself
        case 1:
            min = 0;
            extent = inputExtent;
            break;
        case 2:  // a part of it
            extent = random.between(1, inputExtent);
            min = random.between(0, inputExtent - extent);
            break;
        case 3:  // around it
            min = -random.between(1, 5);
            extent = inputExtent + random.between(1, 8);
            break;
        case 4:  // wholly before it
            extent = random.between(1, inputExtent);
            min = -extent - random.between(0, 3);
            break;
        case 5:  // wholly behind it
            extent = random.between(1, inputExtent);
            min = inputExtent + random.between(0, 3);
            break;
        default:  // across it
            extent = random.between(1, inputExtent + 2);
            min = random.between(-extent, inputExtent);
    }
    if (random.chance(2)) min += random.chance(50) ? 1000000000 : -1000000000;
}

// The first and the last coordinate of the input that a call needs.
std::pair<int32_t, int32_t> neededAlong(int d, const RandomCall& call) {
    const auto clamped = [&](int64_t v) {
        return int32_t(std::clamp(v, int64_t{0}, int64_t{call.input.extent[d]} - 1));
    };
    const int64_t first = call.output.min[d];
    return {clamped(first - 1), clamped(first + call.output.extent[d])};
}

void chooseExtents(RandomNumbers& random, int lanes, RandomCall& call) {
    Shape& in = call.input;
    Shape& out = call.output;
    call.inLine = random.chance(40);
    for (int d = 0; d < in.dimensions; ++d) {
        if (d > 0) {
            in.extent[d] = smallExtent(random);
        } else {
            in.extent[0] =
                call.inLine ? random.between(1, lanes) : random.between(lanes + 1, 3 * lanes + 5);
        }
        placeOutput(random, in.extent[d], out.min[d], out.extent[d]);
        const bool wholeVectors = d == 0 && !call.inLine;
        if (wholeVectors) {
            out.extent[0] = std::max(out.extent[0], lanes);
        } else if (random.chance(2)) {
            out.extent[d] = 0;
        }
        if (random.chance(60)) continue;
        const auto [first, last] = neededAlong(d, call);
        in.min[d] = random.between(last - in.extent[d] + 1, first);
    }
}

// Rows and planes with gaps, in either direction, sometimes with the planes between the
// rows; those of the input may also coincide.
void chooseStrides(RandomNumbers& random, bool mayCoincide, Shape& shape) {
    const bool planesBetweenRows = shape.dimensions == 3 && random.chance(20);
    int32_t reach = std::max(shape.extent[0], 1);
    shape.stride[0] = 1;
    for (int i = 1; i < shape.dimensions; ++i) {
        const int d = planesBetweenRows ? shape.dimensions - i : i;
        const int32_t pitch = reach + (random.chance(50) ? random.between(1, 4) : 0);
        shape.stride[d] = random.chance(25) ? -pitch : pitch;
        if (mayCoincide && random.chance(8)) shape.stride[d] = random.between(-2, 2) / 2;
        reach = pitch * std::max(shape.extent[d], 1);
    }
}

// Mostly such that the differences of the content lie around the threshold.
double chooseThreshold(RandomNumbers& random, Content content) {
    if (random.chance(75)) {
        const bool wide = content == Content::noise || content == Content::pulses;
        const double mantissa = 0.5 + random.unit();
        const double threshold =
            std::ldexp(mantissa, wide ? random.between(3, 9) : random.between(-3, 6));
        return random.chance(10) ? -threshold : threshold;
    }
    static constexpr double odd[] = {0.0,   -0.0,   nan,    infinity, -infinity, 1e-50,
                                     1e-39, -1e-39, 3e-39,  1e39,     1e-300,    5e-324,
                                     1e300, 1e-4,   -1e-50, 1e5,      3.4e38,    1.7e308};
    return random.oneOf(odd);
}

// The element at memory index `i` of a content with no odd values.
template <class T>
T plainValue(Content content, RandomNumbers& random, int64_t i) {
    using Limits = std::numeric_limits<T>;
    switch (content) {
        case Content::smooth:
            return static_cast<T>(100 + 3.7 * static_cast<double>(i % 9) + random.unit());
        case Content::noise:
            return static_cast<T>(255 * random.unit());
        case Content::pulses:  // on zeros, where the last bit of a flux shows
            return random.chance(80) ? T(0) : static_cast<T>(255 * random.unit());
        case Content::patches:
            return static_cast<T>((i / 4) % 3 * 20);
        case Content::integers:
            return static_cast<T>(random.between(-3, 3));
        case Content::huge:
            return Limits::max() * static_cast<T>(2 * random.unit() - 1);
        case Content::subnormal:
            break;
    }
    return Limits::denorm_min() * static_cast<T>(random.between(-99999, 99999));
}

template <class T>
T oddValue(RandomNumbers& random) {
    const double odd[] = {nan, infinity, -infinity, -0.0, -0.0, 0.0};
    return static_cast<T>(random.oneOf(odd));
}

}  // namespace

Span spanOf(const Shape& shape) {
    int64_t lowest = 0;
    int64_t highest = 0;
    for (int d = 0; d < shape.dimensions; ++d) {
        if (shape.extent[d] == 0) return {0, 0};
        const int64_t reach = int64_t{shape.extent[d] - 1} * shape.stride[d];
        (reach < 0 ? lowest : highest) += reach;
    }
    return {lowest, highest - lowest + 1};
}

Shape neededOf(const RandomCall& call) {
    Shape needed = call.input;
    for (int d = 0; d < needed.dimensions; ++d) {
        const auto [first, last] = neededAlong(d, call);
        needed.min[d] = first;
        needed.extent[d] = last - first + 1;
    }
    return needed;
}

RandomCall makeRandomCall(uint64_t seed, int dimensions, int lanes) {
    RandomNumbers random(seed);
    RandomCall call = {};
    call.seed = seed;
    call.input.dimensions = call.output.dimensions = dimensions;
    chooseExtents(random, lanes, call);
    chooseStrides(random, true, call.input);
    chooseStrides(random, false, call.output);
    call.content = static_cast<Content>(random.between(0, 6));
    call.gradTIn = chooseThreshold(random, call.content);
    call.oddPercent = random.chance(25) ? random.between(1, 12) : 0;
    call.inputPlacement = static_cast<Placement>(random.between(0, placements - 1));
    call.outputPlacement = static_cast<Placement>(random.between(0, placements - 1));
    return call;
}

template <class T>
void fillContent(const RandomCall& call, T* lowest, int64_t count) {
    RandomNumbers random(call.seed + 1);
    for (int64_t i = 0; i < count; ++i) {
        const bool odd = call.oddPercent > 0 && random.chance(call.oddPercent);
        lowest[i] = odd ? oddValue<T>(random) : plainValue<T>(call.content, random, i);
    }
}

template void fillContent(const RandomCall&, float*, int64_t);
template void fillContent(const RandomCall&, double*, int64_t);

}  // namespace support
