// Calls the pipelines named on the command line under callgrind, and has it write what one
// call of each executes into a file of its own, under the pipeline's name.
#include <HalideRuntime.h>
#include <valgrind/callgrind.h>

#include <cstdio>

#include "Picture.h"
#include "support/Pipelines.h"
#include "support/Threads.h"

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        const support::Pipeline* const pipeline = support::findPipeline(argv[i]);
        if (pipeline == nullptr) {
            std::fprintf(stderr, "counted: the library has no %s\n", argv[i]);
            return 2;
        }
        const diffusefilt::PipelineVariant variant = pipeline->variant;
        Picture picture(variant.elementType,
                        variant.dimensions == 2 ? Extents{1024, 128} : Extents{256, 32, 16});
        halide_buffer_t in = picture.input();
        halide_buffer_t out = picture.output();
        support::withThreads(1, [&] {
            pipeline->entry(&in, threshold, &out);
            CALLGRIND_START_INSTRUMENTATION;
            CALLGRIND_ZERO_STATS;
            pipeline->entry(&in, threshold, &out);
            CALLGRIND_DUMP_STATS_AT(pipeline->name);
            CALLGRIND_STOP_INSTRUMENTATION;
        });
    }
    return 0;
}
