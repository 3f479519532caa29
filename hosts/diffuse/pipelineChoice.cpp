#include "pipelineChoice.h"

#include <stdexcept>
#include <string>

namespace diffuse {

diffusefilt_host::Axes axesOf(const PipelineChoice& choice) {
    const auto best = diffusefilt_host::bestInstructionSet();
    const auto set = choice.instructionSet.value_or(best);
    if (set > best) {
        throw std::runtime_error(std::string("this processor or its operating system cannot run "
                                             "the ") +
                                 wordOf(set) +
                                 " pipelines, --instruction-set auto finds those that it can");
    }
    return {0, choice.connectivity, choice.conduction, choice.elementType, set};
}

}  // namespace diffuse
