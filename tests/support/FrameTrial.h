// SPDX-License-Identifier: MIT
// One call of a pipeline with arbitrary records, as a string of bytes says it, against the
// model of the frame. Records and elements stand on guarded memory: what a call may not
// touch cannot be touched, what it may not write cannot be written.
#pragma once

#include <cstddef>
#include <cstdint>

#include "support/Comparison.h"
#include "support/FrameModel.h"
#include "support/Pipelines.h"

namespace support {

class FrameTrial {
public:
    // Takes the error handler and the parallel loop of the process; one at a time.
    FrameTrial();
    ~FrameTrial();
    FrameTrial(const FrameTrial&) = delete;
    FrameTrial& operator=(const FrameTrial&) = delete;

    // What is wrong; null if nothing is.
    const char* run(const Pipeline& pipeline, const uint8_t* bytes, std::size_t count);

    int64_t filtered() const { return filtered_; }
    int64_t refused() const { return refused_; }
    int64_t answered() const { return answered_; }

private:
    // A record and its dimensions, each beside a guard page.
    struct Record {
        GuardedBuffer memory{1};
        GuardedBuffer dimMemory{1};
        halide_buffer_t* buffer;
        halide_dimension_t* dim;
    };
    class Bytes;

    void shape(const diffusefilt::PipelineVariant& variant, const int32_t* extents, Bytes& bytes,
               Record& record);

    Record input_;
    Record output_;
    Comparison comparison_{std::size_t{1} << 18};
    halide_error_handler_t previousHandler_;
    halide_do_par_for_t previousLoop_;
    int64_t filtered_ = 0;
    int64_t refused_ = 0;
    int64_t answered_ = 0;
};

}  // namespace support
