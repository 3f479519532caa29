// SPDX-License-Identifier: MIT
#include "peers.h"
#include "pipelines/names.h"

#define NATURAL(name) NATURAL_OF(name)
#define NATURAL_OF(name) natural_##name

#define PIPELINE(...)                                                               \
    extern "C" int NATURAL(DIFFUSEFILT_NAME(__VA_ARGS__))(halide_buffer_t*, double, \
                                                          halide_buffer_t*);
#include "pipelines/pipelines.def"

namespace peers {

Step naturalHalide(std::string_view pipeline) {
    static constexpr struct {
        std::string_view pipeline;
        Step step;
    } all[] = {
#define PIPELINE(...) \
    {DIFFUSEFILT_TEXT(DIFFUSEFILT_NAME(__VA_ARGS__)), NATURAL(DIFFUSEFILT_NAME(__VA_ARGS__))},
#include "pipelines/pipelines.def"
    };
    for (const auto& row : all) {
        if (row.pipeline == pipeline) return row.step;
    }
    return nullptr;
}

}  // namespace peers
