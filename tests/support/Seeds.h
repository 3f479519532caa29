// SPDX-License-Identifier: MIT
// Random calls by their seeds. A failure is followed by the line that replays exactly this call,
// and so is a fault on a guard page, which ends the process.
#pragma once

#include <errno.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "support/CallCount.h"
#include "support/RandomNumbers.h"

namespace support {

inline char replayLine[400];
inline struct sigaction previousFaultAction;

inline void tellReplay(int) {
    if (write(STDERR_FILENO, replayLine, std::strlen(replayLine)) < 0) std::abort();
    sigaction(SIGSEGV, &previousFaultAction, nullptr);  // meets the fault again on return
}

// Calls body(seed) for callCount(quick, full) / portions seeds, the same each time for one
// `series`, until a failure; for that of DIFFUSEFILT_SEED alone where it is set. Returns how many
// it were.
template <class Body>
int64_t forSeeds(uint64_t series, int64_t quick, int64_t full, Body body, int portions = 1) {
    struct sigaction action = {};
    action.sa_handler = tellReplay;
    sigaction(SIGSEGV, &action, &previousFaultAction);
    const bool replays = std::getenv("DIFFUSEFILT_SEED") != nullptr;
    const int64_t count = replays ? 1 : callCount(quick, full) / portions + (portions > 1);
    const testing::TestInfo* const test = testing::UnitTest::GetInstance()->current_test_info();
    RandomNumbers seeds(series);
    for (int64_t i = 0; i < count && !testing::Test::HasFailure(); ++i) {
        const uint64_t seed = replays
                                  ? static_cast<uint64_t>(environmentNumber("DIFFUSEFILT_SEED", 0))
                                  : seeds.next();
        std::snprintf(replayLine, sizeof replayLine,
                      "replay: DIFFUSEFILT_SEED=0x%llx %s --gtest_filter=%s.%s\n",
                      static_cast<unsigned long long>(seed), program_invocation_name,
                      test->test_suite_name(), test->name());
        body(seed);
        if (testing::Test::HasFailure()) ADD_FAILURE() << replayLine;
    }
    sigaction(SIGSEGV, &previousFaultAction, nullptr);
    return count;
}

}  // namespace support
