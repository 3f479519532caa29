// SPDX-License-Identifier: MIT
// The parallel loop on TBB, through the runtime's interface: ranges, statuses, hooks,
// exceptions, and any number of calls at once.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <barrier>
#include <cstdlib>
#include <functional>
#include <limits>
#include <map>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

#include "support/Bits.h"
#include "support/CallCount.h"
#include "support/FrameCall.h"
#include "support/PipelineTest.h"
#include "support/RandomNumbers.h"
#include "support/SmallImage.h"
#include "support/TaskObserver.h"
#include "support/Threads.h"

namespace {

using namespace support;

// A loop whose tasks count themselves and return what `statuses` says.
struct Loop {
    int run(int min, int extent) {
        return halide_do_par_for(this, task, min, extent, reinterpret_cast<uint8_t*>(this));
    }

    static int task(void* userContext, int number, uint8_t* closure) {
        auto& loop = *reinterpret_cast<Loop*>(closure);
        EXPECT_EQ(userContext, closure);
        const std::lock_guard lock(loop.mutex);
        ++loop.runs[number];
        const auto status = loop.statuses.find(number);
        if (status == loop.statuses.end()) return 0;
        return loop.lastFailure = status->second;
    }

    std::mutex mutex;
    std::map<int, int> runs;
    std::map<int, int> statuses;
    int lastFailure = 0;
};

TEST(ParallelLoop, RunsEachTaskOnceAndReturnsAFailure) {
    const struct {
        int min, extent;
        std::map<int, int> statuses;
    } loops[] = {{0, 1, {}},    {-7, 20, {}},          {2147483600, 47, {}},
                 {5, 1000, {}}, {0, 100, {{17, -99}}}, {0, 100, {{3, 5}, {96, -6}}}};
    for (const int threads : {1, 2, 7}) {
        for (const auto& [min, extent, statuses] : loops) {
            Loop loop;
            loop.statuses = statuses;
            int status = 0;
            withThreads(threads, [&] { status = loop.run(min, extent); });
            EXPECT_EQ(loop.runs.size(), size_t(extent));
            EXPECT_EQ(loop.runs.begin()->first, min);
            EXPECT_EQ(loop.runs.rbegin()->first, min + (extent - 1));
            for (const auto& [number, count] : loop.runs) EXPECT_EQ(count, 1) << number;
            const bool isOne =
                std::ranges::any_of(statuses, [&](const auto& of) { return of.second == status; });
            EXPECT_TRUE(statuses.empty() ? status == 0 : isOne) << status;
            EXPECT_TRUE(threads > 1 || status == loop.lastFailure);  // overwrites one before it
        }
    }
}

TEST(ParallelLoop, EmptyAndWrappingRangesRunNothing) {
    TaskObserver observer;
    constexpr int lowest = std::numeric_limits<int>::min(), highest = ~lowest;
    for (const auto& [min, extent] :
         {std::pair{3, 0}, {3, -1}, {0, lowest}, {2147483600, 48}, {highest, highest}}) {
        Loop loop;
        loop.statuses[min] = -1;
        EXPECT_EQ(loop.run(min, extent), 0) << min << ", " << extent;
    }
    EXPECT_EQ(observer.tasks(), 0);
}

// A task hook that strikes the odd tasks.
enum class Trouble { fails, throws, nests };
Trouble trouble;
const Pipeline* troubled = nullptr;
std::atomic<int> nestsLeft;
std::vector<uint8_t> expectedOutput;

int troubledTask(void* userContext, halide_task_t task, int number, uint8_t* closure) {
    if (number % 2 == 1) {
        if (trouble == Trouble::fails) return -100 - number;
        if (trouble == Trouble::throws) throw std::runtime_error("thrown by a task hook");
        if (nestsLeft-- > 0) {
            FrameCall nested(*troubled, 30);
            if (nested.run() != 0 || nested.memory[1] != expectedOutput) return -1;
        }
    }
    return task(userContext, number, closure);
}

class TaskHook : public PipelineTest {};

// All the other tasks run where some fail, and after trouble of any kind the next call is
// served as ever.
TEST_P(TaskHook, MayFailThrowAndNest) {
    troubled = &GetParam();
    FrameCall expected(*troubled, 30);
    ASSERT_EQ(expected.run(), 0);
    expectedOutput = expected.memory[1];
    for (const Trouble kind : {Trouble::fails, Trouble::throws, Trouble::nests}) {
        FrameCall call(*troubled, 30);
        trouble = kind;
        nestsLeft = 3;
        const halide_do_task_t previous = halide_set_custom_do_task(troubledTask);
        if (kind == Trouble::throws) {
            EXPECT_THROW(call.run(), std::runtime_error);
        } else {
            const int status = call.run();
            EXPECT_TRUE(kind == Trouble::nests ? status == 0 : status == -101 || status == -103);
        }
        halide_set_custom_do_task(previous);
        const size_t taskBytes = size_t(call.dim[1][variant().dimensions - 1].stride) *
                                 size_t(variant().elementBits()) / 8;
        for (size_t i = 0; kind != Trouble::throws && i < 4 * taskBytes; ++i) {
            const bool isStruck = kind == Trouble::fails && i / taskBytes % 2 == 1;
            ASSERT_EQ(call.memory[1][i], isStruck ? FrameCall::junk : expectedOutput[i]);
        }
        EXPECT_EQ(call.run(), 0);
        EXPECT_EQ(call.memory[1], expectedOutput);
    }
}

INSTANTIATE_TEST_SUITE_P(Pipelines, TaskHook, testing::ValuesIn(pipelines()), nameOf);

// The host may put the runtime's own pool in place, which HL_NUM_THREADS governs, and not the
// loop on TBB; what it gets back is ours, and handing that over restores it.
TEST(ParallelLoop, TheHostMayReplaceIt) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the runtime's own pool is not instrumented";
#endif
    FrameCall call(pipelines().front(), 30);
    TaskObserver observer;
    const auto run = [&] { EXPECT_EQ(call.run(), 0); };
    setenv("HL_NUM_THREADS", "1", 1);
    withThreads(2, [&] { EXPECT_TRUE(observer.meetOn(2, run)) << observer.threads(); });
    const auto onTBB = call.memory[1];
    const halide_do_par_for_t ours = halide_set_custom_do_par_for(halide_default_do_par_for);
    EXPECT_NE(ours, nullptr);
    for (const int threads : {1, 3}) {
        setenv("HL_NUM_THREADS", std::to_string(threads).c_str(), 1);
        halide_set_num_threads(0);  // reads the variable
        std::ranges::fill(call.memory[1], FrameCall::junk);
        EXPECT_TRUE(observer.meetOn(threads, run)) << observer.threads();
        EXPECT_EQ(call.memory[1], onTBB);
        halide_shutdown_thread_pool();
    }
    EXPECT_EQ(halide_set_custom_do_par_for(ours), &halide_default_do_par_for);
    EXPECT_NE(ours, &halide_default_do_par_for);
    unsetenv("HL_NUM_THREADS");
}

