#include "frame/entry.h"

#include "frame/boundsQuery.h"
#include "frame/checkLadder.h"
#include "frame/regions.h"

namespace diffusefilt {

int runPipeline(const Pipeline& pipeline, halide_buffer_t* input, double gradTIn,
                halide_buffer_t* output) {
    if (const Fault fault = checkArguments(pipeline, input, output)) return *fault;
    const Regions regions = regionsOf(pipeline, *input, *output);
    if (answerBoundsQuery(pipeline, regions, *input, *output)) return 0;
    if (const Fault fault = checkBuffers(pipeline, regions, *input, *output)) return *fault;
    if (runsInParallel(pipeline, *input)) {
        return filterInParallel(pipeline.prepareLoop, pipeline.dimensions(), input, gradTIn,
                                output);
    }
    pipeline.filterInLine(input, gradTIn, output);
    return 0;
}

}  // namespace diffusefilt
