// The checks of an entry: each row broken by itself, with its exact words and code, and any
// together, to hold the order.
#include <gtest/gtest.h>
#include <unistd.h>

#include <climits>
#include <functional>

#include "support/CallCount.h"
#include "support/FrameCall.h"
#include "support/FrameTrial.h"
#include "support/RandomNumbers.h"

namespace {

using namespace support;

struct Fault {
    const char* name;
    int code;
    std::string message;
    std::function<void(FrameCall&)> plant;
};

// The faults that can be planted into a call of width L, in the order of the ladder.
std::vector<Fault> faultsOf(const Pipeline& pipeline) {
    const int n = pipeline.variant.dimensions;
    const int32_t L = pipeline.variant.lanes();
    const std::string bare = "diffusefilt" + std::to_string(n);
    const std::string out = "Output buffer " + bare;
    const std::string in = "Input buffer keyimForType";
    const std::string type = "float" + std::to_string(pipeline.variant.elementBits());
    const auto negative = [](const std::string& name, int d, int extent) {
        return "The extents for buffer " + name + " dimension " + std::to_string(d) +
               " is negative (" + std::to_string(extent) + ")";
    };
    const auto beyond = [&](int d, int touched, int max) {
        return in + " is accessed at " + std::to_string(touched) + ", which is beyond the max (" +
               std::to_string(max) + ") in dimension " + std::to_string(d);
    };
    std::vector<Fault> faults = {
        {"NullInput", -12, "Buffer argument keyimForType is NULL",
         [](FrameCall& c) { c.inputArgument = nullptr; }},
        {"NullOutput", -12, "Buffer argument " + bare + " is NULL",
         [](FrameCall& c) { c.outputArgument = nullptr; }},
        {"OutputType", -3, out + " has type " + type + " but type of the buffer passed in is uint8",
         [](FrameCall& c) {
             c.output.type = {halide_type_uint, 8};
         }},
        {"InputType", -3, in + " has type " + type + " but type of the buffer passed in is int16",
         [](FrameCall& c) {
             c.input.type = {halide_type_int, 16};
         }},
        {"OutputBounds", -4, out + " is accessed at -1, which is before the min (0) in dimension 0",
         [L](FrameCall& c) {
             c.inputDim[0].extent = L + 1;
             c.outputDim[0].extent = L - 1;
         }},
        {"OutputExtent0", -28, negative(out, 0, -2),
         [](FrameCall& c) { c.outputDim[0].extent = -2; }},
        {"OutputExtent1", -28, negative(out, 1, -3),
         [](FrameCall& c) { c.outputDim[1].extent = -3; }},
        {"OutputExtent2", -28, negative(out, 2, -1),
         [](FrameCall& c) { c.outputDim[2].extent = -1; }},
        {"InputBounds0", -4, in + " is accessed at 0, which is before the min (1) in dimension 0",
         [](FrameCall& c) { c.inputDim[0].min = 1; }},
        {"InputExtent0", -28, negative(in, 0, INT_MIN),
         [](FrameCall& c) {
             c.inputDim[0] = {0, INT_MIN, 1};
         }},
        {"InputBounds1", -4, beyond(1, 3, 1), [](FrameCall& c) { c.inputDim[1].min = -2; }},
        {"InputExtent1", -28, negative(in, 1, INT_MIN),
         [](FrameCall& c) {
             c.inputDim[1] = {0, INT_MIN, FrameCall::room};
         }},
        {"InputBounds2", -4, beyond(2, 0, -1), [](FrameCall& c) { c.inputDim[2].extent = 0; }},
        {"InputExtent2", -28, negative(in, 2, INT_MIN),
         [](FrameCall& c) {
             c.inputDim[2] = {0, INT_MIN, 1};
         }},
        {"OutputStride", -8, "Constraint violated: " + bare + ".stride.0 (2) == 1 (1)",
         [](FrameCall& c) { c.outputDim[0].stride = 2; }},
        {"InputStride", -8, "Constraint violated: keyimForType.stride.0 (-1) == 1 (1)",
         [](FrameCall& c) { c.inputDim[0].stride = -1; }},
        {"OutputHost", -34,
         "The host pointer of " + out + " is null, but the pipeline will access it on the host.",
         [](FrameCall& c) {
             c.output.host = nullptr;
             c.output.device = 1;
         }},
        {"InputHost", -34,
         "The host pointer of " + in + " is null, but the pipeline will access it on the host.",
         [](FrameCall& c) {
             c.input.host = nullptr;
             c.input.device = 7;
         }},
    };
    if (n == 2) {
        std::erase_if(faults, [](const Fault& f) { return std::string(f.name).back() == '2'; });
    }
    return faults;
}

class Ladder : public PipelineTest {
protected:
    int32_t lanes() const { return GetParam().variant.lanes(); }
    MessageCatcher catcher_;
};

TEST_P(Ladder, EachRowSpeaksInItsWords) {
    for (const Fault& fault : faultsOf(GetParam())) {
        SCOPED_TRACE(fault.name);
        FrameCall call(GetParam(), lanes());
        fault.plant(call);
        catcher_.messages().clear();
        EXPECT_EQ(call.run(), fault.code);
        EXPECT_EQ(catcher_.messages(), std::vector{fault.message});
        EXPECT_TRUE(call.outputIsUntouched());
    }
}

// Records with any number of faults, queried ones and sound ones, against the model.
TEST_P(Ladder, ArbitraryRecordsMatchTheModel) {
    FrameTrial trial;
    RandomNumbers random(20240609);
    const int64_t calls = callCount(2000, 100000);
    for (int64_t i = 0; i < calls; ++i) {
        uint64_t bytes[16];
        for (uint64_t& b : bytes) b = random.next();
        const char* wrong = trial.run(GetParam(), reinterpret_cast<uint8_t*>(bytes), sizeof bytes);
        ASSERT_EQ(wrong, nullptr) << wrong << " of call " << i;
    }
    EXPECT_GT(trial.filtered(), calls / 50);
    EXPECT_GT(trial.refused(), calls / 5);
    EXPECT_GT(trial.answered(), calls / 10);
    RecordProperty("arbitrary records that match the model", std::to_string(calls));
}

// What no row looks at: the dimension count, flags, other strides, the threshold.
TEST_P(Ladder, WhatIsNotCheckedPasses) {
    FrameCall call(GetParam(), lanes() + 1);
    call.input.dimensions = 17;
    call.output.dimensions = 0;
    call.output.flags = ~uint64_t{0};
    call.outputDim[0].flags = 3;
    call.inputDim[1].stride = 0;
    call.gradTIn = 0;
    EXPECT_EQ(call.run(), 0);
    EXPECT_TRUE(catcher_.messages().empty());
    EXPECT_FALSE(call.outputIsUntouched());
}

// Wide inputs need an output of a whole vector; narrow ones, and empty outputs of more
// than one dimension, do not.
TEST_P(Ladder, OutputWidthMattersOnlyToVectors) {
    for (const int32_t width : {lanes(), lanes() + 1}) {
        for (const int32_t outputWidth : {0, 1, lanes() - 1, lanes()}) {
            FrameCall call(GetParam(), width);
            call.outputDim[0] = {5, outputWidth, 1};
            const bool passes = width == lanes() || outputWidth >= lanes();
            EXPECT_EQ(call.run(), passes ? 0 : -4) << width << ", " << outputWidth;
        }
    }
    FrameCall call(GetParam(), lanes() + 1);
    call.outputDim[GetParam().variant.dimensions - 1].extent = 0;
    EXPECT_EQ(call.run(), 0);
    EXPECT_TRUE(call.outputIsUntouched());
}

TEST(LadderDeathTest, TheDefaultHandlerPrintsAndAborts) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    for (const Pipeline& pipeline : {pipelines().front(), pipelines().back()}) {
        EXPECT_DEATH(
            {
                dup2(STDERR_FILENO, STDOUT_FILENO);  // where the runtime prints
                pipeline.entry(nullptr, 1.0, nullptr);
            },
            "^Error: Buffer argument keyimForType is NULL\n");
    }
}

INSTANTIATE_TEST_SUITE_P(Pipelines, Ladder, testing::ValuesIn(pipelines()), nameOf);

}  // namespace