// 64 threads of the host call all pipelines at once, directly and from tasks of their own.
TEST(ParallelLoop, ManyHostThreadsAndNestedCallsGiveTheSameBits) {
    constexpr int hostThreads = 64;
    const int64_t rounds = callCount(100, 5000);
    static std::vector<std::function<bool()>> works;
    const auto add = [&]<class T>(T, const Pipeline& pipeline, uint64_t seed) {
        const auto call =
            makeRandomCall(seed, pipeline.variant.dimensions, pipeline.variant.lanes());
        works.push_back([&pipeline, call, expected = outputOf<T>(pipeline, call)] {
            const std::vector<T> found = outputOf<T>(pipeline, call);
            return std::equal(found.begin(), found.end(), expected.begin(), sameBits<T>);
        });
    };
    RandomNumbers random(20240608);
    for (const Pipeline& pipeline : pipelines()) {
        if (!processorRuns(pipeline.variant.instructionSet)) continue;
        for (int i = 0; i < 4; ++i) {
            pipeline.variant.elementBits() == 32 ? add(float{}, pipeline, random.next())
                                                 : add(double{}, pipeline, random.next());
        }
    }
    const auto task = [](void*, int number, uint8_t*) {
        return works[static_cast<size_t>(number) % works.size()]() ? 0 : -1;
    };
    std::atomic<int> faults = 0;
    std::barrier start(hostThreads);
    std::vector<std::jthread> threads;
    for (int i = 0; i < hostThreads; ++i) {
        threads.emplace_back([&, i] {
            start.arrive_and_wait();
            for (int n = 0; n < rounds; ++n) {
                const int number = 7 * i + 3 * n;
                faults += (n % 2 == 1 ? halide_do_par_for(nullptr, task, number, 3, nullptr)
                                      : task(nullptr, number, nullptr)) != 0;
            }
        });
    }
    threads.clear();  // joins
    works.clear();
    EXPECT_EQ(faults, 0);
    RecordProperty("calls from 64 host threads at once", std::to_string(hostThreads * rounds * 2));
}

}  // namespace
