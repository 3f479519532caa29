// What a pipeline cannot be faster than: loops of nothing but its true divisions, at its
// vector size, or of nothing but its calls of exp.
#pragma once

#include <cstdint>
#include <vector>

#include "PipelineVariant.h"

namespace limits {

// `count` divisions of whole vectors of the variant, independent of each other.
void divideVectors(diffusefilt::PipelineVariant variant, int64_t count);

// `count` calls of exp, on the arguments in turn.
void callExp(const std::vector<double>& arguments, int64_t count);

}  // namespace limits
