// SPDX-License-Identifier: MIT
// What a pipeline on one of its two paths means for the arithmetic: the types, the
// order of the sums and the choices that the instruction set makes.
#pragma once

#include "arithmetic/lanes.h"
#include "pipelines/axes.h"

namespace diffusefilt {

// The two ways of running a call: vectors in parallel tasks, or scalars on the
// caller's thread.
enum class Path { parallel, inLine };

template <PipelineVariant variant>
using ElementOf = std::conditional_t<variant.elementBits() == 32, float, double>;

template <PipelineVariant pipeline, Path pathOfForm>
struct Form {
    static constexpr PipelineVariant variant = pipeline;
    static constexpr Path path = pathOfForm;
    static constexpr InstructionSet set = variant.instructionSet;
    static constexpr SetRules rules = rulesOf(set);
    static constexpr bool ownExponentialInLine =
        path == Path::inLine && variant.hasOwnExponential();
    static constexpr SumOrder order =
        ownExponentialInLine ? rules.sumsOfOwnExponentialInLine : rules.sums;
    static constexpr int lanes = path == Path::parallel ? variant.lanes() : 1;

    using Element = ElementOf<variant>;
    using Value = Lanes<Element, lanes>;
};

}  // namespace diffusefilt
