// The cut of rows and planes, asserted on the schedule itself.
#include <gtest/gtest.h>

#include "schedules/taskCuts.h"
#include "support/CapturedLoop.h"

namespace {

using namespace support;
using diffusefilt::Clamp;
using diffusefilt::Connectivity;
using diffusefilt::Cut;
using diffusefilt::Range;

// The ranges of a cut that are not empty, as text: "0-1 both".
std::string textOf(const Cut& cut) {
    std::string text;
    for (const Range& range : cut) {
        if (range.begin >= range.end) continue;
        if (!text.empty()) text += ", ";
        text += std::to_string(range.begin) + "-" + std::to_string(range.end) + " ";
        text += range.clamp == Clamp::both    ? "both"
                : range.clamp == Clamp::lower ? "lower"
                                              : "none";
    }
    return text;
}

// The segments of an inner row, for an input of `width` columns and an output of the
// columns outMin0 to outMin0 + outExtent0 - 1.
template <Connectivity connectivity, class T>
std::string segments(const char* name, int width, int outMin0, int outExtent0) {
    const Pipeline* pipeline = findPipeline(name);
    const CapturedLoop loop(*pipeline, {{0, width, 1}, {0, 9, 100}},
                            {{outMin0, outExtent0, 1}, {0, 9, 100}}, 1);
    const auto record = loop.as<diffusefilt::RowClosure<connectivity, T>>();
    EXPECT_EQ(record.lastVectorX, outMin0 + outExtent0 - pipeline->variant.lanes());
    return textOf(vectorCut(record, rowClampAt(record, 4), pipeline->variant.lanes()));
}

TEST(RowSchedule, MinimalRowsHaveThreeSegments) {
    const auto float64None = [](int width, int outMin0, int outExtent0) {
        return segments<Connectivity::minimal, double>(
            "diffusefilt2_minimal_quadratic_float64_none", width, outMin0, outExtent0);
    };
    EXPECT_EQ(float64None(80, 0, 80), "0-1 both, 1-39 none, 39-40 both");
    EXPECT_EQ(float64None(61, 3, 41), "0-20 none, 20-21 both");   // 21 vectors, the last shifted
    EXPECT_EQ(float64None(80, 0, 2), "0-1 both");                 // one vector, on the left
    EXPECT_EQ(float64None(80, -100, 40), "0-20 both");            // all left of the input
    EXPECT_EQ(float64None(80, 80, 40), "0-20 both");              // all right of it
    EXPECT_EQ(float64None(80, -5, 20), "0-3 both, 3-10 none");    // 1 is the first free column
    EXPECT_EQ(float64None(80, 10, 21), "0-10 none, 10-11 both");  // ends before the input does
    EXPECT_EQ(float64None(3, 0, 3), "0-1 both, 1-2 both");
}

TEST(RowSchedule, WiderVectorsCutByTheirWidth) {
    const char* name = "diffusefilt2_minimal_quadratic_float32_avx";
    ASSERT_NE(findPipeline(name), nullptr);
    const auto cut = segments<Connectivity::minimal, float>;
    EXPECT_EQ(cut(name, 80, 0, 80), "0-1 both, 1-9 none, 9-10 both");
    EXPECT_EQ(cut(name, 81, 0, 81), "0-1 both, 1-10 none, 10-11 both");
}

TEST(RowSchedule, MaximalRowsHaveTwoSegments) {
    const char* name = "diffusefilt2_maximal_quadratic_float64_none";
    ASSERT_NE(findPipeline(name), nullptr);
    const auto cut = segments<Connectivity::maximal, double>;
    EXPECT_EQ(cut(name, 80, 0, 80), "0-39 lower, 39-40 both");
    EXPECT_EQ(cut(name, 80, 80, 40), "0-20 both");
    EXPECT_EQ(cut(name, 3, 0, 3), "0-1 lower, 1-2 both");
}

TEST(RowSchedule, RowsAreClassified) {
    const Pipeline& minimal = *findPipeline("diffusefilt2_minimal_quadratic_float64_none");
    const CapturedLoop loop(minimal, {{0, 80, 1}, {0, 8, 100}}, {{0, 80, 1}, {-2, 12, 100}}, 1);
    const auto record = loop.as<diffusefilt::RowClosure<Connectivity::minimal, double>>();
    for (int y = -2; y < 10; ++y) {
        EXPECT_EQ(rowClampAt(record, y), y >= 1 && y <= 6 ? Clamp::none : Clamp::both) << y;
    }
    EXPECT_EQ(textOf(vectorCut(record, Clamp::both, 2)), "0-40 both");

    const Pipeline* maximal = findPipeline("diffusefilt2_maximal_quadratic_float64_none");
    ASSERT_NE(maximal, nullptr);
    const CapturedLoop wide(*maximal, {{0, 80, 1}, {0, 8, 100}}, {{0, 80, 1}, {-2, 12, 100}}, 1);
    const auto upper = wide.as<diffusefilt::RowClosure<Connectivity::maximal, double>>();
    for (int y = -2; y < 10; ++y) {
        EXPECT_EQ(rowClampAt(upper, y), y <= 6 ? Clamp::lower : Clamp::both) << y;
    }
}

// Which loop nest serves each vector of a plane of the volume 11 x 6 x 5, for two lanes:
// one digit for each vector of a row. Nests are numbered in the order in which they run,
// with the one of clamped planes last.
template <Connectivity connectivity>
std::vector<std::string> nestsOfPlane(const char* name, int z) {
    const CapturedLoop loop(*findPipeline(name), {{0, 11, 1}, {0, 6, 11}, {0, 5, 66}},
                            {{0, 11, 1}, {0, 6, 11}, {0, 5, 66}}, 1);
    const auto record = loop.as<diffusefilt::PlaneClosure<connectivity, double>>();
    const Clamp planeClamp = planeClampAt(record, z);
    const bool minimal = connectivity == Connectivity::minimal;
    std::vector<std::string> rows;
    int nest = planeClamp == Clamp::both ? (minimal ? 6 : 4) : 1;
    for (const Range& group : rowCut(record, planeClamp)) {
        const Cut cut = vectorCut(record, group.clamp, 2);
        std::string row;
        int nestOfRange = nest;
        for (const Range& range : cut) {
            if (range.begin < range.end)
                row.append(range.end - range.begin, char('0' + nestOfRange));
            ++nestOfRange;
        }
        for (int y = group.begin; y < group.end; ++y) rows.push_back(row);
        nest += cut.count;
    }
    return rows;
}

// The part without clamps is empty, and no other part runs twice.
TEST(PlaneSchedule, FlatVolumesHaveNoInnerPart) {
    const Pipeline* pipeline = findPipeline("diffusefilt3_minimal_quadratic_float64_none");
    if (pipeline == nullptr) GTEST_SKIP() << "not in the table";
    const CapturedLoop loop(*pipeline, {{0, 11, 1}, {0, 1, 11}, {0, 1, 11}},
                            {{0, 11, 1}, {0, 1, 11}, {0, 1, 11}}, 1);
    const auto record = loop.as<diffusefilt::PlaneClosure<Connectivity::minimal, double>>();
    EXPECT_EQ(record.interiorRowBegin, 1);
    EXPECT_EQ(record.interiorRowEnd, 1);
    EXPECT_EQ(record.interiorPlaneBegin, 1);
    EXPECT_EQ(record.interiorPlaneEnd, 1);
}

TEST(PlaneSchedule, NestsServeTheirVectors) {
    const char* minimal = "diffusefilt3_minimal_quadratic_float64_none";
    const char* maximal = "diffusefilt3_maximal_quadratic_float64_none";
    ASSERT_NE(findPipeline(minimal), nullptr);
    using Rows = std::vector<std::string>;
    const Rows minimalEdge(6, "666666");
    const Rows minimalInner = {"111111", "233334", "233334", "233334", "233334", "555555"};
    const Rows maximalInner = {"111112", "111112", "111112", "111112", "111112", "333333"};
    for (int z = 0; z < 5; ++z) {
        const bool edge = z == 0 || z == 4;
        EXPECT_EQ(nestsOfPlane<Connectivity::minimal>(minimal, z),
                  edge ? minimalEdge : minimalInner);
        EXPECT_EQ(nestsOfPlane<Connectivity::maximal>(maximal, z),
                  z == 4 ? Rows(6, "444444") : maximalInner);
    }
}

}  // namespace
