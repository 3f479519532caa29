// SPDX-License-Identifier: MIT
// The in-line path: an input no wider than one vector is filtered on the caller's
// thread, element by element, without a task and without a record. Every element of the
// output is written once, in plain order; bands leave out the clamps that cannot act.
#pragma once

#include "arithmetic/stencil.h"
#include "schedules/fillClosure.h"
#include "schedules/rowTerms.h"

namespace diffusefilt {

template <PipelineVariant variant>
class InLine {
public:
    using F = Form<variant, Path::inLine>;
    using T = typename F::Element;
    static constexpr int dimensions = variant.dimensions;
    static constexpr int planes = variant.planes();

    // The clamp of a band in which the next inner dimension is cut.
    static constexpr Clamp inner =
        variant.connectivity == Connectivity::minimal ? Clamp::neither : Clamp::lower;

    [[gnu::always_inline]] InLine(const halide_buffer_t* input, T gradTIn,
                                  const halide_buffer_t* output) noexcept
        : input_(reinterpret_cast<const T*>(input->host)),
          output_(reinterpret_cast<T*>(output->host)),
          inputOffset_(offsetOfMins<dimensions>(input->dim)),
          outputOffset_(offsetOfMins<dimensions>(output->dim)),
          scalars_(gradTIn, dimensions == 2              ? T(0)
                            : sizeof(T) == sizeof(float) ? T(cornerWeight)
                                                         : T(cornerWeightFrom(sqrtThree))) {
        for (int d = 0; d < dimensions; ++d) {
            const halide_dimension_t& out = output->dim[d];
            extent_[d] = input->dim[d].extent;
            inputStride_[d] = input->dim[d].stride;
            outputStride_[d] = out.stride;
            uncut_[d] = uncut(out.min, plus(out.min, out.extent));
            bands_[d] = cutOf<variant.connectivity>(input->dim[d], out);
        }
    }

    [[gnu::always_inline]] void run() const noexcept {
        const int64_t origin = negated(inputOffset_);
        if constexpr (dimensions == 2) {
            rowBands(Planes<1>::only(input_, origin), negated(outputOffset_), inner);
        } else {
            for (const Band& band : bands_[2]) {
                for (int32_t z = band.begin; z < band.end; ++z) {
                    rowBands(Planes<3>::around(input_, origin, band.clamp, z, extent_[2],
                                               inputStride_[2]),
                             minus(offsetOf(z, outputStride_[2]), outputOffset_), band.clamp);
                }
            }
        }
    }

private:
    [[gnu::always_inline]] const Cut& bands(int d, Clamp outer) const noexcept {
        return outer == inner ? bands_[d] : uncut_[d];
    }

    [[gnu::always_inline]] void rowBands(Planes<planes> of, int64_t outPlane,
                                         Clamp planeClamp) const noexcept {
        for (const Band& band : bands(1, planeClamp)) {
            for (int32_t y = band.begin; y < band.end; ++y) {
                const auto rows =
                    RowTerms<T>::around(band.clamp, y, extent_[1], inputStride_[1]).in(of);
                T* const outRow = output_ + plus(offsetOf(y, outputStride_[1]), outPlane);
                row(rows, outRow, band.clamp);
            }
        }
    }

    [[gnu::always_inline]] void row(const Rows<T, planes>& rows, T* outRow,
                                    Clamp clamp) const noexcept {
        for (const Band& run : bands(0, clamp)) {
            if (run.clamp == inner) {
                elements<inner>(run, rows, outRow);
            } else {
                elements<Clamp::both>(run, rows, outRow);
            }
        }
    }

    template <Clamp clamp>
    [[gnu::noinline]] void elements(Band run, const Rows<T, planes>& rows,
                                    T* outRow) const noexcept {
        for (int32_t x = run.begin; x < run.end; ++x) {
            const ElementOperands<T, planes, clamp> read{rows, x, extent_[0]};
            reinterpret_cast<Unaligned<T>*>(outRow + x)->value = stencil<F>(read, scalars_);
        }
    }

    const T* input_;
    T* output_;
    int64_t inputOffset_;
    int64_t outputOffset_;
    Scalars<F> scalars_;
    int32_t extent_[dimensions];
    int32_t inputStride_[dimensions];
    int32_t outputStride_[dimensions];
    Cut uncut_[dimensions];
    Cut bands_[dimensions];
};

}  // namespace diffusefilt
