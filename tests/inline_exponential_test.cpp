// SPDX-License-Identifier: MIT
// The exponential that the float32 pipelines carry themselves, by its bits: where its
// value is known, at the cut-off, and against the scalar reference.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <vector>

#include "reference/Reference.h"
#include "support/Bits.h"
#include "support/PipelineTest.h"
#include "support/SmallImage.h"

namespace {

using namespace diffusefilt;
using namespace support;

std::vector<Pipeline> planarPipelines() {
    std::vector<Pipeline> chosen = pipelines();
    std::erase_if(chosen, [](const Pipeline& pipeline) {
        const PipelineVariant& variant = pipeline.variant;
        return variant.dimensions != 2 || variant.conduction != Conduction::exponential ||
               variant.elementType != ElementType::float32;
    });
    return chosen;
}

class InlineExponential : public PipelineTest {
protected:
    // g * difference, in full, with g the exponential of the square of difference / threshold:
    // a lone difference from 0, divided by the rate of planes, a power of two. It shows g
    // itself where the difference is a power of two.
    float flux(float difference, float threshold) const {
        const int width = 2 * variant().lanes();
        SmallImage<float> image(width, 3, 0, 0.0f);
        image(width / 2 + 1, 1, 0) = difference;
        const float rate = minimal() ? 0.25f : 0.125f;
        return filtered(GetParam(), image, threshold)(width / 2, 1, 0) / rate;
    }
};

TEST_P(InlineExponential, ShowsItsBits) {
    EXPECT_EQ(bitsOf(flux(1, 1)), 0x3ebc5ab2u);
    const InstructionSet set = variant().instructionSet;
    const bool avx = set == InstructionSet::avx;
    const float atFifty = std::bit_cast<float>(avx ? 0x1b692beau : 0x1b692bebu);
    EXPECT_EQ(bitsOf(flux(3, 0.424264073f)), bitsOf(3 * atFifty));  // t * t is 50

    // The last threshold before the cut-off, and the first behind it.
    EXPECT_GT(flux(16, 4 * 0.428017974f), 0.0f);        // t * t has the bits 0x42aeac4e
    EXPECT_EQ(bitsOf(flux(16, 4 * 0.428017944f)), 0u);  // 0x42aeac51

    const auto matchesReference = [&](float threshold) {
        const float t = 1 / threshold;
        const float g = reference::inlineExponential(set, t * t);
        return bitsOf(flux(16, 16 * threshold)) == bitsOf(16 * g);
    };
    for (float threshold = 0.10722f; threshold < 20; threshold *= 1.0005f) {
        const float t = 1 / threshold;
        const double exact = 16 * std::exp(-double{t * t});
        ASSERT_LT(std::abs(flux(16, 16 * threshold) - exact), 1.5e-7 * exact) << threshold;
        ASSERT_TRUE(matchesReference(threshold)) << threshold;
    }

    // Where the last bit of ln2Lo, c7 or c6, or a single fused step decides: one argument in
    // a million, which no sweep meets.
    for (const float threshold :
         {0x1.b776cap-4f, 0x1.b79a72p-4f, 0x1.b7dcdap-4f, 0x1.b9ac0ep-4f, 0x1.b9ad6ap-4f,
          0x1.b9afa4p-4f, 0x1.baf946p-4f, 0x1.bb6d96p-4f, 0x1.bb8364p-4f, 0x1.bccc3ap-4f,
          0x1.bd032ap-4f, 0x1.bd71b4p-4f, 0x1.c8cf44p-4f, 0x1.d94904p-4f, 0x1.e023b8p-4f,
          0x1.e023c0p-4f, 0x1.ec032cp-4f, 0x1.21eca0p-3f, 0x1.21eca4p-3f, 0x1.52642p-2f}) {
        ASSERT_TRUE(matchesReference(threshold)) << threshold;
    }

    // Around the steps of the floor, where the last bit of the scaling decides.
    for (int step = 1; step <= 126; ++step) {
        const float near = 1 / std::sqrt(static_cast<float>(step) * std::numbers::ln2_v<float>);
        float threshold = near * (1 - 0x1p-21f);
        for (; threshold < near * (1 + 0x1p-21f); threshold = std::nextafter(threshold, 1e9f)) {
            ASSERT_TRUE(matchesReference(threshold)) << threshold;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Pipelines, InlineExponential, testing::ValuesIn(planarPipelines()),
                         nameOf);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(InlineExponential);

}  // namespace
