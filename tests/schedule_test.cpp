// The cut of rows and planes, asserted on the schedule itself.
#include <gtest/gtest.h>

#include "schedules/cut.h"
#include "support/CapturedLoop.h"

namespace {

using namespace support;
using diffusefilt::Band;
using diffusefilt::Clamp;
using diffusefilt::Connectivity;
using diffusefilt::Cut;
using diffusefilt::PlaneClosure;
using diffusefilt::RowClosure;

std::string wordOf(Clamp clamp) {
    return clamp == Clamp::both ? "both" : clamp == Clamp::lower ? "lower" : "none";
}

// The ranges of a cut that are not empty, as text: "0-1 both".
std::string textOf(const Cut& cut) {
    std::string text;
    for (const Band& range : cut) {
        if (range.begin >= range.end) continue;
        if (!text.empty()) text += ", ";
        text += std::to_string(range.begin) + "-" + std::to_string(range.end) + " ";
        text += wordOf(range.clamp);
    }
    return text;
}

// The vectors of an inner row, for an input of `width` columns and an output of the columns
// outMin0 to outMin0 + outExtent0 - 1.
template <Connectivity connectivity, class T>
std::string vectors(const char* name, int width, int outMin0, int outExtent0) {
    const Pipeline& pipeline = *findPipeline(name);
    const CapturedLoop loop(pipeline, {{0, width, 1}, {0, 9, 100}},
                            {{outMin0, outExtent0, 1}, {0, 9, 100}}, 1);
    const auto record = loop.as<RowClosure<connectivity, T>>();
    return textOf(vectorCut(record, rowClampAt(record, 4), pipeline.variant.lanes()));
}

TEST(RowSchedule, MinimalRowsHaveThreeSegments) {
    const auto cut = [](int width, int outMin0, int outExtent0) {
        return vectors<Connectivity::minimal, double>("diffusefilt2_minimal_quadratic_float64_none",
                                                      width, outMin0, outExtent0);
    };
    EXPECT_EQ(cut(80, 0, 80), "0-1 both, 1-39 none, 39-40 both");
    EXPECT_EQ(cut(61, 3, 41), "0-20 none, 20-21 both");   // 21 vectors, the last shifted
    EXPECT_EQ(cut(80, 0, 2), "0-1 both");                 // one vector, on the left
    EXPECT_EQ(cut(80, -100, 40), "0-20 both");            // all left of the input
    EXPECT_EQ(cut(80, 80, 40), "0-20 both");              // all right of it
    EXPECT_EQ(cut(80, -5, 20), "0-3 both, 3-10 none");    // 1 is the first free column
    EXPECT_EQ(cut(80, 10, 21), "0-10 none, 10-11 both");  // ends before the input does
    EXPECT_EQ(cut(3, 0, 3), "0-1 both, 1-2 both");

    const char* wider = "diffusefilt2_minimal_quadratic_float32_avx";
    const auto cutOfEight = vectors<Connectivity::minimal, float>;
    EXPECT_EQ(cutOfEight(wider, 80, 0, 80), "0-1 both, 1-9 none, 9-10 both");
    EXPECT_EQ(cutOfEight(wider, 81, 0, 81), "0-1 both, 1-10 none, 10-11 both");
}

TEST(RowSchedule, MaximalRowsHaveTwoSegments) {
    const char* name = "diffusefilt2_maximal_quadratic_float64_none";
    const auto cut = vectors<Connectivity::maximal, double>;
    EXPECT_EQ(cut(name, 80, 0, 80), "0-39 lower, 39-40 both");
    EXPECT_EQ(cut(name, 80, 80, 40), "0-20 both");
    EXPECT_EQ(cut(name, 3, 0, 3), "0-1 lower, 1-2 both");
}

// The classes of rows -2 to 9 over an input of eight rows, and the vectors of a clamped one.
template <Connectivity connectivity>
std::string classesOfRows(const char* name) {
    const CapturedLoop loop(*findPipeline(name), {{0, 80, 1}, {0, 8, 100}},
                            {{0, 80, 1}, {-2, 12, 100}}, 1);
    const auto record = loop.as<RowClosure<connectivity, double>>();
    std::string text;
    for (int y = -2; y < 10; ++y) text += wordOf(rowClampAt(record, y))[0];
    return text + ", " + textOf(vectorCut(record, Clamp::both, 2));
}

TEST(RowSchedule, RowsAreClassified) {
    EXPECT_EQ(classesOfRows<Connectivity::minimal>("diffusefilt2_minimal_quadratic_float64_none"),
              "bbbnnnnnnbbb, 0-40 both");
    EXPECT_EQ(classesOfRows<Connectivity::maximal>("diffusefilt2_maximal_quadratic_float64_none"),
              "lllllllllbbb, 0-40 both");
}

// The rows of each plane of the volume 11 x 6 x 5, and the vectors of those with the fewest
// clamps, for two lanes.
template <Connectivity connectivity>
std::vector<std::string> cutsOfVolume(const char* name) {
    const CapturedLoop::Dimensions dim = {{0, 11, 1}, {0, 6, 11}, {0, 5, 66}};
    const CapturedLoop loop(*findPipeline(name), dim, dim, 1);
    const auto record = loop.as<PlaneClosure<connectivity, double>>();
    std::vector<std::string> cuts;
    for (int z = 0; z < 5; ++z) cuts.push_back(textOf(rowCut(record, planeClampAt(record, z))));
    const bool minimal = connectivity == Connectivity::minimal;
    cuts.push_back(textOf(vectorCut(record, minimal ? Clamp::neither : Clamp::lower, 2)));
    return cuts;
}

TEST(PlaneSchedule, RowsAreCutInPlanesFreeOfTheUpperClamp) {
    const std::string minimal = "0-1 both, 1-5 none, 5-6 both", maximal = "0-5 lower, 5-6 both";
    using Cuts = std::vector<std::string>;
    EXPECT_EQ(cutsOfVolume<Connectivity::minimal>("diffusefilt3_minimal_quadratic_float64_none"),
              (Cuts{"0-6 both", minimal, minimal, minimal, "0-6 both", minimal}));
    EXPECT_EQ(cutsOfVolume<Connectivity::maximal>("diffusefilt3_maximal_quadratic_float64_none"),
              (Cuts{maximal, maximal, maximal, maximal, "0-6 both", maximal}));
}

// The part without clamps is empty, and no other part runs twice.
TEST(PlaneSchedule, FlatVolumesHaveNoInnerPart) {
    const CapturedLoop::Dimensions dim = {{0, 11, 1}, {0, 1, 11}, {0, 1, 11}};
    const CapturedLoop loop(*findPipeline("diffusefilt3_minimal_quadratic_float64_none"), dim, dim,
                            1);
    const auto record = loop.as<PlaneClosure<Connectivity::minimal, double>>();
    EXPECT_EQ(textOf(rowCut(record, Clamp::neither)), "0-1 both");
    EXPECT_EQ(record.interiorPlaneBegin, record.interiorPlaneEnd);
}

}  // namespace
