#include "processor.h"

#include <algorithm>
#include <diffusefilt_halide.hpp>
#include <iterator>
#include <stdexcept>

namespace diffuse {

std::string chooseInstructionSet(const std::string& wanted) {
    const std::string sets[] = {"none", "avx", "avx2"};  // in rising order, as the layer's
    const auto best = static_cast<std::ptrdiff_t>(diffusefilt_host::bestInstructionSet());
    if (wanted == "auto") return sets[best];
    if (std::find(std::begin(sets), std::end(sets), wanted) - std::begin(sets) > best) {
        throw std::runtime_error("this processor or its operating system cannot run the " + wanted +
                                 " pipelines, --instruction-set auto finds those that it can");
    }
    return wanted;
}

}  // namespace diffuse
