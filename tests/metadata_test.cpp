// The metadata of every pipeline, and the list of the public header.
#include <gtest/gtest.h>

#include "diffusefilt_halide.h"
#include "support/PipelineTest.h"

namespace {

using namespace support;

class Description : public testing::TestWithParam<Pipeline> {};

TEST_P(Description, StatesThePipeline) {
    const Pipeline& pipeline = GetParam();
    const int n = pipeline.variant.dimensions;
    const auto bits = static_cast<uint8_t>(pipeline.variant.elementBits());
    const halide_filter_metadata_t* metadata = pipeline.metadata();
    EXPECT_EQ(metadata, pipeline.metadata());
    EXPECT_EQ(metadata->version, 0);
    EXPECT_STREQ(metadata->name, pipeline.name);
    const std::string set =
        std::string(pipeline.name).substr(std::string(pipeline.name).rfind('_'));
    const std::string features = set == "_none"  ? "large_buffers-no_runtime"
                                 : set == "_avx" ? "avx-large_buffers-no_runtime-sse41"
                                                 : "avx-avx2-large_buffers-no_runtime-sse41";
    EXPECT_EQ(metadata->target, "x86-64-linux-" + features);

    ASSERT_EQ(metadata->num_arguments, 3);
    const struct {
        std::string name;
        int kind;
        int dimensions;
        uint8_t bits;
    } expected[3] = {{"keyimForType", 1, n, bits},
                     {"gradTIn", 0, 0, 64},
                     {"diffusefilt" + std::to_string(n), 2, n, bits}};
    for (int i = 0; i < 3; ++i) {
        const halide_filter_argument_t& argument = metadata->arguments[i];
        EXPECT_EQ(argument.name, expected[i].name);
        EXPECT_EQ(argument.kind, expected[i].kind);
        EXPECT_EQ(argument.dimensions, expected[i].dimensions);
        EXPECT_EQ(argument.type, halide_type_t(halide_type_float, expected[i].bits));
        EXPECT_EQ(argument.scalar_def != nullptr, i == 1);
        EXPECT_EQ(argument.scalar_min, nullptr);
        EXPECT_EQ(argument.scalar_max, nullptr);
        EXPECT_EQ(argument.scalar_estimate, nullptr);
        EXPECT_EQ(argument.buffer_estimates, nullptr);
    }
    EXPECT_EQ(metadata->arguments[1].scalar_def->u.u64, 0u);  // +0.0
}

// The public header lists what the table has, in its order.
TEST(Descriptions, HeaderListsTheTable) {
    std::vector<std::string> listed;
#define LIST(name) listed.push_back(#name);
    DIFFUSEFILT_FOR_EACH_PIPELINE(LIST)
#undef LIST
    std::vector<std::string> table;
    for (const Pipeline& pipeline : pipelines()) table.push_back(pipeline.name);
    EXPECT_EQ(listed, table);
}

INSTANTIATE_TEST_SUITE_P(Pipelines, Description, testing::ValuesIn(pipelines()), nameOf);

}  // namespace
