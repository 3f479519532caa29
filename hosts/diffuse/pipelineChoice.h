// The axes of a pipeline that a user chooses, in the words of the exported names.
#pragma once

#include <string>

namespace diffuse {

struct PipelineChoice {
    std::string connectivity = "minimal";
    std::string conduction = "quadratic";
    std::string elementType = "float64";
    std::string instructionSet = "none";
};

}  // namespace diffuse
