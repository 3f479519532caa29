// Every pipeline of the table against the scalar reference, bit for bit: random calls on
// guarded memory, with 1, 2, 3, 7 and 10 threads. DIFFUSEFILT_SEED replays the one call of a
// reported seed.
#include <HalideRuntime.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "reference/Reference.h"
#include "support/Bits.h"
#include "support/CallCount.h"
#include "support/GuardedBuffer.h"
#include "support/HalideBuffer.h"
#include "support/PipelineTest.h"
#include "support/RandomCall.h"
#include "support/RandomNumbers.h"
#include "support/TaskObserver.h"
#include "support/Threads.h"

namespace {

using namespace support;

constexpr int threadCounts[] = {1, 2, 3, 7, 10};
constexpr std::size_t bufferCapacity = std::size_t{1} << 20;

void failOnError(void*, const char* message) {
    ADD_FAILURE() << "reported: " << message;
}

bool hasNegativeStride(const Shape& shape) {
    return std::any_of(shape.stride, shape.stride + shape.dimensions,
                       [](int32_t stride) { return stride < 0; });
}

// A fault on a guard page ends the process, so the call that made it is named first.
volatile uint64_t seedOfCall = 0;
struct sigaction previousFaultAction;

void nameCall(int signal) {
    char text[80];
    const int length = std::snprintf(text, sizeof text, "fault in the call of seed 0x%llx\n",
                                     static_cast<unsigned long long>(seedOfCall));
    if (write(STDERR_FILENO, text, static_cast<std::size_t>(length)) < length) std::abort();
    sigaction(signal, &previousFaultAction, nullptr);  // meets the fault again on return
}

// Runs calls of one pipeline and compares what they leave in memory.
template <class T>
class Comparison {
public:
    explicit Comparison(const Pipeline& pipeline)
        : pipeline_(pipeline), input_(bufferCapacity), output_(bufferCapacity) {}

    // What is wrong after the call; empty if nothing is.
    std::string run(const RandomCall& call) {
        const Span inputSpan = spanOf(call.input);
        const Span outputSpan = spanOf(call.output);
        T* input = input_.place<T>(inputSpan.count, call.inputPlacement);
        T* output = output_.place<T>(outputSpan.count, call.outputPlacement);
        // The margins on the sides without a guard.
        const int64_t before = call.outputPlacement == Placement::atBeginning ? 0 : margin;
        const int64_t behind = call.outputPlacement == Placement::atEnd ? 0 : margin;
        T* const watched = output - before;
        const int64_t watchedCount = before + outputSpan.count + behind;
        expected_.assign(watchedCount, junk);
        std::fill_n(watched, watchedCount, junk);
        input_.makeWritable();
        fillContent(call, input, inputSpan.count);
        input_.makeReadOnly();

        const auto from = viewOf<const T>(call.input, input);
        const auto to = viewOf(call.output, output);
        const auto wanted = viewOf(call.output, expected_.data() + before);
        seedOfCall = call.seed;
        const int status = pipeline_.entry(HalideBuffer(from), call.gradTIn, HalideBuffer(to));
        if (status != 0) return "returned " + std::to_string(status);
        reference::filter(pipeline_.variant, from, call.gradTIn, wanted);

        const auto [foundAt, wantedAt] =
            std::mismatch(watched, watched + watchedCount, expected_.begin(),
                          [](T a, T b) { return sameBits(a, b); });
        if (foundAt == watched + watchedCount) return {};
        return "the place " + std::to_string(foundAt - output) + " behind the lowest element is " +
               showBits(*foundAt) + ", wanted " + showBits(*wantedAt) +
               (sameBits(*wantedAt, junk) ? ", no element" : "");
    }

private:
    static constexpr int64_t margin = 64;
    static constexpr T junk = T(-6328.7212);  // no NaN, so that a change of it shows

    const Pipeline& pipeline_;
    GuardedBuffer input_;
    GuardedBuffer output_;
    std::vector<T> expected_;
};

class Agreement : public PipelineTest {
protected:
    void SetUp() override {
        PipelineTest::SetUp();
        struct sigaction action = {};
        action.sa_handler = nameCall;
        sigaction(SIGSEGV, &action, &previousFaultAction);
    }
    void TearDown() override {
        sigaction(SIGSEGV, &previousFaultAction, nullptr);
        halide_set_error_handler(previousHandler_);
    }

    template <class T>
    void compareCalls();
    template <class T>
    void comparePortion(Comparison<T>& comparison, int threads, int64_t calls);
    template <class T>
    void meetOnWideImage(int threads);
    void recordFigures(int64_t calls);

