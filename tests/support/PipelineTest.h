// SPDX-License-Identifier: MIT
// The fixture of a test that runs pipelines: skips those that the processor cannot run.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "reference/Neighbours.h"
#include "support/Pipelines.h"

namespace support {

class PipelineTest : public testing::TestWithParam<Pipeline> {
protected:
    void SetUp() override {
        if (!processorRuns(variant().instructionSet)) {
            GTEST_SKIP() << "the processor lacks the instruction set";
        }
    }

    const diffusefilt::PipelineVariant& variant() const { return GetParam().variant; }
    bool planar() const { return variant().dimensions == 2; }
    bool minimal() const { return variant().connectivity == diffusefilt::Connectivity::minimal; }
    bool narrow() const { return variant().elementType == diffusefilt::ElementType::float32; }
    int neighbours() const { return int(reference::neighboursOf(variant()).size()); }

    // Calls body(T{}) with the pipeline's element type T.
    template <class Body>
    void inElementType(Body body) {
        narrow() ? body(float{}) : body(double{});
    }
};

inline std::string nameOf(const testing::TestParamInfo<Pipeline>& info) {
    return info.param.name;
}

}  // namespace support
