#include "Sums.h"

#include <bit>
#include <cmath>
#include <cstdint>
#include <initializer_list>
#include <type_traits>

namespace reference {
namespace {

using diffusefilt::Conduction;
using diffusefilt::Connectivity;
using diffusefilt::ElementType;
using diffusefilt::InstructionSet;
using diffusefilt::PipelineVariant;

template <class T>
constexpr T diagonalWeight = T(0.5);

template <class T>
constexpr T edgeWeight = T(0.5);

// The square of the rounded 1 / sqrt(3) in double, one step above 1/3; in float it is a
// constant one step below.
template <class T>
constexpr T cornerWeight = [] {
    if constexpr (std::is_same_v<T, float>) {
        return std::bit_cast<float>(uint32_t{0x3eaaaaaa});
    } else {
        return std::bit_cast<double>(uint64_t{0x3fd5555555555557});
    }
}();

// The fluxes added one at a time, each product and each sum rounded.
template <class T>
T chain(const Pulls<T>& P, std::initializer_list<int> neighbours) {
    const int* next = neighbours.begin();
    T sum = P(*next);
    while (++next != neighbours.end()) sum = sum + P(*next);
    return sum;
}

// The same with every flux but the first fused into the sum.
template <class T>
T fusedChain(const Pulls<T>& P, std::initializer_list<int> neighbours) {
    const int* next = neighbours.begin();
    T sum = P(*next);
    while (++next != neighbours.end()) {
        sum = std::fma(P.difference[*next], P.conductance[*next], sum);
    }
    return sum;
}

// none: chains; the flux of `north` (F5 in volumes) comes last of all.

template <class T>
T minimal2None(const Pulls<T>& P) {
    return ((P(south) + P(east)) + P(west)) + P(north);
}

template <class T>
T maximal2None(const Pulls<T>& P) {
    const T axial = (P(south) + P(east)) + P(west);
    const T diagonal = ((P(southEast) + P(northEast)) + P(northWest)) + P(southWest);
    return (axial + diagonalWeight<T> * diagonal) + P(north);
}

template <class T>
T minimal3None(const Pulls<T>& P) {
    return chain(P, {F6, F4, F3, F2, F1, F5});
}

template <class T>
T maximal3None(const Pulls<T>& P) {
    const T faces = chain(P, {F6, F4, F3, F2, F1});
    const T edges = chain(P, {E12, E10, E9, E8, E7, E6, E5, E4, E3, E2, E1, E11});
    const T corners = chain(P, {C8, C6, C5, C4, C3, C2, C1, C7});
    return ((faces + edgeWeight<T> * edges) + cornerWeight<T> * corners) + P(F5);
}

// avx: trees.

template <class T>
T minimal2Avx(const Pulls<T>& P) {
    return (P(north) + P(south)) + (P(east) + P(west));
}

template <class T>
T maximal2Avx(const Pulls<T>& P) {
    const T axial = (P(north) + P(south)) + (P(east) + P(west));
    const T diagonal = (P(southWest) + P(southEast)) + (P(northEast) + P(northWest));
    return diagonal * diagonalWeight<T> + axial;
}

template <class T>
T minimal3Avx(const Pulls<T>& P) {
    return (P(F1) + P(F2)) + ((P(F3) + P(F4)) + (P(F5) + P(F6)));
}

template <class T>
T maximal3Avx(const Pulls<T>& P) {
    const T faces = (P(F1) + P(F2)) + ((P(F3) + P(F4)) + (P(F5) + P(F6)));
    const T edges = P(E1) + ((P(E2) + (P(E3) + (P(E4) + P(E5)))) +
                             ((P(E6) + (P(E7) + P(E8))) + ((P(E9) + P(E10)) + (P(E11) + P(E12)))));
    const T corners = P(C1) + ((P(C2) + (P(C3) + P(C4))) + ((P(C5) + P(C6)) + (P(C7) + P(C8))));
    return (faces + cornerWeight<T> * corners) + edgeWeight<T> * edges;
}

// avx2: fused chains, the weights fused too.

template <class T>
T minimal2Avx2(const Pulls<T>& P) {
    return fusedChain(P, {south, north, east, west});
}

template <class T>
T maximal2Avx2(const Pulls<T>& P) {
    const T axial = fusedChain(P, {south, north, east, west});
    const T diagonal = fusedChain(P, {southEast, southWest, northEast, northWest});
    return std::fma(diagonal, diagonalWeight<T>, axial);
}

template <class T>
T minimal3Avx2(const Pulls<T>& P) {
    return fusedChain(P, {F6, F5, F4, F3, F2, F1});
}

template <class T>
T maximal3Avx2(const Pulls<T>& P) {
    const T faces = fusedChain(P, {F6, F5, F4, F3, F2, F1});
    const T edges = fusedChain(P, {E12, E11, E10, E9, E8, E7, E6, E5, E4, E3, E2, E1});
    const T corners = fusedChain(P, {C8, C7, C6, C5, C4, C3, C2, C1});
    return std::fma(corners, cornerWeight<T>, std::fma(edges, edgeWeight<T>, faces));
}

// The in-line path of the exponential float32 pipelines of none and avx: chains of its
// own, with no flux held back.

template <class T>
T minimal2InLine(const Pulls<T>& P) {
    return ((P(north) + P(south)) + P(east)) + P(west);
}

template <class T>
T maximal2InLine(const Pulls<T>& P) {
    const T axial = ((P(north) + P(south)) + P(east)) + P(west);
    const T diagonal = ((P(southEast) + P(southWest)) + P(northEast)) + P(northWest);
    return diagonal * diagonalWeight<T> + axial;
}

template <class T>
T minimal3InLine(const Pulls<T>& P) {
    return chain(P, {F5, F6, F4, F3, F2, F1});
}

template <class T>
T maximal3InLine(const Pulls<T>& P) {
    const T faces = chain(P, {F5, F6, F4, F3, F2, F1});
    const T edges = chain(P, {E11, E12, E10, E9, E8, E7, E6, E5, E4, E3, E2, E1});
    const T corners = chain(P, {C8, C7, C6, C5, C4, C3, C2, C1});
    return (edges * edgeWeight<T> + faces) + corners * cornerWeight<T>;
}

}  // namespace

template <class T>
T weightedSum(PipelineVariant variant, bool inLine, const Pulls<T>& pulls) {
    using Sum = T (*)(const Pulls<T>&);
    const struct {
        Sum none, avx, avx2, inLine;
    } sums[] = {{minimal2None, minimal2Avx, minimal2Avx2, minimal2InLine},
                {maximal2None, maximal2Avx, maximal2Avx2, maximal2InLine},
                {minimal3None, minimal3Avx, minimal3Avx2, minimal3InLine},
                {maximal3None, maximal3Avx, maximal3Avx2, maximal3InLine}};
    const auto& ofShape = sums[2 * (variant.dimensions - 2) +
                               (variant.connectivity == Connectivity::maximal ? 1 : 0)];
    const bool hasInLineOrder = variant.conduction == Conduction::exponential &&
                                variant.elementType == ElementType::float32 &&
                                variant.instructionSet != InstructionSet::avx2;
    if (inLine && hasInLineOrder) return ofShape.inLine(pulls);
    if (variant.instructionSet == InstructionSet::none) return ofShape.none(pulls);
    return variant.instructionSet == InstructionSet::avx ? ofShape.avx(pulls) : ofShape.avx2(pulls);
}

template float weightedSum(PipelineVariant, bool, const Pulls<float>&);
template double weightedSum(PipelineVariant, bool, const Pulls<double>&);

}  // namespace reference
