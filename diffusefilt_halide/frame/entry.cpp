#include "frame/entry.h"

#include "frame/boundsQuery.h"
#include "frame/checkLadder.h"
#include "frame/regions.h"

namespace diffusefilt {

int runPipeline(const PipelineVariant& variant, const Paths& paths, halide_buffer_t* input,
                double gradTIn, halide_buffer_t* output) {
    if (const Fault fault = checkArguments(variant, input, output)) return *fault;
    const Regions regions = regionsOf(variant, *input, *output);
    if (answerBoundsQuery(variant, regions, *input, *output)) return 0;
    if (const Fault fault = checkBuffers(variant, regions, *input, *output)) return *fault;
    if (runsInParallel(variant, *input)) {
        return filterInParallel(paths.prepareLoop, variant.dimensions, input, gradTIn, output);
    }
    paths.filterInLine(input, gradTIn, output);
    return 0;
}

}  // namespace diffusefilt
