// SPDX-License-Identifier: MIT
#include "frame/regions.h"

#include "arithmetic/boundary.h"

namespace diffusefilt {

bool runsInParallel(const PipelineVariant& variant, const halide_buffer_t& input) {
    return input.dim[0].extent > variant.lanes();
}

Regions regionsOf(const PipelineVariant& variant, const halide_buffer_t& input,
                  const halide_buffer_t& output) {
    Regions regions{};
    for (int d = 0; d < variant.dimensions; ++d) {
        const halide_dimension_t& out = output.dim[d];
        const int32_t end = plus(out.min, out.extent);
        regions.outputFirst[d] = out.min;
        regions.outputLast[d] = minus(end, 1);
        if (d == 0 && runsInParallel(variant, input)) {
            // A row narrower than a vector is touched over one that ends where it ends.
            regions.outputFirst[0] = minus(end, larger(out.extent, variant.lanes()));
        }
        const int32_t extent = input.dim[d].extent;
        regions.inputFirst[d] = clampCoord(minus(regions.outputFirst[d], 1), extent);
        regions.inputLast[d] = clampCoord(plus(regions.outputLast[d], 1), extent);
    }
    return regions;
}

}  // namespace diffusefilt
