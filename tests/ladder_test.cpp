// What an entry does before it filters: the checks, the queries, and their order. The model
// holds all of it on arbitrary records; the examples show what a host reads.
#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>

#include "support/CallCount.h"
#include "support/FrameCall.h"
#include "support/FrameTrial.h"
#include "support/RandomNumbers.h"

namespace {

using namespace support;

class Ladder : public PipelineTest {};

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

INSTANTIATE_TEST_SUITE_P(Pipelines, Ladder, testing::ValuesIn(pipelines()), nameOf);

const Pipeline& example() {
    return *findPipeline("diffusefilt3_minimal_quadratic_float64_none");
}

TEST(LadderExample, EachRowSpeaksInItsWords) {
    const struct {
        int code;
        const char* message;
        std::function<void(FrameCall&)> plant;
    } faults[] = {
        {-12, "Buffer argument keyimForType is NULL",
         [](FrameCall& c) { c.inputArgument = nullptr; }},
        {-12, "Buffer argument diffusefilt3 is NULL",
         [](FrameCall& c) { c.outputArgument = nullptr; }},
        {-3,
         "Output buffer diffusefilt3 has type float64 but type of the buffer passed in is uint8",
         [](FrameCall& c) { c.output.type = halide_type_of<uint8_t>(); }},
        {-3, "Input buffer keyimForType has type float64 but type of the buffer passed in is int16",
         [](FrameCall& c) { c.input.type = halide_type_of<int16_t>(); }},
        {-4,
         "Input buffer keyimForType is accessed at 0, which is before the min (1) in dimension 0",
         [](FrameCall& c) { c.inputDim[0].min = 1; }},
        {-4,
         "Input buffer keyimForType is accessed at 3, which is beyond the max (1) in dimension 1",
         [](FrameCall& c) { c.inputDim[1].min = -2; }},
        {-28, "The extents for buffer Output buffer diffusefilt3 dimension 2 is negative (-1)",
         [](FrameCall& c) { c.outputDim[2].extent = -1; }},
        {-8, "Constraint violated: diffusefilt3.stride.0 (2) == 1 (1)",
         [](FrameCall& c) { c.outputDim[0].stride = 2; }},
        {-8, "Constraint violated: keyimForType.stride.0 (-1) == 1 (1)",
         [](FrameCall& c) { c.inputDim[0].stride = -1; }},
        {-34,
         "The host pointer of Input buffer keyimForType is null, but the pipeline will access it "
         "on the host.",
         [](FrameCall& c) {
             c.input.host = nullptr;
             c.input.device = 7;
         }},
    };
    for (const auto& [code, message, plant] : faults) {
        const MessageCatcher catcher;
        FrameCall call(example(), 2);
        plant(call);
        EXPECT_EQ(call.run(), code);
        EXPECT_EQ(catcher.messages(), std::vector<std::string>{message});
        EXPECT_TRUE(call.outputIsUntouched());
    }
}

// An output narrower than a vector is widened to the left where the input is wider than one;
// the input is given what the answer reads, and a record made from both filters.
TEST(LadderExample, AQueryIsAnsweredWithAShapeThatFits) {
    FrameCall call(example(), 20);
    call.outputDim[0] = {3, 1, 9, 5};
    call.input.host = call.output.host = nullptr;
    ASSERT_EQ(call.run(), 0);
    const halide_dimension_t output[] = {{2, 2, 1}, {0, 4, 2}, {0, 3, 8}};
    const halide_dimension_t input[] = {{1, 4, 1}, {0, 4, 4}, {0, 3, 16}};
    for (int d = 0; d < 3; ++d) {
        EXPECT_EQ(call.outputDim[d], output[d]) << d;
        EXPECT_EQ(call.inputDim[d], input[d]) << d;
    }
    call.inputDim[0] = {0, 20, 1};
    call.input.host = reinterpret_cast<uint8_t*>(call.inputMemory.data());
    call.output.host = reinterpret_cast<uint8_t*>(call.outputMemory.data());
    EXPECT_EQ(call.run(), 0);
    EXPECT_FALSE(call.outputIsUntouched());
}

TEST(LadderDeathTest, TheDefaultHandlerPrintsAndAborts) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_DEATH(
        {
            dup2(STDERR_FILENO, STDOUT_FILENO);  // where the runtime prints
            example().entry(nullptr, 1.0, nullptr);
        },
        "^Error: Buffer argument keyimForType is NULL\n");
}

}  // namespace
