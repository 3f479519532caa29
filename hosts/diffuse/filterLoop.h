// Repeating the library's step.
#pragma once

#include "picture.h"
#include "pipelineTable.h"

namespace diffuse {

// Replaces the values by those after `iterations` steps, computed in the element type of the
// pipeline. `threshold` is in the units of the values.
// Throws std::runtime_error with the library's words if a step fails.
void filter(const Pipeline& pipeline, double threshold, int iterations, Picture& picture);

}  // namespace diffuse
