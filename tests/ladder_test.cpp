// SPDX-License-Identifier: MIT
// What an entry does before it filters: the checks, the queries, and their order. The model
// holds all of it on arbitrary records.
#include <gtest/gtest.h>
#include <unistd.h>

#include "support/FrameTrial.h"
#include "support/PipelineTest.h"
#include "support/Seeds.h"

namespace {

using namespace support;

class Ladder : public PipelineTest {};

// Records with any number of faults, queried ones and sound ones, against the model.
TEST_P(Ladder, ArbitraryRecordsMatchTheModel) {
    FrameTrial trial;
    const int64_t calls = forSeeds(20240609, 2000, 100000, [&](uint64_t seed) {
        RandomNumbers random(seed);
        uint64_t bytes[16];
        for (uint64_t& b : bytes) b = random.next();
        EXPECT_STREQ(trial.run(GetParam(), reinterpret_cast<uint8_t*>(bytes), sizeof bytes),
                     nullptr)
            << GetParam().name;
    });
    EXPECT_GE(trial.filtered(), calls / 50);
    EXPECT_GE(trial.refused(), calls / 5);
    EXPECT_GE(trial.answered(), calls / 10);
    RecordProperty("arbitrary records that match the model", std::to_string(calls));
}

INSTANTIATE_TEST_SUITE_P(Pipelines, Ladder, testing::ValuesIn(pipelines()), nameOf);

TEST(LadderDeathTest, TheDefaultHandlerPrintsAndAborts) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_DEATH(
        {
            dup2(STDERR_FILENO, STDOUT_FILENO);  // where the runtime prints
            pipelines().front().entry(nullptr, 1.0, nullptr);
        },
        "^Error: Buffer argument keyimForType is NULL\n");
}

}  // namespace
