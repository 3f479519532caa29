#include "pipelineTable.h"

#include <stdexcept>

#include "diffusefilt_halide.h"
#include "frame/pipelineNames.h"

namespace diffuse {

namespace {

#define PIPELINE(...)                                                                   \
    {DIFFUSEFILT_TEXT(DIFFUSEFILT_NAME(__VA_ARGS__)), DIFFUSEFILT_VARIANT(__VA_ARGS__), \
     DIFFUSEFILT_NAME(__VA_ARGS__)},
const Pipeline pipelines[] = {
#include "frame/pipelines.def"
};

}  // namespace

const Pipeline& findPipeline(int dimensions, const PipelineChoice& choice) {
    const std::string name = "diffusefilt" + std::to_string(dimensions) + "_" +
                             choice.connectivity + "_" + choice.conduction + "_" +
                             choice.elementType + "_" + choice.instructionSet;
    for (const Pipeline& pipeline : pipelines) {
        if (name == pipeline.name) return pipeline;
    }
    throw std::runtime_error("the library has no pipeline " + name);
}

}  // namespace diffuse
