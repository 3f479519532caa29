// One call of a pipeline whose parallel loop is taken by the test: the loop's arguments
// and a copy of the record are kept, and no task runs.
#pragma once

#include <cstring>

#include "schedules/closureRecords.h"
#include "support/FrameCall.h"

namespace support {

struct CapturedLoop {
    using Dimensions = std::vector<halide_dimension_t>;

    // What the captured loop returns, and so the entry.
    static constexpr int loopStatus = 4711;

    CapturedLoop(const Pipeline& pipeline, const Dimensions& inputDim, const Dimensions& outputDim,
                 double gradTIn)
        : call_(pipeline, 1) {
        std::copy(inputDim.begin(), inputDim.end(), call_.inputDim);
        std::copy(outputDim.begin(), outputDim.end(), call_.outputDim);
        // In-line calls do run: in the middle of the memory, where every small shape fits.
        call_.input.host += call_.inputMemory.size() / 2;
        call_.output.host += call_.outputMemory.size() / 2;
        call_.gradTIn = gradTIn;
        current() = this;
        const halide_do_par_for_t previous = halide_set_custom_do_par_for(capture);
        status = call_.run();
        halide_set_custom_do_par_for(previous);
    }

    void* inputHost() { return call_.input.host; }
    void* outputHost() { return call_.output.host; }
    void* inputBuffer() { return &call_.input; }
    void* outputBuffer() { return &call_.output; }

    // The record as one of the library's own types.
    template <class Record>
    Record as() const {
        Record result;
        std::memcpy(&result, record.data(), sizeof(result));
        return result;
    }

    bool ran = false;
    int status = 0;
    void* userContext = nullptr;
    int first = 0;
    int count = 0;
    std::vector<uint8_t> record;

private:
    template <template <diffusefilt::Connectivity, class> class Record>
    static size_t sizeOf(const diffusefilt::PipelineVariant& variant) {
        using diffusefilt::Connectivity;
        const bool isDouble = variant.elementBits() == 64;
        if (variant.connectivity == Connectivity::minimal) {
            return isDouble ? sizeof(Record<Connectivity::minimal, double>)
                            : sizeof(Record<Connectivity::minimal, float>);
        }
        return isDouble ? sizeof(Record<Connectivity::maximal, double>)
                        : sizeof(Record<Connectivity::maximal, float>);
    }

    static CapturedLoop*& current() {
        static CapturedLoop* loop = nullptr;
        return loop;
    }

    static int capture(void* userContext, halide_task_t, int first, int count, uint8_t* closure) {
        CapturedLoop& loop = *current();
        loop.ran = true;
        loop.userContext = userContext;
        loop.first = first;
        loop.count = count;
        const diffusefilt::PipelineVariant& variant = loop.call_.pipeline->variant;
        const size_t size = variant.dimensions == 3 ? sizeOf<diffusefilt::PlaneClosure>(variant)
                                                    : sizeOf<diffusefilt::RowClosure>(variant);
        loop.record.assign(closure, closure + size);
        return loopStatus;
    }

    FrameCall call_;
};

}  // namespace support
