// SPDX-License-Identifier: MIT
// The sums of the 2-D stencils. The order decides the last bits and belongs to the
// instruction set; p(n) is the flux of neighbour n.
#pragma once

#include "arithmetic/flux.h"
#include "arithmetic/weights.h"

namespace diffusefilt {

template <class Form, class P>
[[gnu::always_inline]] inline typename Form::Value sumOfMinimal2(const P& p) noexcept {
    if constexpr (Form::order == SumOrder::northLast) {
        return ((p(south) + p(east)) + p(west)) + p(north);
    } else if constexpr (Form::order == SumOrder::pairs) {
        return (p(north) + p(south)) + (p(east) + p(west));
    } else if constexpr (Form::order == SumOrder::fusedChains) {
        return p.chain(south, north, east, west);
    } else {
        static_assert(Form::order == SumOrder::plainChains, "this order has no sum here");
        return p.chain(north, south, east, west);
    }
}

template <class Form, class P>
[[gnu::always_inline]] inline typename Form::Value sumOfMaximal2(const P& p) noexcept {
    using V = typename Form::Value;
    constexpr auto half = diagonalWeight<typename Form::Element>;
    if constexpr (Form::order == SumOrder::northLast) {
        const V axial = (p(south) + p(east)) + p(west);
        const V diagonal = ((p(southEast) + p(northEast)) + p(northWest)) + p(southWest);
        return (axial + diagonal * half) + p(north);
    } else if constexpr (Form::order == SumOrder::pairs) {
        const V axial = (p(north) + p(south)) + (p(east) + p(west));
        const V diagonal = (p(southWest) + p(southEast)) + (p(northEast) + p(northWest));
        return diagonal * half + axial;
    } else if constexpr (Form::order == SumOrder::fusedChains) {
        const V axial = p.chain(south, north, east, west);
        const V diagonal = p.chain(southEast, southWest, northEast, northWest);
        return fused(diagonal, broadcast<V>(half), axial);
    } else {
        static_assert(Form::order == SumOrder::plainChains, "this order has no sum here");
        const V axial = p.chain(north, south, east, west);
        const V diagonal = p.chain(southEast, southWest, northEast, northWest);
        return diagonal * half + axial;
    }
}

}  // namespace diffusefilt