    TaskObserver observer_;
    halide_error_handler_t previousHandler_ = halide_set_error_handler(failOnError);
    RandomNumbers seeds_{20240501};
    int64_t inLineCalls_ = 0;
    int64_t parallelCalls_ = 0;
    int64_t negativeStrides_ = 0;
    int64_t placed_[2][placements] = {};  // calls with the input, the output at each placement
};

template <class T>
void Agreement::compareCalls() {
    Comparison<T> comparison(GetParam());
    const int64_t seed = environmentNumber("DIFFUSEFILT_SEED", -1);
    if (seed != -1) {
        const auto call =
            makeRandomCall(static_cast<uint64_t>(seed), variant().dimensions, variant().lanes());
        ASSERT_EQ(comparison.run(call), "") << describe(call);
        return;
    }
    const int64_t calls = callCount(variant().dimensions == 2 ? 20000 : 10000, 20000);
    for (const int threads : threadCounts) {
        withThreads(threads, [&] {
            comparePortion(comparison, threads, calls / std::ssize(threadCounts) + 1);
        });
        if (HasFatalFailure()) return;
    }
    EXPECT_GT(inLineCalls_, calls / 4);
    EXPECT_GT(parallelCalls_, calls / 4);
    EXPECT_GT(negativeStrides_, calls / 4);
    for (const auto& ofBuffer : placed_) {
        for (const int64_t count : ofBuffer) EXPECT_GE(count, calls < 20000 ? calls / 4 : 5600);
    }
    recordFigures(calls);
}

void Agreement::recordFigures(int64_t calls) {
    const auto both = [&](Placement placement) {
        const int at = static_cast<int>(placement);
        return std::to_string(std::min(placed_[0][at], placed_[1][at]));
    };
    RecordProperty("calls that agree with the reference", std::to_string(calls));
    RecordProperty("with negative strides", std::to_string(negativeStrides_));
    RecordProperty("input, and output, ends at a guard page", both(Placement::atEnd));
    RecordProperty("input, and output, begins at a guard page", both(Placement::atBeginning));
    RecordProperty("input, and output, far from a guard page", both(Placement::inMiddle));
}

template <class T>
void Agreement::comparePortion(Comparison<T>& comparison, int threads, int64_t calls) {
    for (int64_t i = 0; i < calls; ++i) {
        const auto call = makeRandomCall(seeds_.next(), variant().dimensions, variant().lanes());
        observer_.restart();
        ASSERT_EQ(comparison.run(call), "") << describe(call) << ", threads " << threads;
        const int wantedTasks = call.inLine ? 0 : call.output.extent[variant().dimensions - 1];
        ASSERT_EQ(observer_.tasks(), wantedTasks) << describe(call);
        ASSERT_LE(observer_.threads(), threads);
        ++(call.inLine ? inLineCalls_ : parallelCalls_);
        negativeStrides_ += hasNegativeStride(call.input) || hasNegativeStride(call.output);
        ++placed_[0][static_cast<int>(call.inputPlacement)];
        ++placed_[1][static_cast<int>(call.outputPlacement)];
    }
}

// An image of many rows or planes whose tasks wait until all the threads have come.
template <class T>
void Agreement::meetOnWideImage(int threads) {
    Comparison<T> comparison(GetParam());
    RandomCall call = {};
    const int width = 4 * variant().lanes() + 3;
    call.input = {variant().dimensions, {0, 0, 0}, {width, 64, 1}, {1, width, width * 64}};
    if (variant().dimensions == 3) {
        call.input = {3, {0, 0, 0}, {width, 3, 64}, {1, width, width * 3}};
    }
    call.output = call.input;
    call.gradTIn = 40;
    call.content = Content::noise;
    withThreads(threads, [&] {
        EXPECT_TRUE(observer_.meetOn(
            threads, [&] { EXPECT_EQ(comparison.run(call), "") << describe(call); }))
            << observer_.threads() << " of " << threads << " threads came";
    });
}

TEST_P(Agreement, RandomCallsMatchTheReference) {
    inElementType([&]<class T>(T) { compareCalls<T>(); });
}

TEST_P(Agreement, ThreadsShareOneCall) {
    for (const int threads : threadCounts) {
        inElementType([&]<class T>(T) { meetOnWideImage<T>(threads); });
        if (HasFailure()) return;
    }
}

INSTANTIATE_TEST_SUITE_P(Pipelines, Agreement, testing::ValuesIn(pipelines()), nameOf);

}  // namespace
