// SPDX-License-Identifier: MIT
#include "Sums.h"

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <type_traits>

namespace reference {
namespace {

using diffusefilt::Conduction;
using diffusefilt::Connectivity;
using diffusefilt::ElementType;
using diffusefilt::InstructionSet;
using diffusefilt::PipelineVariant;

enum Column { none, avx, avx2, inLine };

// A term of an order: a flux, a group times its weight, or a sum, whose second factor is 1. Each
// product and each sum is rounded; avx2 adds the product on the right of a + in one fused step.
template <class T, bool fuses>
struct Term {
    T factors[2];

    T value() const { return factors[0] * factors[1]; }
    Term operator+(Term right) const {
        if (fuses) return {{std::fma(right.factors[0], right.factors[1], value()), T(1)}};
        return {{value() + right.value(), T(1)}};
    }
    friend Term operator*(T weight, Term group) { return {{group.value(), weight}}; }
};

// The square of the rounded 1 / sqrt(3) in double, one step above 1/3; in float it is a constant
// one step below.
template <class T>
constexpr T cornerWeight = T(std::is_same_v<T, float>
                                 ? std::bit_cast<float>(uint32_t{0x3eaaaaaa})
                                 : std::bit_cast<double>(uint64_t{0x3fd5555555555557}));

template <class T, bool fuses>
T sumOf(int dimensions, bool minimal, Column column, const Pulls<T>& pulls) {
    const auto order = [&]() -> Term<T, fuses> {
        Term<T, fuses> terms[26];
        for (int i = 0; i < 26; ++i) {
            terms[i] = {{pulls.difference[i], pulls.conductance[i]}};
        }
        const auto &N = terms[0], &S = terms[1], &W = terms[2], &E = terms[3];
        const auto &NW = terms[4], &NE = terms[5], &SW = terms[6], &SE = terms[7];
        const auto& [F1, F2, F3, F4, F5, F6, E1, E2, E3, E4, E5, E6, E7, E8, E9, E10, E11, E12, C1,
                     C2, C3, C4, C5, C6, C7, C8] = terms;
        constexpr T h = 0.5, e = 0.5, w = cornerWeight<T>;
#define minimal2(set) \
    if (dimensions == 2 && minimal && column == set) return
#define maximal2(set) \
    if (dimensions == 2 && !minimal && column == set) return
#define minimal3(set) \
    if (dimensions == 3 && minimal && column == set) return
#define maximal3(set) \
    if (dimensions == 3 && !minimal && column == set) return
#include "orders.txt"
        std::abort();
    };
    return order().value();
}

// The instruction set decides, but in line the pipelines with an exponential of their own have
// orders of their own.
Column columnOf(PipelineVariant variant, bool isInLine) {
    if (variant.instructionSet == InstructionSet::avx2) return avx2;
    const bool isApart = variant.conduction == Conduction::exponential &&
                         variant.elementType == ElementType::float32;
    if (isInLine && isApart) return inLine;
    return variant.instructionSet == InstructionSet::avx ? avx : none;
}

}  // namespace

template <class T>
T weightedSum(PipelineVariant variant, bool isInLine, const Pulls<T>& pulls) {
    const Column column = columnOf(variant, isInLine);
    const bool minimal = variant.connectivity == Connectivity::minimal;
    return column == avx2 ? sumOf<T, true>(variant.dimensions, minimal, column, pulls)
                          : sumOf<T, false>(variant.dimensions, minimal, column, pulls);
}

template float weightedSum(PipelineVariant, bool, const Pulls<float>&);
template double weightedSum(PipelineVariant, bool, const Pulls<double>&);

}  // namespace reference
