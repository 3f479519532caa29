// SPDX-License-Identifier: MIT
// What a pipeline of the list becomes in the file of its instruction set: the parallel body,
// a local function under its own name, and the two functions that the frame calls. Those
// are strong symbols whose mangled names carry the instruction set, so that the linker can
// never take one set's code for another's.
#pragma once

#if defined(__FAST_MATH__) || defined(__ASSOCIATIVE_MATH__) || defined(__RECIPROCAL_MATH__) || \
    defined(__NO_SIGNED_ZEROS__) || __FINITE_MATH_ONLY__
#error "results are defined to the last bit: no flag of the fast-math family"
#endif

#include "pipelines/names.h"
#include "schedules/inLine.h"
#include "schedules/paths.h"
#include "schedules/tasks.h"

// Of the other sets, nothing.
#define PIPELINE(...)

#define DIFFUSEFILT_PATHS(dimensions, ...)                                   \
    DIFFUSEFILT_EXPANDED_PATHS(DIFFUSEFILT_NAME(dimensions, __VA_ARGS__),    \
                               DIFFUSEFILT_VARIANT(dimensions, __VA_ARGS__), \
                               DIFFUSEFILT_LOOP_##dimensions)
#define DIFFUSEFILT_EXPANDED_PATHS(...) DIFFUSEFILT_PATHS_OF(__VA_ARGS__)

#define DIFFUSEFILT_PATHS_OF(name, variant, loop)                                              \
    static_assert((variant).instructionSet == diffusefilt::compiledFor,                        \
                  "compiled with the flags of another set: see cmake/library.cmake");          \
    static int body_##name(void*, int index,                                                   \
                           uint8_t* closure) noexcept __asm__("par_for_" #name "_" loop);      \
    static int body_##name(void*, int index, uint8_t* closure) noexcept {                      \
        return diffusefilt::runTask<variant>(index, closure);                                  \
    }                                                                                          \
    template <>                                                                                \
    halide_task_t diffusefilt::prepareLoop<variant>(uint8_t * record, halide_buffer_t * input, \
                                                    double gradTIn,                            \
                                                    halide_buffer_t* output) noexcept {        \
        static_assert(sizeof(Closure<variant>) <= closureCapacity);                            \
        fillClosure<variant>(*reinterpret_cast<Closure<variant>*>(record), input, gradTIn,     \
                             output);                                                          \
        return &body_##name;                                                                   \
    }                                                                                          \
    template <>                                                                                \
    void diffusefilt::filterInLine<variant>(const halide_buffer_t* input, double gradTIn,      \
                                            const halide_buffer_t* output) noexcept {          \
        InLine<variant>(input, static_cast<ElementOf<(variant)>>(gradTIn), output).run();      \
    }
