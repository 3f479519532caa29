// What a pipeline on one of its two paths means for the arithmetic: the types, the
// order of the sums and the choices that the instruction set makes.
#pragma once

#include "PipelineVariant.h"
#include "arithmetic/lanes.h"

namespace diffusefilt {

// The two ways of running a call: vectors in parallel tasks, or scalars on the
// caller's thread.
enum class Path { parallel, inLine };

// The order in which the fluxes of an element are added; the sums themselves stand in
// sums2.h and sums3.h.
enum class SumOrder {
    northLast,    // none: plain chains, the flux of north (F5) held back to the end
    pairTree,     // avx: pairs first
    fusedChain,   // avx2: chains of fused steps
    inLineChain,  // plain chains of their own, see sumOrderOf
};

// Whether the exponential is the library's own, not libm's.
constexpr bool hasInlineExponential(PipelineVariant variant) {
    return variant.conduction == Conduction::exponential &&
           variant.elementType == ElementType::float32;
}

// The instruction set decides the order, with one exception: in line, the exponential
// float32 pipelines of none and avx sum in chains of their own, so that an element of
// theirs can differ in its last bit between the two paths.
constexpr SumOrder sumOrderOf(PipelineVariant variant, Path path) {
    if (variant.instructionSet == InstructionSet::avx2) return SumOrder::fusedChain;
    if (path == Path::inLine && hasInlineExponential(variant)) return SumOrder::inLineChain;
    return variant.instructionSet == InstructionSet::avx ? SumOrder::pairTree : SumOrder::northLast;
}

template <ElementType>
struct ElementOf;
template <>
struct ElementOf<ElementType::float32> {
    using Type = float;
};
template <>
struct ElementOf<ElementType::float64> {
    using Type = double;
};

template <PipelineVariant pipeline, Path pathOfForm>
struct Form {
    static constexpr PipelineVariant variant = pipeline;
    static constexpr Path path = pathOfForm;
    static constexpr InstructionSet set = variant.instructionSet;
    static constexpr SumOrder order = sumOrderOf(variant, path);
    static constexpr int lanes = path == Path::parallel ? variant.lanes() : 1;

    using Element = typename ElementOf<variant.elementType>::Type;
    using Value = Lanes<Element, lanes>;
};

}  // namespace diffusefilt
