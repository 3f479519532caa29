// SPDX-License-Identifier: MIT
// One call of a pipeline against the reference, bit for bit, on guarded memory. The input has
// what the call needs and no more, cannot be written, and holds NaN between its elements. Uses no
// standard string, like FrameModel.h.
#pragma once

#include <algorithm>
#include <cstdio>
#include <limits>
#include <vector>

#include "reference/Reference.h"
#include "support/Bits.h"
#include "support/GuardedBuffer.h"
#include "support/RandomCall.h"

// Memory that counts as uninitialised.
#if defined(__has_feature)
#if __has_feature(memory_sanitizer)
#include <sanitizer/msan_interface.h>
#define POISON(memory, bytes) __msan_poison(memory, bytes)
#endif
#endif
#ifndef POISON
#define POISON(memory, bytes)
#endif

namespace support {

class Comparison {
public:
    explicit Comparison(std::size_t bytesOfBuffer)
        : input_(bytesOfBuffer), output_(bytesOfBuffer) {}

    // enter(from, to) makes the call and returns its status. Returns what is wrong, null if
    // nothing is.
    template <class T, class Enter>
    const char* run(const diffusefilt::PipelineVariant& variant, const RandomCall& call,
                    Enter enter) {
        const reference::View<const T> from = fillInput<T>(call);
        const auto count = spanOf(call.output).count;
        T* const lowest = output_.place<T>(static_cast<std::size_t>(count), call.outputPlacement);
        // Margins on the sides without a guard.
        const int64_t before = call.outputPlacement == Placement::atBeginning ? 0 : margin;
        const int64_t behind = call.outputPlacement == Placement::atEnd ? 0 : margin;
        std::fill(lowest - before, lowest + count + behind, junk<T>);
        std::vector<T> expected(static_cast<std::size_t>(before + count + behind), junk<T>);

        const auto to = viewOf(call.output, lowest);
        if (const int status = enter(from, to); status != 0) {
            std::snprintf(text_, sizeof text_, "the call returned %d", status);
            return text_;
        }
        reference::filter(variant, from, call.gradTIn, viewOf(call.output, &expected[0] + before));
        for (int64_t i = -before; i < count + behind; ++i) {
            const T wanted = expected[static_cast<std::size_t>(i + before)];
            if (!sameBits(lowest[i], wanted)) return tell(to, lowest + i, wanted);
        }
        return nullptr;
    }

private:
    static constexpr int64_t margin = 64;
    template <class T>
    static constexpr T junk = T(-6328.7212);  // no NaN, so that a change of it shows

    // The input under its own coordinates, whose memory holds the needed part alone.
    template <class T>
    reference::View<const T> fillInput(const RandomCall& call) {
        const Shape needed = neededOf(call);
        const Span span = spanOf(needed);
        const auto count = static_cast<std::size_t>(span.count);
        input_.makeWritable();
        T* const lowest = input_.place<T>(count, call.inputPlacement);
        std::vector<T> content(count);
        fillContent(call, &content[0], span.count);
        std::fill_n(lowest, count, std::numeric_limits<T>::quiet_NaN());
        POISON(lowest, count * sizeof(T));
        reference::forEachElement(needed, [&](const auto&, int64_t offset) {
            const auto at = static_cast<std::size_t>(offset - span.lowest);
            lowest[at] = content[at];
        });
        input_.makeReadOnly();
        int64_t first = 0;
        for (int d = 0; d < needed.dimensions; ++d) {
            first += (int64_t{needed.min[d]} - call.input.min[d]) * call.input.stride[d];
        }
        // The element at the min coordinates may lie outside of the memory.
        const auto host = reinterpret_cast<uintptr_t>(lowest) -
                          static_cast<uintptr_t>(span.lowest + first) * sizeof(T);
        return {call.input, reinterpret_cast<const T*>(host)};
    }

    template <class T>
    const char* tell(const reference::View<T>& output, const T* place, T wanted) {
        const auto at = place - output.host;
        long long x = 0, y = 0, z = 0;
        bool isElement = false;
        reference::forEachElement(output, [&](const auto& i, int64_t offset) {
            if (offset != at) return;
            isElement = true;
            x = int64_t{output.min[0]} + i[0];
            y = int64_t{output.min[1]} + i[1];
            z = output.dimensions == 3 ? int64_t{output.min[2]} + i[2] : 0;
        });
        constexpr int digits = 2 * sizeof(T);
        std::snprintf(text_, sizeof text_,
                      "%s (%lld, %lld, %lld), %+lld from the first, is 0x%0*llx (%.17g), "
                      "wanted 0x%0*llx (%.17g)",
                      isElement ? "the element at" : "no element", x, y, z,
                      static_cast<long long>(at), digits,
                      static_cast<unsigned long long>(bitsOf(*place)), double(*place), digits,
                      static_cast<unsigned long long>(bitsOf(wanted)), double(wanted));
        return text_;
    }

    GuardedBuffer input_;
    GuardedBuffer output_;
    char text_[280];
};

}  // namespace support
