// SPDX-License-Identifier: MIT
// One explicit diffusion step of one element, or of a vector of them:
//   centre + rate * (weighted sum of the fluxes of its neighbours).
#pragma once

#include "arithmetic/sums2.h"
#include "arithmetic/sums3.h"

namespace diffusefilt {

// What does not depend on the element. Made at the head of a group of loops, with one
// true division in the element type for the reciprocal of the threshold. Only the 3-D
// maximal stencil has corners; for the others their weight is 0.
template <class Form>
struct Scalars {
    typename Form::Element gradTInv;
    typename Form::Element corner;

    [[gnu::always_inline]] Scalars(typename Form::Element gradTIn,
                                   typename Form::Element cornerWeightOfTask) noexcept
        : gradTInv(1 / gradTIn), corner(cornerWeightOfTask) {}
};

// `read` maps an Offset to the operand at it, after the boundary rule.
template <class Form, class Reader>
[[gnu::always_inline]] inline typename Form::Value stencil(const Reader& read,
                                                           const Scalars<Form>& scalars) noexcept {
    using V = typename Form::Value;
    using T = typename Form::Element;
    constexpr bool is3D = Form::variant.dimensions == 3;
    constexpr bool maximal = Form::variant.connectivity == Connectivity::maximal;
    const V c = read(centre);
    const Fluxes<Form, Reader> fluxes(read, c, scalars.gradTInv);
    const auto stepped = [&](V sum, T rate) __attribute__((always_inline)) {
        return multiplyAdd<Form::set>(sum, broadcast<V>(rate), c);
    };
    if constexpr (is3D && maximal) {
        return stepped(sumOfMaximal3<Form>(fluxes, scalars.corner), rateOfMaximal3<T>);
    } else if constexpr (is3D) {
        return stepped(sumOfMinimal3<Form>(fluxes), rateOfMinimal3<T>);
    } else if constexpr (maximal) {
        return stepped(sumOfMaximal2<Form>(fluxes), rateOfMaximal2<T>);
    } else {
        return stepped(sumOfMinimal2<Form>(fluxes), rateOfMinimal2<T>);
    }
}

}  // namespace diffusefilt
