// SPDX-License-Identifier: MIT
// The rows of a plane of the output, one after another, and their vectors.
#pragma once

#include "arithmetic/operands.h"
#include "arithmetic/stencil.h"
#include "schedules/fillClosure.h"
#include "schedules/rowPlan.h"
#include "schedules/rowTerms.h"

namespace diffusefilt {

// Where a page ends inside a vector, a host that watches its memory sees which half of it is
// stored first: the order is part of what is promised, and the barrier keeps it.
template <InstructionSet set, class V>
[[gnu::always_inline]] inline void store(ElementOfLanes<V>* to, V v) noexcept {
    if constexpr (rulesOf(set).worksInHalves && lanesOf<V> != 1) {
        static_assert(sizeof(V) == 32, "halves are those of 32 bytes");
        const auto whole = reinterpret_cast<__m256d>(v);
        auto* const half = reinterpret_cast<double*>(to);
        _mm_storeu_pd(half + 2, _mm256_extractf128_pd(whole, 1));
        asm volatile("" ::: "memory");
        _mm_storeu_pd(half, _mm256_castpd256_pd128(whole));
    } else {
        reinterpret_cast<Unaligned<V>*>(to)->value = v;
    }
}

// One row of the output, with the rows of the input around it.
template <PipelineVariant variant>
struct Row {
    using F = Form<variant, Path::parallel>;
    using T = typename F::Element;
    using V = typename F::Value;
    static constexpr int planes = variant.planes();

    Scalars<F> scalars;
    Rows<T, planes> rows;
    T* out;  // the output element at column 0

    template <Edge edge>
    [[gnu::always_inline]] void edgeVector(int64_t x) const noexcept {
        step(EdgeOperands<V, planes, edge>{rows, x}, x);
    }

    // The loop asks early for the lines that no row before it has touched: in images larger than
    // the cache it would wait for them.
    [[gnu::always_inline]] void wholeVectors(int64_t begin, int64_t end) const noexcept {
        constexpr int ahead = 512 / sizeof(T);
        for (int64_t x = begin; x < end; x += F::lanes) {
            __builtin_prefetch(rows.at(newestRow(variant), x + ahead));
            __builtin_prefetch(out + x + ahead);
            step(WholeOperands<V, planes>{rows, x}, x);
        }
    }

    [[gnu::always_inline]] void anyVector(int32_t x, int32_t width) const noexcept {
        if (x > 0 && int64_t{x} + F::lanes < width) {
            step(WholeOperands<V, planes>{rows, x}, x);
        } else {
            step(ClampedOperands<V, planes>(rows, x, width), x);
        }
    }

    template <class Operands>
    [[gnu::always_inline]] void step(const Operands& read, int64_t x) const noexcept {
        store<F::set, V>(out + x, stencil<F>(read, scalars));
    }
};

// Row y of plane z, and from there one row after another; in 2-D there is one plane, z = 0.
template <PipelineVariant variant>
class RowRun {
public:
    using T = ElementOf<variant>;
    static constexpr int planes = variant.planes();

    [[gnu::always_inline]] RowRun(const Closure<variant>& record, int32_t y, int32_t z) noexcept
        : record_(record),
          scalars_(record.gradTIn, cornerOf(record)),
          y_(y),
          z_(z),
          terms_(RowTerms<T>::around(Clamp::both, y, record.inputExtent1, record.inputStride1)),
          outRow_(minus(offsetOf(y, record.outStride1), record.outputOffset)) {
        const int64_t offset = negated(record.inputOffset);
        if constexpr (planes == 3) {
            planes_ = Planes<3>::around(record.inputHost, offset, Clamp::both, z,
                                        record.inputExtent2, record.inputStride2);
            outRow_ = plus(outRow_, offsetOf(z, record.outStride2));
        } else {
            planes_ = Planes<1>::only(record.inputHost, offset);
        }
    }

    [[gnu::always_inline]] int32_t y() const noexcept { return y_; }

    [[gnu::always_inline]] void run(const RowPlan& plan) const noexcept {
        // Formed in place: g++ would keep what a function returns in memory, and under avx read it
        // anew behind each store.
        const Row<variant> here{scalars_, terms_.in(planes_), record_.outputHost + outRow_};
        if (plan.before > 0) anyVectors(record_, y_, z_, 0, plan.before);
        if (plan.left) here.template edgeVector<Edge::left>(0);
        here.wholeVectors(plan.wholeBegin, plan.wholeEnd);
        if (plan.right) here.template edgeVector<Edge::right>(plan.rightX);
        if (plan.after < plan.end) anyVectors(record_, y_, z_, plan.after, plan.end);
    }

    [[gnu::always_inline]] void next() noexcept {
        terms_.goOnTo(++y_, record_.inputExtent1, record_.inputStride1);
        outRow_ = plus(outRow_, int64_t{record_.outStride1});
    }

private:
    [[gnu::always_inline]] static T cornerOf(const Closure<variant>& record) noexcept {
        if constexpr (requires { record.sqrtThree; }) return cornerWeightFrom(record.sqrtThree);
        return cornerWeight;
    }

    // Apart from the vectors of most rows, whose registers it would crowd. It finds its row by the
    // coordinates: a row that is handed over would have to be put into memory, called for or not.
    [[gnu::noinline]] static void anyVectors(const Closure<variant>& record, int32_t y, int32_t z,
                                             int32_t begin, int32_t end) noexcept {
        const RowRun at(record, y, z);
        const Row<variant> here{at.scalars_, at.terms_.in(at.planes_),
                                record.outputHost + at.outRow_};
        for (int32_t v = begin; v < end; ++v) {
            here.anyVector(columnOf(record, v, variant.lanes()), plus(record.inputMax0, 1));
        }
    }

    const Closure<variant>& record_;
    Scalars<Form<variant, Path::parallel>> scalars_;
    int32_t y_, z_;
    Planes<planes> planes_;
    RowTerms<T> terms_;
    int64_t outRow_;  // the index of the output element at column 0
};

}  // namespace diffusefilt
