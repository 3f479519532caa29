// SPDX-License-Identifier: MIT
// The C++ layer for hosts against the C functions that it calls.
#include <gtest/gtest.h>

#include <vector>

#include "diffusefilt_halide.hpp"
#include "support/Pipelines.h"

namespace {

namespace host = diffusefilt_host;
using host::InstructionSet;

constexpr int32_t width = 21, height = 9, depth = 5;

// Rows stand in reverse and planes apart, with elements between them.
template <class T>
host::View<T> stridedView(std::vector<T>& memory, int dimensions) {
    T* const lastRow = memory.data() + (height - 1) * 24;
    if (dimensions == 2) return {lastRow, {{0, width, 1}, {0, height, -24}}};
    return {lastRow, {{0, width, 1}, {0, height, -24}, {0, depth, 300}}};
}

// Three steps, compared in all of the memory: what lies between the rows stays.
template <class T>
void expectStepsOfTheEntry(const char* name) {
    const support::Pipeline& pipeline = *support::findPipeline(name);
    const int dimensions = pipeline.variant.dimensions;
    std::vector<T> image(depth * 300), scratch(image.size(), T{7});
    for (std::size_t i = 0; i < image.size(); ++i) image[i] = T(i * i % 101);
    std::vector<T> wanted[2] = {image, scratch};
    for (int i = 0; i < 3; ++i) {
        const auto from = stridedView(wanted[i % 2], dimensions);
        const auto to = stridedView(wanted[(i + 1) % 2], dimensions);
        halide_buffer_t records[] = {from.record(), to.record()};
        ASSERT_EQ(pipeline.entry(&records[0], 20.0, &records[1]), 0);
    }
    const auto from = stridedView(image, dimensions), to = stridedView(scratch, dimensions);
    EXPECT_EQ(host::findPipeline(name).iterate(from, 20.0, to, 3).data(), to.data());
    EXPECT_EQ(image, wanted[0]);
    EXPECT_EQ(scratch, wanted[1]);
}

TEST(CppLayer, IterateGivesTheBitsOfTheEntries) {
    expectStepsOfTheEntry<float>("diffusefilt2_maximal_exponential_float32_none");
    expectStepsOfTheEntry<double>("diffusefilt3_minimal_quadratic_float64_none");
}

TEST(CppLayer, PipelinesAreFoundByNameAndByAxes) {
    for (const support::Pipeline& pipeline : support::pipelines()) {
        const host::Pipeline& found = host::findPipeline(pipeline.name);
        EXPECT_EQ(found.entry, pipeline.entry) << pipeline.name;
        EXPECT_EQ(found.dimensions, pipeline.variant.dimensions) << pipeline.name;
    }
    const auto nameOf = [](host::Axes axes) -> std::string {
        return host::findPipeline(axes).name;
    };
    using namespace host;
    EXPECT_EQ(nameOf({2, Connectivity::minimal, Conduction::quadratic, ElementType::float64, {}}),
              "diffusefilt2_minimal_quadratic_float64_none");
    EXPECT_EQ(nameOf({3, Connectivity::maximal, Conduction::exponential, ElementType::float32,
                      InstructionSet::avx}),
              "diffusefilt3_maximal_exponential_float32_avx");
    EXPECT_EQ(nameOf({2, {}, {}, {}, InstructionSet::avx2}),
              "diffusefilt2_minimal_quadratic_float32_avx2");
    EXPECT_THROW(host::findPipeline("diffusefilt2_minimal_quadratic_float64_sse"),
                 std::invalid_argument);
    EXPECT_THROW(host::findPipeline({4, {}, {}, {}, {}}), std::invalid_argument);
    EXPECT_THROW(host::fromWord<Conduction>("linear"), std::invalid_argument);
}

TEST(CppLayer, BestSetNeedsEveryFeatureAndTheSystemsState) {
    const unsigned ecx = bit_OSXSAVE | bit_AVX | bit_SSE4_1 | bit_FMA, ebx = bit_AVX2 | bit_BMI;
    const struct {
        host::ProcessorRegisters registers;
        InstructionSet best;
    } processors[] = {
        {{ecx, ebx, 7}, InstructionSet::avx2},
        {{ecx & ~bit_FMA, ebx, 7}, InstructionSet::avx},
        {{ecx, bit_AVX2, 7}, InstructionSet::avx},
        {{ecx, bit_BMI, 7}, InstructionSet::avx},
        {{ecx & ~bit_AVX, ebx, 7}, InstructionSet::none},
        {{ecx & ~bit_OSXSAVE, ebx, 7}, InstructionSet::none},
        {{ecx, ebx, 3}, InstructionSet::none},
    };
    for (const auto& [registers, best] : processors) {
        EXPECT_EQ(host::bestInstructionSet(registers), best);
    }
}

// Before the first call through the layer, as a host does it.
std::vector<std::string> hostsWords;
const halide_error_handler_t defaultHandler =
    halide_set_error_handler([](void*, const char* words) { hostsWords.push_back(words); });

TEST(CppLayer, FailuresCarryTheLibrarysWordsAndLeaveTheHostsHandlerItsOwn) {
    EXPECT_EQ(defaultHandler, halide_default_error);
    const host::Pipeline& pipeline =
        host::findPipeline("diffusefilt2_minimal_quadratic_float64_none");
    std::vector<double> memory(2 * 12);
    const auto narrow = host::View<float>::dense(reinterpret_cast<float*>(memory.data()), {4, 3});
    const auto image = host::View<double>::dense(memory.data(), {4, 3});
    const auto scratch = host::View<double>::dense(memory.data() + 12, {4, 3});
    try {
        pipeline.step(narrow, 1.0, host::View<float>(narrow.data() + 12, {{0, 4, 1}, {0, 3, 4}}));
        ADD_FAILURE() << "another element type was taken";
    } catch (const host::Error& error) {
        EXPECT_EQ(error.status(), -3);
        EXPECT_EQ(error.words(),
                  "Output buffer diffusefilt2 has type float64 but type of the buffer passed in is "
                  "float32");
        EXPECT_EQ(error.what(), pipeline.name + (" failed with status -3: " + error.words()));
    }
    EXPECT_EQ(hostsWords.size(), 0u);
    // A call past the layer, also after one through it.
    EXPECT_NO_THROW(pipeline.step(image, 1.0, scratch));
    EXPECT_EQ(pipeline.entry(nullptr, 1.0, nullptr), -12);
    EXPECT_EQ(hostsWords, std::vector<std::string>{"Buffer argument keyimForType is NULL"});

    const auto volume = host::View<double>::dense(memory.data(), {2, 2, 2});
    EXPECT_THROW(pipeline.step(volume, 1.0, scratch), std::invalid_argument);
    EXPECT_THROW(pipeline.step(image, 1.0, image), std::invalid_argument);
    EXPECT_THROW(pipeline.iterate(image, 1.0, scratch, -1), std::invalid_argument);
    EXPECT_THROW(pipeline.iterate(image, 1.0, host::View<double>::dense(scratch.data(), {3, 4}), 1),
                 std::invalid_argument);
    EXPECT_THROW(host::View<double>::dense(nullptr, {2, 2}), std::invalid_argument);
    EXPECT_THROW(host::View<double>::dense(memory.data(), {65536, 65536, 1}), std::length_error);
}

}  // namespace
