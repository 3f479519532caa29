// SPDX-License-Identifier: MIT
#include "frame/entry.h"

#include "frame/boundsQuery.h"
#include "frame/checkLadder.h"
#include "frame/regions.h"

namespace diffusefilt {
namespace {

// Runs one task for each row (plane) of the output and returns the loop's result as it is. Not
// element code: an exception of a host's hook passes through.
int filterInParallel(const Paths& paths, int dimensions, halide_buffer_t* input, double gradTIn,
                     halide_buffer_t* output) {
    alignas(int64_t) uint8_t record[closureCapacity];
    const halide_task_t body = paths.prepareLoop(record, input, gradTIn, output);
    const halide_dimension_t& loop = output->dim[dimensions - 1];
    return halide_do_par_for(nullptr, body, loop.min, loop.extent, record);
}

}  // namespace

int runPipeline(const PipelineVariant& variant, const Paths& paths, halide_buffer_t* input,
                double gradTIn, halide_buffer_t* output) {
    if (const Fault fault = checkArguments(variant, input, output)) return *fault;
    const Regions regions = regionsOf(variant, *input, *output);
    if (answerBoundsQuery(variant, regions, *input, *output)) return 0;
    if (const Fault fault = checkBuffers(variant, regions, *input, *output)) return *fault;
    if (runsInParallel(variant, *input)) {
        return filterInParallel(paths, variant.dimensions, input, gradTIn, output);
    }
    paths.filterInLine(input, gradTIn, output);
    return 0;
}

}  // namespace diffusefilt
