// The parallel loop on TBB, through the runtime's interface: ranges, statuses, hooks and
// exceptions.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <map>
#include <mutex>
#include <stdexcept>
#include <vector>

#include "support/FrameCall.h"
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

TEST(ParallelLoop, RunsEachTaskOnce) {
    for (const int threads : {1, 2, 7}) {
        withThreads(threads, [] {
            for (const auto& [min, extent] :
                 {std::pair{0, 1}, {-7, 20}, {2147483600, 47}, {5, 1000}}) {
                Loop loop;
                EXPECT_EQ(loop.run(min, extent), 0);
                EXPECT_EQ(loop.runs.size(), size_t(extent));
                EXPECT_EQ(loop.runs.begin()->first, min);
                EXPECT_EQ(loop.runs.rbegin()->first, min + (extent - 1));
                for (const auto& [number, count] : loop.runs) EXPECT_EQ(count, 1) << number;
            }
        });
    }
}

TEST(ParallelLoop, EmptyAndWrappingRangesRunNothing) {
    TaskObserver observer;
    for (const auto& [min, extent] : {std::pair{3, 0},
                                      {3, -1},
                                      {0, -2147483647 - 1},
                                      {2147483600, 48},
                                      {2147483647, 2147483647}}) {
        Loop loop;
        loop.statuses[min] = -1;
        EXPECT_EQ(loop.run(min, extent), 0) << min << ", " << extent;
    }
    EXPECT_EQ(observer.tasks(), 0);
}

TEST(ParallelLoop, FailuresAreReturnedAndStopNothing) {
    for (const int threads : {1, 2, 7}) {
        withThreads(threads, [threads] {
            Loop one;
            one.statuses[17] = -99;
            EXPECT_EQ(one.run(0, 100), -99);
            EXPECT_EQ(one.runs.size(), 100u);

            Loop two;
            two.statuses = {{3, 5}, {96, -6}};
            const int status = two.run(0, 100);
            EXPECT_TRUE(status == 5 || status == -6) << status;
            if (threads == 1) {
                EXPECT_EQ(status, two.lastFailure);  // overwrites the other
            }
            EXPECT_EQ(two.runs.size(), 100u);
        });
    }
}

// A task hook that strikes the odd tasks.
enum class Trouble { fails, throws, nests };
Trouble trouble;
const Pipeline* troubled = nullptr;
std::atomic<int> nestsLeft;
const std::vector<std::byte>* expectedOutput;

int troubledTask(void* userContext, halide_task_t task, int number, uint8_t* closure) {
    if (number % 2 == 1) {
        if (trouble == Trouble::fails) return -100 - number;
        if (trouble == Trouble::throws) throw std::runtime_error("thrown by a task hook");
        if (nestsLeft-- > 0) {
            FrameCall nested(*troubled, 30);
            nested.fillInput();
            if (nested.run() != 0 || nested.outputMemory != *expectedOutput) return -1;
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
    expected.fillInput();
    ASSERT_EQ(expected.run(), 0);
    expectedOutput = &expected.outputMemory;
    for (const Trouble kind : {Trouble::fails, Trouble::throws, Trouble::nests}) {
        FrameCall call(*troubled, 30);
        call.fillInput();
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
        const size_t taskBytes = size_t(call.outputDim[variant().dimensions - 1].stride) *
                                 size_t(variant().elementBits()) / 8;
        for (size_t i = 0; kind == Trouble::fails && i < 4 * taskBytes; ++i) {
            const bool isStruck = i / taskBytes % 2 == 1;
            ASSERT_EQ(call.outputMemory[i], isStruck ? std::byte{0x5a} : expected.outputMemory[i]);
        }
        if (kind == Trouble::nests) {
            EXPECT_EQ(call.outputMemory, expected.outputMemory);
        }
        EXPECT_EQ(call.run(), 0);
        EXPECT_EQ(call.outputMemory, expected.outputMemory);
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
    call.fillInput();
    TaskObserver observer;
    const auto run = [&] { EXPECT_EQ(call.run(), 0); };
    setenv("HL_NUM_THREADS", "1", 1);
    withThreads(2, [&] { EXPECT_TRUE(observer.meetOn(2, run)) << observer.threads(); });
    const auto onTBB = call.outputMemory;
    const halide_do_par_for_t ours = halide_set_custom_do_par_for(halide_default_do_par_for);
    EXPECT_NE(ours, nullptr);
    for (const int threads : {1, 3}) {
        setenv("HL_NUM_THREADS", std::to_string(threads).c_str(), 1);
        halide_set_num_threads(0);  // reads the variable
        std::ranges::fill(call.outputMemory, std::byte{0x5a});
        EXPECT_TRUE(observer.meetOn(threads, run)) << observer.threads();
        EXPECT_EQ(call.outputMemory, onTBB);
        halide_shutdown_thread_pool();
    }
    EXPECT_EQ(halide_set_custom_do_par_for(ours), &halide_default_do_par_for);
    EXPECT_NE(ours, &halide_default_do_par_for);
    unsetenv("HL_NUM_THREADS");
}

}  // namespace
