// SPDX-License-Identifier: MIT
// The exported functions: for each pipeline of the list the entry P, P_argv and P_metadata.

// Declared visible, so that P_argv reaches P through its dynamic symbol and whoever
// interposes P catches the calls of both.
#pragma GCC visibility push(default)
#include "diffusefilt_halide.h"
#pragma GCC visibility pop

#include "frame/entry.h"
#include "frame/metadata.h"
#include "pipelines/names.h"

#define PIPELINE(...) \
    DIFFUSEFILT_EXPORT(DIFFUSEFILT_NAME(__VA_ARGS__), DIFFUSEFILT_VARIANT(__VA_ARGS__))
#define DIFFUSEFILT_EXPORT(...) DIFFUSEFILT_EXPORT_OF(__VA_ARGS__)

#define DIFFUSEFILT_EXPORT_OF(P, variant)                                                       \
    static constexpr diffusefilt::PipelineVariant P##_variant = variant;                        \
    static constexpr diffusefilt::Paths P##_paths{&diffusefilt::prepareLoop<variant>,           \
                                                  &diffusefilt::filterInLine<variant>};         \
    static constinit const diffusefilt::Metadata P##_record{#P, P##_variant};                   \
                                                                                                \
    int P(halide_buffer_t* keyimForType, double gradTIn, halide_buffer_t* output) {             \
        return diffusefilt::runPipeline(P##_variant, P##_paths, keyimForType, gradTIn, output); \
    }                                                                                           \
    int P##_argv(void** args) {                                                                 \
        const auto keyimForType = static_cast<halide_buffer_t*>(args[0]);                       \
        const double gradTIn = *static_cast<const double*>(args[1]);                            \
        return P(keyimForType, gradTIn, static_cast<halide_buffer_t*>(args[2]));                \
    }                                                                                           \
    const halide_filter_metadata_t* P##_metadata() {                                            \
        return &P##_record.record;                                                              \
    }

#include "pipelines/pipelines.def"
