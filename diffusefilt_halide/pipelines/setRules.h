// SPDX-License-Identifier: MIT
// What an instruction set means: one block of facts for each. Whoever depends on the set asks
// for the fact that it depends on, never for the set.
#pragma once

namespace diffusefilt {

// In rising order of what they ask of the processor. From 1, as a mangled name leaves out a
// trailing 0: names always tell the set.
enum class InstructionSet { none = 1, avx, avx2 };

// The set that the file at hand is compiled for, told by the compiler's macros. Other flags than a
// set's have none.
#if defined(__AVX2__) && defined(__FMA__) && defined(__BMI__) && !defined(__AVX512F__)
constexpr InstructionSet compiledFor = InstructionSet::avx2;
#elif defined(__AVX__) && !defined(__AVX2__) && !defined(__FMA__) && !defined(__F16C__)
constexpr InstructionSet compiledFor = InstructionSet::avx;
#elif !defined(__SSE3__)
constexpr InstructionSet compiledFor = InstructionSet::none;
#endif

// The order in which the fluxes of an element are added; the sums themselves stand in
// arithmetic/sums2.h and sums3.h.
enum class SumOrder {
    northLast,    // chains, the flux of north (F5) held back to the end
    pairs,        // trees, pairs first
    fusedChains,  // chains of fused steps
    plainChains,  // chains with nothing held back
};

// Which of the two chains of the exponential's polynomial is added to 1 first: the other is
// added to that.
enum class PolynomialEnd { oddFirst, evenFirst, evenFirstFused };

struct SetRules {
    int vectorBytes;
    const char* target;  // as the metadata names it
    bool fuses;          // multiplyAdd rounds once
    // Of a vector of 32 bytes, integer operations take half, and so do stores, the upper half
    // first.
    bool worksInHalves;
    SumOrder sums;
    // In line, where the exponential is the library's own. Two of the sets have an order apart
    // there, so that an element can differ in its last bit between the two paths: the bits of
    // each path are promised, their agreement is not.
    SumOrder sumsOfOwnExponentialInLine;
    bool hasFloor;         // else one call of the math library for each lane
    bool biasBeforeShift;  // where the bias of the exponent is added to the bits of 2^k
    PolynomialEnd polynomialEnd;
};

[[gnu::always_inline]] constexpr SetRules rulesOf(InstructionSet set) {
    switch (set) {
        case InstructionSet::none:
            return {.vectorBytes = 16,
                    .target = "x86-64-linux-large_buffers-no_runtime",
                    .fuses = false,
                    .worksInHalves = false,
                    .sums = SumOrder::northLast,
                    .sumsOfOwnExponentialInLine = SumOrder::plainChains,
                    .hasFloor = false,
                    .biasBeforeShift = false,
                    .polynomialEnd = PolynomialEnd::oddFirst};
        case InstructionSet::avx:
            return {.vectorBytes = 32,
                    .target = "x86-64-linux-avx-large_buffers-no_runtime-sse41",
                    .fuses = false,
                    .worksInHalves = true,
                    .sums = SumOrder::pairs,
                    .sumsOfOwnExponentialInLine = SumOrder::plainChains,
                    .hasFloor = true,
                    .biasBeforeShift = true,
                    .polynomialEnd = PolynomialEnd::evenFirst};
        case InstructionSet::avx2:
            return {.vectorBytes = 32,
                    .target = "x86-64-linux-avx-avx2-large_buffers-no_runtime-sse41",
                    .fuses = true,
                    .worksInHalves = false,
                    .sums = SumOrder::fusedChains,
                    .sumsOfOwnExponentialInLine = SumOrder::fusedChains,
                    .hasFloor = true,
                    .biasBeforeShift = false,
                    .polynomialEnd = PolynomialEnd::evenFirstFused};
        default:
            return {};  // refused by listed() in axes.h
    }
}

}  // namespace diffusefilt
