// What an instruction set means: one block of facts for each. Whoever depends on the set asks
// for the fact that it depends on, never for the set.
#pragma once

namespace diffusefilt {

// In rising order of what they ask of the processor. From 1, as a mangled name leaves out a
// trailing 0: names always tell the set.
enum class InstructionSet { none = 1, avx, avx2 };

// The order in which the fluxes of an element are added; the sums themselves stand in
// arithmetic/sums2.h and sums3.h.
enum class SumOrder {
    northLast,    // chains, the flux of north (F5) held back to the end
    pairs,        // trees, pairs first
    fusedChains,  // chains of fused steps
    plainChains,  // chains with nothing held back
};

// Who rounds down: a call of the math library for each lane, or an instruction.
enum class Floor { call, instruction };

// Where the bias of the exponent is added to the bits of 2^k.
enum class Bias { beforeShift, behindShift };

// Which of the two chains of the exponential's polynomial is added to 1 first: the other is
// added to that.
enum class PolynomialEnd { oddFirst, evenFirst, evenFirstFused };

// Features of processors beyond the baseline, as bits.
namespace feature {
enum : unsigned { sse3 = 1, avx = 2, f16c = 4, bmi = 8, fma = 16, avx2 = 32, avx512f = 64 };
}

// Those that the compiler may use in the file at hand, told by its macros.
constexpr unsigned featuresHere = 0
#ifdef __SSE3__
                                  | feature::sse3
#endif
#ifdef __AVX__
                                  | feature::avx
#endif
#ifdef __F16C__
                                  | feature::f16c
#endif
#ifdef __BMI__
                                  | feature::bmi
#endif
#ifdef __FMA__
                                  | feature::fma
#endif
#ifdef __AVX2__
                                  | feature::avx2
#endif
#ifdef __AVX512F__
                                  | feature::avx512f
#endif
    ;

struct SetRules {
    int vectorBytes;
    unsigned features;   // its file is compiled for exactly these
    const char* target;  // as the metadata names it
    bool fuses;          // multiplyAdd rounds once
    bool storesHalves;   // a vector is stored in two halves, the upper one first
    SumOrder sums;
    // In line, where the exponential is the library's own. Two of the sets have an order apart
    // there, so that an element can differ in its last bit between the two paths: the bits of
    // each path are promised, their agreement is not.
    SumOrder sumsOfOwnExponentialInLine;
    Floor floor;
    Bias bias;
    PolynomialEnd polynomialEnd;
};

[[gnu::always_inline]] constexpr SetRules rulesOf(InstructionSet set) {
    switch (set) {
        case InstructionSet::none:
            return {.vectorBytes = 16,
                    .features = 0,
                    .target = "x86-64-linux-large_buffers-no_runtime",
                    .fuses = false,
                    .storesHalves = false,
                    .sums = SumOrder::northLast,
                    .sumsOfOwnExponentialInLine = SumOrder::plainChains,
                    .floor = Floor::call,
                    .bias = Bias::behindShift,
                    .polynomialEnd = PolynomialEnd::oddFirst};
        case InstructionSet::avx:
            return {.vectorBytes = 32,
                    .features = feature::sse3 | feature::avx,
                    .target = "x86-64-linux-avx-large_buffers-no_runtime-sse41",
                    .fuses = false,
                    .storesHalves = true,
                    .sums = SumOrder::pairs,
                    .sumsOfOwnExponentialInLine = SumOrder::plainChains,
                    .floor = Floor::instruction,
                    .bias = Bias::beforeShift,
                    .polynomialEnd = PolynomialEnd::evenFirst};
        case InstructionSet::avx2:
            return {.vectorBytes = 32,
                    .features =
                        feature::sse3 | feature::avx | feature::avx2 | feature::fma | feature::bmi,
                    .target = "x86-64-linux-avx-avx2-large_buffers-no_runtime-sse41",
                    .fuses = true,
                    .storesHalves = false,
                    .sums = SumOrder::fusedChains,
                    .sumsOfOwnExponentialInLine = SumOrder::fusedChains,
                    .floor = Floor::instruction,
                    .bias = Bias::behindShift,
                    .polynomialEnd = PolynomialEnd::evenFirstFused};
    }
    return {};  // no rules: refused by listed() in axes.h
}

}  // namespace diffusefilt
