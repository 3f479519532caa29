// SPDX-License-Identifier: MIT
// The fluxes of one element or vector: g * d for each neighbour, with d = neighbour -
// centre. Each neighbour is read and its conductance worked out where its flux is asked
// for; nothing is kept.
#pragma once

#include "arithmetic/conduction.h"
#include "arithmetic/neighbours.h"

namespace diffusefilt {

template <class Form, class Reader>
class Fluxes {
public:
    using Value = typename Form::Value;
    using Element = typename Form::Element;

    [[gnu::always_inline]] Fluxes(const Reader& read, Value c, Element gradTInv) noexcept
        : read_(read), centre_(c), gradTInv_(gradTInv) {}

    // The flux of a neighbour, a rounded product.
    [[gnu::always_inline]] Value operator()(Offset neighbour) const noexcept {
        const Term term = termOf(neighbour);
        return term.g * term.d;
    }

    // The fluxes added one after another, each but the first by the set's multiplyAdd.
    template <class... Offsets>
    [[gnu::always_inline]] Value chain(Offset first, Offsets... rest) const noexcept {
        if constexpr (Form::ownExponentialInLine) {
            return chainOfPacked({first, rest...});
        } else {
            Value sum = (*this)(first);
            ((sum = added(sum, termOf(rest))), ...);
            return sum;
        }
    }

private:
    struct Term {
        Value d;
        Value g;
    };

    // The same chain, four of its exponentials at a time in the lanes of one vector.
    template <int n>
    [[gnu::always_inline]] Value chainOfPacked(const Offset (&neighbours)[n]) const noexcept {
        using Pack = Lanes<Element, 4>;
        Term terms[n];
        int i = 0;
        for (; i + 4 <= n; i += 4) {
            const Pack d = fromLanes<Pack>([&](int lane) __attribute__((always_inline)) {
                return read_(neighbours[i + lane]) - centre_;
            });
            const Pack g = conductance<Form>(Pack(d * gradTInv_));
            for (int lane = 0; lane < 4; ++lane) terms[i + lane] = {d[lane], g[lane]};
        }
        for (; i < n; ++i) terms[i] = termOf(neighbours[i]);
        Value sum = terms[0].g * terms[0].d;
        for (int k = 1; k < n; ++k) sum = added(sum, terms[k]);
        return sum;
    }

    // The difference is scaled by the reciprocal of the threshold, not divided by it: the
    // two round differently.
    [[gnu::always_inline]] Term termOf(Offset neighbour) const noexcept {
        const Value d = read_(neighbour) - centre_;
        return {d, conductance<Form>(Value(d * gradTInv_))};
    }

    [[gnu::always_inline]] static Value added(Value sum, Term term) noexcept {
        return multiplyAdd<Form::set>(term.d, term.g, sum);
    }

    const Reader& read_;
    Value centre_;
    Element gradTInv_;
};

}  // namespace diffusefilt
