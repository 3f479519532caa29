// Bounds queries: what is written into a queried buffer, and what is left alone.
#include <gtest/gtest.h>

#include <algorithm>

#include "support/FrameCall.h"

namespace {

using namespace support;

using Dimensions = std::vector<std::vector<int32_t>>;  // min, extent, stride of each

Dimensions dimensionsOf(const halide_buffer_t& buffer) {
    Dimensions result;
    for (int d = 0; d < buffer.dimensions; ++d) {
        result.push_back({buffer.dim[d].min, buffer.dim[d].extent, buffer.dim[d].stride});
    }
    return result;
}

class BoundsQuery : public testing::TestWithParam<Pipeline> {
protected:
    int32_t L() const { return GetParam().variant.lanes(); }
    bool is3D() const { return GetParam().variant.dimensions == 3; }

    // The first two dimensions of an answer and, in 3-D, a third.
    Dimensions answer(Dimensions two, std::vector<int32_t> third) const {
        if (is3D()) two.push_back(std::move(third));
        return two;
    }

    // An input of 100 x 50 x 20 and an output of the given columns, rows 5 to 7, planes
    // 0 to 19, both queried.
    void query(FrameCall& call, int32_t outMin0, int32_t outExtent0) const {
        call.inputDim[0] = {0, 100, 3};
        call.inputDim[1] = {0, 50, -2};
        call.inputDim[2] = {0, 20, 0};
        call.outputDim[0] = {outMin0, outExtent0, 9, 5};
        call.outputDim[1] = {5, 3, 9, 5};
        call.outputDim[2] = {0, 20, 9, 5};
        call.input.host = call.output.host = nullptr;
    }

    MessageCatcher catcher_;
};

// All fields of the records are filled, whatever they held; the padding and the dim
// pointer stay.
TEST_P(BoundsQuery, FillsBothRecords) {
    FrameCall call(GetParam(), L());
    query(call, 10, 20);
    int device = 0;
    for (halide_buffer_t* buffer : {&call.input, &call.output}) {
        buffer->type = {halide_type_uint, 8, 3};
        buffer->flags = 3;
        buffer->dimensions = 7;
        buffer->device_interface = reinterpret_cast<const halide_device_interface_t*>(&device);
        buffer->padding = &device;
    }
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(dimensionsOf(call.output), answer({{10, 20, 1}, {5, 3, 20}}, {0, 20, 60}));
    EXPECT_EQ(dimensionsOf(call.input), answer({{9, 22, 1}, {4, 5, 22}}, {0, 20, 110}));
    const halide_type_t type(halide_type_float,
                             static_cast<uint8_t>(GetParam().variant.elementBits()));
    for (const halide_buffer_t* buffer : {&call.input, &call.output}) {
        EXPECT_EQ(buffer->type, type);
        EXPECT_EQ(buffer->dimensions, GetParam().variant.dimensions);
        EXPECT_EQ(buffer->flags, 0u);
        EXPECT_EQ(buffer->device, 0u);
        EXPECT_EQ(buffer->host, nullptr);
        EXPECT_EQ(buffer->device_interface, nullptr);
        EXPECT_EQ(buffer->padding, &device);
        EXPECT_EQ(buffer->dim[0].flags, 0u);
    }
    EXPECT_TRUE(catcher_.messages().empty());
}

// On the parallel path an output narrower than a vector is widened to the left; in line
// it keeps its shape.
TEST_P(BoundsQuery, WidensNarrowOutputsOfWideInputs) {
    FrameCall wide(GetParam(), L());
    query(wide, 10, 1);
    EXPECT_EQ(wide.run(), 0);
    EXPECT_EQ(dimensionsOf(wide.output)[0], (std::vector{11 - L(), L(), 1}));
    EXPECT_EQ(dimensionsOf(wide.input)[0], (std::vector{10 - L(), L() + 2, 1}));

    FrameCall narrow(GetParam(), L());
    query(narrow, 10, 1);
    narrow.inputDim[0].extent = L();
    EXPECT_EQ(narrow.run(), 0);
    EXPECT_EQ(dimensionsOf(narrow.output)[0], (std::vector{10, 1, 1}));
    EXPECT_EQ(dimensionsOf(narrow.input)[0], (std::vector{std::min(9, L() - 1), 1, 1}));
}

TEST_P(BoundsQuery, BuffersAreJudgedSeparately) {
    // A device, and so no query, for the output; the input is queried.
    FrameCall call(GetParam(), L());
    query(call, 10, 20);
    call.output.device = 1;
    const Dimensions before = dimensionsOf(call.output);
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(dimensionsOf(call.output), before);
    EXPECT_EQ(dimensionsOf(call.input)[0], (std::vector{9, 22, 1}));

    // A real input and a queried output: nothing is filtered, nothing of the input written.
    FrameCall half(GetParam(), L());
    half.output.host = nullptr;
    const Dimensions input = dimensionsOf(half.input);
    EXPECT_EQ(half.run(), 0);
    EXPECT_EQ(dimensionsOf(half.input), input);
    EXPECT_EQ(dimensionsOf(half.output), answer({{0, L(), 1}, {0, 4, L()}}, {0, 3, 4 * L()}));
}

// One record for both buffers ends with the input's answer to the shape it came with.
TEST_P(BoundsQuery, TheInputIsAnsweredLast) {
    FrameCall call(GetParam(), L());
    for (halide_dimension_t& dim : call.inputDim) dim = {10, 20, 1};
    call.input.host = nullptr;
    call.outputArgument = &call.input;
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(dimensionsOf(call.input), answer({{9, 11, 1}, {9, 11, 11}}, {9, 11, 121}));
}

TEST_P(BoundsQuery, EmptyAndAllZeroShapesAreAnswered) {
    FrameCall call(GetParam(), L());
    query(call, 0, 0);
    for (int d = 0; d < 3; ++d) call.inputDim[d] = call.outputDim[d] = {0, 0, 0};
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(dimensionsOf(call.input), answer({{0, 1, 1}, {0, 1, 1}}, {0, 1, 1}));
    EXPECT_EQ(dimensionsOf(call.output), answer({{0, 0, 1}, {0, 0, 0}}, {0, 0, 0}));
}

// A record made from an answer passes the checks and filters.
TEST_P(BoundsQuery, TheAnswerFits) {
    FrameCall call(GetParam(), L() + 1);
    call.outputDim[0] = {3, 1, 1};
    call.output.host = nullptr;
    ASSERT_EQ(call.run(), 0);
    call.output.host = reinterpret_cast<uint8_t*>(call.outputMemory.data());
    EXPECT_EQ(call.run(), 0);
    EXPECT_FALSE(call.outputIsUntouched());
    EXPECT_TRUE(catcher_.messages().empty());
}

INSTANTIATE_TEST_SUITE_P(Pipelines, BoundsQuery, testing::ValuesIn(pipelines()), nameOf);

}  // namespace
