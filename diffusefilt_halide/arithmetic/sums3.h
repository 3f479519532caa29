// SPDX-License-Identifier: MIT
// The sums of the 3-D stencils. The order decides the last bits and belongs to the
// instruction set; p(n) is the flux of neighbour n. w and e are the weights of
// the corners and of the edges.
#pragma once

#include "arithmetic/flux.h"
#include "arithmetic/weights.h"

namespace diffusefilt {

template <class Form, class P>
[[gnu::always_inline]] inline typename Form::Value sumOfMinimal3(const P& p) noexcept {
    if constexpr (Form::order == SumOrder::northLast) {
        return p.chain(F6, F4, F3, F2, F1, F5);
    } else if constexpr (Form::order == SumOrder::pairs) {
        return (p(F1) + p(F2)) + ((p(F3) + p(F4)) + (p(F5) + p(F6)));
    } else if constexpr (Form::order == SumOrder::fusedChains) {
        return p.chain(F6, F5, F4, F3, F2, F1);
    } else {
        static_assert(Form::order == SumOrder::plainChains, "this order has no sum here");
        return p.chain(F5, F6, F4, F3, F2, F1);
    }
}

template <class Form, class P>
[[gnu::always_inline]] inline typename Form::Value sumOfMaximal3(
    const P& p, typename Form::Element w) noexcept {
    using V = typename Form::Value;
    constexpr auto e = edgeWeight<typename Form::Element>;
    if constexpr (Form::order == SumOrder::northLast) {
        const V faces = p.chain(F6, F4, F3, F2, F1);
        const V edges = p.chain(E12, E10, E9, E8, E7, E6, E5, E4, E3, E2, E1, E11);
        const V corners = p.chain(C8, C6, C5, C4, C3, C2, C1, C7);
        return ((faces + edges * e) + corners * w) + p(F5);
    } else if constexpr (Form::order == SumOrder::pairs) {
        const V faces = (p(F1) + p(F2)) + ((p(F3) + p(F4)) + (p(F5) + p(F6)));
        const V edges =
            p(E1) + ((p(E2) + (p(E3) + (p(E4) + p(E5)))) +
                     ((p(E6) + (p(E7) + p(E8))) + ((p(E9) + p(E10)) + (p(E11) + p(E12)))));
        const V corners = p(C1) + ((p(C2) + (p(C3) + p(C4))) + ((p(C5) + p(C6)) + (p(C7) + p(C8))));
        return (faces + corners * w) + edges * e;
    } else if constexpr (Form::order == SumOrder::fusedChains) {
        const V faces = p.chain(F6, F5, F4, F3, F2, F1);
        const V edges = p.chain(E12, E11, E10, E9, E8, E7, E6, E5, E4, E3, E2, E1);
        const V corners = p.chain(C8, C7, C6, C5, C4, C3, C2, C1);
        return fused(corners, broadcast<V>(w), fused(edges, broadcast<V>(e), faces));
    } else {
        static_assert(Form::order == SumOrder::plainChains, "this order has no sum here");
        const V faces = p.chain(F5, F6, F4, F3, F2, F1);
        const V edges = p.chain(E11, E12, E10, E9, E8, E7, E6, E5, E4, E3, E2, E1);
        const V corners = p.chain(C8, C7, C6, C5, C4, C3, C2, C1);
        return (edges * e + faces) + corners * w;
    }
}

}  // namespace diffusefilt
