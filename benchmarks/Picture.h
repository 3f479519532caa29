// SPDX-License-Identifier: MIT
// An input of noise of the size of the threshold, and an output of the same shape.
#pragma once

#include <HalideRuntime.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <random>
#include <vector>

#include "pipelines/axes.h"

constexpr double threshold = 20;
constexpr double noiseOverThreshold = 3;

// In elements of dimension 0, 1 and, for a volume, 2.
using Extents = std::vector<int32_t>;

class Picture {
public:
    // Rows are `padding` elements further apart than they are wide.
    Picture(diffusefilt::ElementType type, const Extents& extents, int32_t padding = 0)
        : type_(halide_type_float, type == diffusefilt::ElementType::float32 ? 32 : 64) {
        int64_t stride = 1;
        elements_ = 1;
        for (const int32_t extent : extents) {
            shape_.emplace_back(0, extent, static_cast<int32_t>(stride));
            stride *= extent + (stride == 1 ? padding : 0);
            elements_ *= extent;
        }
        bytes_ = stride * type_.bytes();
        memory_.reset(static_cast<uint8_t*>(std::aligned_alloc(page, 2 * pages(bytes_) + page)));
        type_.bits == 32 ? fill<float>(stride) : fill<double>(stride);
    }

    int64_t elements() const { return elements_; }
    int64_t bytes() const { return bytes_; }

    halide_buffer_t input() { return record(memory_.get()); }
    // Half a page further on within its page than the input: a store never meets, in the
    // low bits by which the processor compares addresses, the loads that follow it.
    halide_buffer_t output() { return record(memory_.get() + pages(bytes_) + page / 2); }

private:
    static constexpr int64_t page = 4096;
    static int64_t pages(int64_t bytes) { return (bytes + page - 1) / page * page; }

    template <class T>
    void fill(int64_t count) {
        std::minstd_rand random(1);
        std::uniform_real_distribution<T> noise(0, T(noiseOverThreshold * threshold));
        for (int64_t i = 0; i < count; ++i) reinterpret_cast<T*>(memory_.get())[i] = noise(random);
    }

    halide_buffer_t record(uint8_t* host) {
        halide_buffer_t buffer = {};
        buffer.host = host;
        buffer.type = type_;
        buffer.dimensions = static_cast<int>(shape_.size());
        buffer.dim = shape_.data();
        return buffer;
    }

    struct Free {
        void operator()(uint8_t* memory) const { std::free(memory); }
    };

    halide_type_t type_;
    std::vector<halide_dimension_t> shape_;
    int64_t elements_ = 0;
    int64_t bytes_ = 0;
    std::unique_ptr<uint8_t, Free> memory_;
};
