// The in-line path: an input no wider than one vector is filtered on the caller's
// thread, element by element, without a task and without a record. Every element of the
// output is written once, in plain order; bands leave out the clamps that cannot act.
#pragma once

#include "arithmetic/operands.h"
#include "arithmetic/stencil.h"
#include "schedules/fillClosure.h"

namespace diffusefilt {

template <PipelineVariant variant>
class InLine {
public:
    using F = Form<variant, Path::inLine>;
    using T = typename F::Element;
    static constexpr int planes = variant.dimensions == 3 ? 3 : 1;
    static constexpr Connectivity connectivity = variant.connectivity;

    // The outermost dimension is cut; the form that stands for "free of the upper clamp".
    static constexpr Clamp inner =
        connectivity == Connectivity::minimal ? Clamp::none : Clamp::lower;

    [[gnu::always_inline]] InLine(const halide_buffer_t* input, T gradTIn,
                                  const halide_buffer_t* output) noexcept
        : in_(input->dim),
          out_(output->dim),
          gradTIn_(gradTIn),
          inputZero_(reinterpret_cast<const T*>(input->host) -
                     offsetOfMins<variant.dimensions>(in_)),
          outputZero_(reinterpret_cast<T*>(output->host) - offsetOfMins<variant.dimensions>(out_)) {
    }

    [[gnu::always_inline]] void run() const noexcept {
        if constexpr (variant.dimensions == 3) {
            for (const Part& band : bands(2, inner)) {
                for (int32_t z = band.begin; z < band.end; ++z) plane(z, band.clamp);
            }
        } else {
            const int64_t planeTerm = 0;
            rowBands(&planeTerm, outputZero_, inner);
        }
    }

private:
    [[gnu::always_inline]] Cut bands(int d, Clamp outer) const noexcept {
        const int32_t begin = out_[d].min;
        const int32_t end = plus(begin, out_[d].extent);
        if (outer == Clamp::both) return uncut(begin, end);
        return cutOfCoordinates<connectivity>(begin, end, in_[d].extent);
    }

    [[gnu::always_inline]] void plane(int32_t z, Clamp clamp) const noexcept {
        int64_t planeTerms[3];
        for (int dz = -1; dz <= 1; ++dz) {
            const int32_t inputPlane = neighbourCoord(clamp, z, dz, in_[2].extent);
            planeTerms[dz + 1] = offsetOf(inputPlane, in_[2].stride);
        }
        rowBands(planeTerms, outputZero_ + offsetOf(z, out_[2].stride), clamp);
    }

    [[gnu::always_inline]] void rowBands(const int64_t* planeTerms, T* outPlane,
                                         Clamp planeClamp) const noexcept {
        for (const Part& band : bands(1, planeClamp)) {
            const Scalars<F> scalars(gradTIn_, cornerWeight<T>(sqrtThree));
            for (int32_t y = band.begin; y < band.end; ++y) {
                row(planeTerms, outPlane + offsetOf(y, out_[1].stride), y, band.clamp, scalars);
            }
        }
    }

    [[gnu::always_inline]] void row(const int64_t* planeTerms, T* outRow, int32_t y, Clamp clamp,
                                    const Scalars<F>& scalars) const noexcept {
        Rows<T, planes> rows;
        rows.host = inputZero_;
        for (int dy = -1; dy <= 1; ++dy) {
            const int32_t inputRow = neighbourCoord(clamp, y, dy, in_[1].extent);
            const int64_t rowTerm = offsetOf(inputRow, in_[1].stride);
            for (int p = 0; p < planes; ++p) rows.base[p][dy + 1] = rowTerm + planeTerms[p];
        }
        for (const Part& part : bands(0, clamp)) {
            if (part.clamp == inner) {
                elements<inner>(part, rows, outRow, scalars);
            } else {
                elements<Clamp::both>(part, rows, outRow, scalars);
            }
        }
    }

    template <Clamp clamp>
    [[gnu::noinline]] void elements(Part part, const Rows<T, planes>& rows, T* outRow,
                                    const Scalars<F>& scalars) const noexcept {
        for (int32_t x = part.begin; x < part.end; ++x) {
            const ElementOperands<T, planes, clamp> read{rows, x, in_[0].extent};
            reinterpret_cast<Unaligned<T>*>(outRow + x)->value = stencil<F>(read, scalars);
        }
    }

    const halide_dimension_t* in_;
    const halide_dimension_t* out_;
    T gradTIn_;
    const T* inputZero_;  // the element at the coordinates (0, 0, 0), inside or not
    T* outputZero_;
};

}  // namespace diffusefilt
