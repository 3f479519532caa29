// The five axes of the library and a point on them: the words that the frame,
// the schedules and the arithmetic share. This header depends on nothing.
#pragma once

namespace diffusefilt {

enum class Connectivity { maximal, minimal };
enum class Conduction { exponential, quadratic };
enum class ElementType { float32, float64 };
// From 1, as a mangled name leaves out a trailing 0: names always tell the set.
enum class InstructionSet { avx = 1, avx2, none };

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
    [[gnu::always_inline]] constexpr int vectorBits() const {
        return instructionSet == InstructionSet::none ? 128 : 256;
    }
    // L, the elements of one vector: it decides the path of a call and the cut of its rows.
    [[gnu::always_inline]] constexpr int lanes() const { return vectorBits() / elementBits(); }
};

}  // namespace diffusefilt
