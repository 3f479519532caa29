// The paths of one row of the table, pasted in the file of its instruction set: the
// parallel body, a local function under its own name, and the specialisations that the
// frame calls. Those are strong symbols whose mangled names carry the instruction set, so
// that the linker can never take one set's code for another's.
#pragma once

#include "frame/pipelineNames.h"
#include "schedules/inLine.h"
#include "schedules/paths.h"
#include "schedules/tasks.h"

namespace diffusefilt {

// The loop runs over the output's last dimension.
template <PipelineVariant variant>
[[gnu::always_inline]] inline int runParallel(halide_buffer_t* input, double gradTIn,
                                              halide_buffer_t* output, halide_task_t body) {
    Closure<variant> record;
    fillClosure<variant>(record, input, gradTIn, output);
    const halide_dimension_t& loop = output->dim[variant.dimensions - 1];
    return halide_do_par_for(nullptr, body, loop.min, loop.extent,
                             reinterpret_cast<uint8_t*>(&record));
}

template <PipelineVariant variant>
[[gnu::always_inline]] inline int runInLine(const halide_buffer_t* input, double gradTIn,
                                            const halide_buffer_t* output) noexcept {
    using T = typename InLine<variant>::T;
    InLine<variant>(input, static_cast<T>(gradTIn), output).run();
    return 0;
}

}  // namespace diffusefilt

#define DIFFUSEFILT_LOOP_2 "diffusefilt2.s0.y"
#define DIFFUSEFILT_LOOP_3 "diffusefilt3.s0.z"

#define DIFFUSEFILT_PATHS(dimensions, ...)                                   \
    DIFFUSEFILT_EXPANDED_PATHS(DIFFUSEFILT_NAME(dimensions, __VA_ARGS__),    \
                               DIFFUSEFILT_VARIANT(dimensions, __VA_ARGS__), \
                               DIFFUSEFILT_LOOP_##dimensions)
#define DIFFUSEFILT_EXPANDED_PATHS(...) DIFFUSEFILT_PATHS_OF(__VA_ARGS__)

#define DIFFUSEFILT_PATHS_OF(name, variant, loop)                                         \
    static int body_##name(void*, int index,                                              \
                           uint8_t* closure) noexcept __asm__("par_for_" #name "_" loop); \
    static int body_##name(void*, int index, uint8_t* closure) noexcept {                 \
        return diffusefilt::runTask<variant>(index, closure);                             \
    }                                                                                     \
    template <>                                                                           \
    int diffusefilt::parallelPath<variant>(halide_buffer_t * input, double gradTIn,       \
                                           halide_buffer_t* output) {                     \
        return diffusefilt::runParallel<variant>(input, gradTIn, output, &body_##name);   \
    }                                                                                     \
    template <>                                                                           \
    int diffusefilt::inLinePath<variant>(halide_buffer_t * input, double gradTIn,         \
                                         halide_buffer_t* output) {                       \
        return diffusefilt::runInLine<variant>(input, gradTIn, output);                   \
    }
