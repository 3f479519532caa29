// SPDX-License-Identifier: MIT
// The conductance g of a neighbour, from its scaled difference t = d / K:
//   quadratic    1 / (1 + t^2)
//   exponential  exp(-t^2)
// Only the square of t counts, so that the sign of d stays in it: to clear it would change
// no bit.
// (Perona and Malik, Scale-space and edge detection using anisotropic diffusion, IEEE
// Transactions on Pattern Analysis and Machine Intelligence 12(7), 1990.)
#pragma once

#include <math.h>

#include "arithmetic/form.h"
#include "arithmetic/inlineExponential.h"

namespace diffusefilt {

// In the lanes of any V of the form's elements.
template <class Form, class V>
[[gnu::always_inline]] inline V conductance(V t) noexcept {
    using T = typename Form::Element;
    if constexpr (Form::variant.conduction == Conduction::quadratic) {
        return T(1) / multiplyAdd<Form::set>(t, t, broadcast<V>(T(1)));
    } else if constexpr (Form::variant.hasOwnExponential()) {
        return exponentialOfMinus<Form::set>(V(t * t));
    } else {
        static_assert(Form::variant.conduction == Conduction::exponential,
                      "this conduction has no conductance: write its branch");
        const V u = -(t * t);  // one call for each lane, in rising order
        return fromLanes<V>([&](int i)
                                __attribute__((always_inline)) { return ::exp(laneOf(u, i)); });
    }
}

}  // namespace diffusefilt
