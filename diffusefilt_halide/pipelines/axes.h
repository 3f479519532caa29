// SPDX-License-Identifier: MIT
// The five axes of the library and a point on them: the words that the frame, the schedules
// and the arithmetic share. What the fifth axis means stands in setRules.h.
#pragma once

#include "pipelines/setRules.h"

namespace diffusefilt {

enum class Connectivity { minimal, maximal };
enum class Conduction { quadratic, exponential };
enum class ElementType { float32, float64 };

// One pipeline. Usable as a template argument, so that every function made for
// a variant carries its instruction set in its mangled name.
struct PipelineVariant {
    int dimensions;
    Connectivity connectivity;
    Conduction conduction;
    ElementType elementType;
    InstructionSet instructionSet;

    // Always inlined, as these run in code for every instruction set.
    [[gnu::always_inline]] constexpr int elementBits() const {
        return elementType == ElementType::float32 ? 32 : 64;
    }
    // L, the elements of one vector: it decides the path of a call and the cut of its rows.
    [[gnu::always_inline]] constexpr int lanes() const {
        return rulesOf(instructionSet).vectorBytes * 8 / elementBits();
    }
    // Planes of the input that an element reads.
    [[gnu::always_inline]] constexpr int planes() const { return dimensions == 3 ? 3 : 1; }

    // Whether the exponential is the library's own, not libm's.
    [[gnu::always_inline]] constexpr bool hasOwnExponential() const {
        return conduction == Conduction::exponential && elementType == ElementType::float32;
    }
};

// A point of the list of pipelines: one that has a meaning.
template <PipelineVariant variant>
constexpr PipelineVariant listed() {
    static_assert(variant.dimensions == 2 || variant.dimensions == 3,
                  "this number of dimensions has no loop: see schedules/tasks.h and inLine.h");
    static_assert(variant.elementBits() == 32 || variant.elementType == ElementType::float64,
                  "this element type has no size: see elementBits and arithmetic/form.h");
    static_assert(rulesOf(variant.instructionSet).vectorBytes > 0,
                  "this instruction set has no rules: write its block in pipelines/setRules.h");
    return variant;
}

}  // namespace diffusefilt
