// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cmath>

#include "peers.h"

namespace peers {
namespace {

using diffusefilt::Conduction;
using diffusefilt::Connectivity;
using diffusefilt::PipelineVariant;

template <class T, Conduction conduction>
T flux(T d, T inverse) {
    const T t = d * inverse;
    return d * (conduction == Conduction::quadratic ? 1 / (t * t + 1) : std::exp(-(t * t)));
}

// The offsets are constants once the compiler has unrolled the loops over them.
template <class T, int dimensions, int reach, Conduction conduction>
void filterRow(const T* const (&rows)[3][3], int64_t width, T inverse, T* out) {
    constexpr T weights[] = {1, T(1.0 / 2), T(1.0 / 3)};
    constexpr T rate = T(reach == 1 ? 0.5 / dimensions : dimensions == 3 ? 1.0 / 26 : 1.0 / 8);
    for (int64_t x = 0; x < width; ++x) {
        const int64_t columns[3] = {std::max<int64_t>(x - 1, 0), x, std::min(x + 1, width - 1)};
        const T centre = rows[1][1][x];
        T sums[3] = {};
#pragma GCC unroll 3
        for (int dz = dimensions == 3 ? -1 : 0; dz <= (dimensions == 3 ? 1 : 0); ++dz) {
#pragma GCC unroll 3
            for (int dy = -1; dy <= 1; ++dy) {
#pragma GCC unroll 3
                for (int dx = -1; dx <= 1; ++dx) {
                    const int distance = dx * dx + dy * dy + dz * dz;
                    if (distance == 0 || distance > reach) continue;
                    const T neighbour = rows[1 + dz][1 + dy][columns[1 + dx]];
                    sums[distance - 1] += flux<T, conduction>(neighbour - centre, inverse);
                }
            }
        }
        out[x] = centre + rate * (sums[0] + weights[1] * sums[1] + weights[2] * sums[2]);
    }
}

template <class T, int dimensions, int reach, Conduction conduction>
void filter(const halide_buffer_t& input, T threshold, const halide_buffer_t& output) {
    const auto* const in = reinterpret_cast<const T*>(input.host);
    auto* const out = reinterpret_cast<T*>(output.host);
    const halide_dimension_t plane = {0, 1, 0};
    const halide_dimension_t& zs = dimensions == 3 ? input.dim[2] : plane;
    const halide_dimension_t& outZs = dimensions == 3 ? output.dim[2] : plane;
    const halide_dimension_t& ys = input.dim[1];
    const T* rows[3][3];
    for (int z = 0; z < zs.extent; ++z) {
        for (int y = 0; y < ys.extent; ++y) {
            for (int dz = -1; dz <= 1; ++dz) {
                for (int dy = -1; dy <= 1; ++dy) {
                    const int64_t fromZ = std::clamp(z + dz, 0, zs.extent - 1);
                    const int64_t fromY = std::clamp(y + dy, 0, ys.extent - 1);
                    rows[1 + dz][1 + dy] = in + fromZ * zs.stride + fromY * ys.stride;
                }
            }
            T* const outRow = out + int64_t{z} * outZs.stride + int64_t{y} * output.dim[1].stride;
            filterRow<T, dimensions, reach, conduction>(rows, input.dim[0].extent, 1 / threshold,
                                                        outRow);
        }
    }
}

template <class T, int dimensions, int reach>
void filterOfShape(Conduction conduction, const halide_buffer_t& input, double threshold,
                   const halide_buffer_t& output) {
    if (conduction == Conduction::quadratic) {
        filter<T, dimensions, reach, Conduction::quadratic>(input, T(threshold), output);
    } else {
        filter<T, dimensions, reach, Conduction::exponential>(input, T(threshold), output);
    }
}

template <class T>
void filterOfType(PipelineVariant variant, const halide_buffer_t& input, double threshold,
                  const halide_buffer_t& output) {
    const bool minimal = variant.connectivity == Connectivity::minimal;
    const auto shape = variant.dimensions == 2
                           ? (minimal ? filterOfShape<T, 2, 1> : filterOfShape<T, 2, 2>)
                           : (minimal ? filterOfShape<T, 3, 1> : filterOfShape<T, 3, 3>);
    shape(variant.conduction, input, threshold, output);
}

}  // namespace

void scalarLoop(PipelineVariant variant, const halide_buffer_t& input, double threshold,
                const halide_buffer_t& output) {
    const bool isDouble = variant.elementBits() == 64;
    (isDouble ? filterOfType<double> : filterOfType<float>)(variant, input, threshold, output);
}

}  // namespace peers
