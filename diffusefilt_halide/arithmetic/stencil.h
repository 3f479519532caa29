// One explicit diffusion step of one element, or of a vector of them:
//   centre + rate * (weighted sum of the fluxes of its neighbours).
#pragma once

#include "arithmetic/sums2.h"
#include "arithmetic/sums3.h"

namespace diffusefilt {

// What does not depend on the element. Made at the head of a group of loops, with one
// true division in the element type for the reciprocal of the threshold.
template <class Form>
struct Scalars {
    typename Form::Element gradTInv;
    typename Form::Element corner;

    [[gnu::always_inline]] Scalars(typename Form::Element gradTIn,
                                   typename Form::Element cornerWeight) noexcept
        : gradTInv(1 / gradTIn), corner(cornerWeight) {}
};

// `read` maps an Offset to the operand at it, after the boundary rule.
template <class Form, class Reader>
[[gnu::always_inline]] inline typename Form::Value stencil(const Reader& read,
                                                           const Scalars<Form>& scalars) noexcept {
    using V = typename Form::Value;
    constexpr PipelineVariant variant = Form::variant;
    const V c = read(centre);
    const Fluxes<Form, Reader> fluxes(read, c, scalars.gradTInv);
    V sum;
    if constexpr (variant.dimensions == 2) {
        if constexpr (variant.connectivity == Connectivity::minimal) {
            sum = sumOfMinimal2<Form>(fluxes);
        } else {
            sum = sumOfMaximal2<Form>(fluxes);
        }
    } else {
        if constexpr (variant.connectivity == Connectivity::minimal) {
            sum = sumOfMinimal3<Form>(fluxes);
        } else {
            sum = sumOfMaximal3<Form>(fluxes, scalars.corner);
        }
    }
    constexpr auto factor = rate<variant.dimensions, variant.connectivity, typename Form::Element>;
    return multiplyAdd<Form::set>(sum, broadcast<V>(factor), c);
}

}  // namespace diffusefilt
