// SPDX-License-Identifier: MIT
// A halide_buffer_t with its dimensions, made from a view.
#pragma once

#include <HalideRuntime.h>

#include <cstdint>
#include <type_traits>

#include "reference/Reference.h"

namespace support {

template <class T>
class HalideBuffer {
public:
    // The view's memory must outlive the buffer.
    explicit HalideBuffer(const reference::View<T>& view) {
        using Element = std::remove_const_t<T>;
        for (int d = 0; d < view.dimensions; ++d) {
            dimensions_[d] = {view.min[d], view.extent[d], view.stride[d]};
        }
        buffer_.host = reinterpret_cast<uint8_t*>(const_cast<Element*>(view.host));
        buffer_.type = halide_type_of<Element>();
        buffer_.dimensions = view.dimensions;
        buffer_.dim = dimensions_;
    }
    HalideBuffer(const HalideBuffer&) = delete;
    HalideBuffer& operator=(const HalideBuffer&) = delete;

    operator halide_buffer_t*() { return &buffer_; }

private:
    halide_dimension_t dimensions_[3];
    halide_buffer_t buffer_ = {};
};

}  // namespace support
