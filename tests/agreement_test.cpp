// SPDX-License-Identifier: MIT
// Every pipeline of the table against the scalar reference, bit for bit: random calls on
// guarded memory, with 1, 2, 3, 7 and 10 threads.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>

#include "support/Comparison.h"
#include "support/HalideBuffer.h"
#include "support/PipelineTest.h"
#include "support/Seeds.h"
#include "support/TaskObserver.h"
#include "support/Threads.h"

namespace {

using namespace support;
using reference::View;

constexpr int threadCounts[] = {1, 2, 3, 7, 10};

void failOnError(void*, const char* message) {
    ADD_FAILURE() << "reported: " << message;
}

bool hasNegativeStride(const Shape& shape) {
    return std::any_of(shape.stride, shape.stride + shape.dimensions,
                       [](int32_t stride) { return stride < 0; });
}

class Agreement : public PipelineTest {
protected:
    void TearDown() override { halide_set_error_handler(previousHandler_); }

    template <class T>
    void compare(const RandomCall& call) {
        const auto enter = [&](const View<const T>& from, const View<T>& to) {
            return GetParam().entry(HalideBuffer(from), call.gradTIn, HalideBuffer(to));
        };
        EXPECT_STREQ(comparison_.run<T>(variant(), call, enter), nullptr)

            << GetParam().name;
    }

    void count(const RandomCall& call) {
        ++counts_[call.inLine ? "in line" : "in parallel"];
        counts_["with negative strides"] +=
            hasNegativeStride(call.input) || hasNegativeStride(call.output);
        const std::string places[] = {"ends at a guard page", "begins at a guard page",
                                      "lies far from a guard page"};
        ++counts_["input " + places[static_cast<int>(call.inputPlacement)]];
        ++counts_["output " + places[static_cast<int>(call.outputPlacement)]];
    }

    Comparison comparison_{std::size_t{1} << 20};
    TaskObserver observer_;
    halide_error_handler_t previousHandler_ = halide_set_error_handler(failOnError);
    std::map<std::string, int64_t> counts_;
};

TEST_P(Agreement, RandomCallsMatchTheReference) {
    int64_t calls = 0;
    const auto runOne = [&](uint64_t seed, int threads) {
        const RandomCall call = makeRandomCall(seed, variant().dimensions, variant().lanes());
        observer_.restart();
        inElementType([&]<class T>(T) { compare<T>(call); });
        EXPECT_EQ(observer_.tasks(),
                  call.inLine ? 0 : call.output.extent[variant().dimensions - 1]);
        EXPECT_LE(observer_.atOnce(), threads);
        count(call);
    };
    for (const int threads : threadCounts) {
        withThreads(threads, [&] {
            calls += forSeeds(
                20240501 + threads, planar() ? 20000 : 10000, 20000,
                [&](uint64_t seed) { runOne(seed, threads); }, std::ssize(threadCounts));
        });
    }
    if (HasFailure()) return;
    RecordProperty("calls that agree with the reference", std::to_string(calls));
    for (const auto& [name, number] : counts_) {
        EXPECT_GE(number, calls > 100 ? calls / 4 : 0) << name;
        RecordProperty(name, std::to_string(number));
    }
}

// A picture of many rows or planes whose tasks wait until all the threads have come.
TEST_P(Agreement, ThreadsShareOneCall) {
    RandomCall call = {};
    const int width = 4 * variant().lanes() + 3;
    call.input = {variant().dimensions, {0, 0, 0}, {width, 64, 1}, {1, width, width * 64}};
    if (!planar()) call.input = {3, {0, 0, 0}, {width, 3, 64}, {1, width, width * 3}};
    call.output = call.input;
    call.gradTIn = 40;
    call.content = Content::noise;
    for (const int threads : threadCounts) {
        withThreads(threads, [&] {
            const auto run = [&] { inElementType([&]<class T>(T) { compare<T>(call); }); };
            EXPECT_TRUE(observer_.meetOn(threads, run))
                << observer_.threads() << " of " << threads << " threads came";
        });
        if (HasFailure()) return;
    }
}

INSTANTIATE_TEST_SUITE_P(Pipelines, Agreement, testing::ValuesIn(pipelines()), nameOf);

}  // namespace
