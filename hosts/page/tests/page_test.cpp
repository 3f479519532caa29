// SPDX-License-Identifier: MIT
// What stands on the page, apart from the browser.
#include <glib.h>
#include <gtest/gtest.h>
#include <png.h>

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <numeric>
#include <random>

#include "Sample.h"
#include "histograms.h"
#include "image.h"
#include "sheet.h"

namespace diffusefilt_page {
namespace {

using Pipeline = diffusefilt_host::Axes;

nlohmann::json dataOf(const std::string& page) {
    const std::string start = "<script type=\"application/json\" id=\"data\">";
    const std::size_t begin = page.find(start) + start.size();
    return nlohmann::json::parse(page.substr(begin, page.find("</script>", begin) - begin));
}

// The chosen cell of the sheet is filtered from a part, and has the samples of the whole.
TEST(Sheet, ShowsWhatTheCommandsMake) {
    const struct {
        std::vector<int> extents;
        int channels, steps;
        double samples;  // of a cell
        std::vector<Axis> axes;
    } cases[] = {
        {{150, 90}, 1, 3, 2000, {{}, {}}},
        {{90, 150}, 3, 6, 5000, {{1, -2}, {1, 1}}},
        {{61, 50, 33}, 1, 2, 900, {{1, -1}, {1, -2}, {2, 3}}},
        {{40, 30, 9}, 1, 5, 1e9, {{1, 3}, {1, 2}, {1, -1}}},
        {{7, 5}, 1, 1, 1e9, {{}, {}}},
    };
    for (const auto& [extents, channels, steps, samples, axes] : cases) {
        Sample sample(extents, channels, 30, steps);
        sample.content.axes = axes;
        const Sheet sheet = makeSheet(sample.content, samples);
        ASSERT_EQ(sheet.cells.size(), 15u);
        int chosen = 0;
        for (const Cell& cell : sheet.cells) {
            if (cell.steps != steps || cell.threshold != 30) continue;
            ++chosen;
            EXPECT_EQ(cell.plane.channels,
                      takePlane(sample.content.after, sheet.layout, sheet.index, sheet.region, {})
                          .channels);
        }
        EXPECT_EQ(chosen, 1);
        EXPECT_LE(1.0 * sheet.region.width * sheet.region.height * channels, samples);
    }
}

TEST(Sheet, FiltersAPlaneAsAPictureWhereThePipelineHasTwoDimensions) {
    Sample sample({40, 30, 5}, 1, 30, 3);
    sample.content.pipeline.dimensions = 2;
    sample.content.pipeline.elementType = diffusefilt_host::ElementType::float64;
    const Sheet sheet = makeSheet(sample.content, 1e9);
    const auto plane = sample.before[0].begin() + 2 * 40 * 30;
    std::vector<double> image(plane, plane + 40 * 30), scratch(image.size());
    using View = diffusefilt_host::View<double>;
    const auto result = diffusefilt_host::findPipeline(sample.content.pipeline)
                            .iterate(View::dense(image.data(), {40, 30}), 30.0,
                                     View::dense(scratch.data(), {40, 30}), 3);
    const std::vector<float> wanted(result.data(), result.data() + image.size());
    EXPECT_EQ(sheet.cells[7].plane.channels[0], wanted);
}

// Whatever way the axes of the file run.
TEST(Layout, PutsTheRightFrontAndTopAtTheUpperLeft) {
    std::array<int, 3> bodyAxes{1, 2, 3};
    do {
        for (int signs = 0; signs < 8; ++signs) {
            std::vector<float> values(4 * 5 * 6);
            const Samples samples = Samples::dense(values.data(), {4, 5, 6});
            std::vector<Axis> axes;
            std::array<int, 3> corner{};
            for (int d = 0; d < 3; ++d) {
                const int sign = (signs >> d & 1) != 0 ? -1 : 1;
                axes.push_back({1, sign * bodyAxes[d]});
                // The corner is right, anterior and superior: against 1 and 2, along 3.
                if ((sign > 0) == (bodyAxes[d] == 3)) corner[d] = samples.shape()[d].extent - 1;
            }
            values[corner[0] + 4 * (corner[1] + 5 * corner[2])] = 1;
            for (int along = 0; along < 3; ++along) {
                const Layout layout = layoutAlong(axes, along);
                const Plane plane =
                    takePlane({samples}, layout, corner[along], wholePlane(samples, layout), {});
                EXPECT_EQ(plane.channels[0][0], 1) << signs << " " << along;
                const char* const name[] = {"Sagittal", "Coronal", "Axial"};
                EXPECT_EQ(nameOf(layout, axes), name[bodyAxes[along] - 1]);
            }
        }
    } while (std::ranges::next_permutation(bodyAxes).found);
    const std::vector<Axis> unknown(3);
    EXPECT_EQ(nameOf(layoutAlong(unknown, 1), unknown), "x, z");
    EXPECT_EQ(sidesOf(layoutAlong(unknown, 1), unknown)[0], "");
}

std::vector<std::uint8_t> decode(const std::string& address) {
    gsize size = 0;
    guchar* const bytes = g_base64_decode(address.substr(address.find(',') + 1).c_str(), &size);
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    EXPECT_NE(png_image_begin_read_from_memory(&image, bytes, size), 0);
    image.format = PNG_FORMAT_RGB;
    std::vector<std::uint8_t> levels(PNG_IMAGE_SIZE(image));
    EXPECT_NE(png_image_finish_read(&image, nullptr, levels.data(), 0, nullptr), 0);
    g_free(bytes);
    return levels;
}

TEST(Picture, TakesGreysFromTheWindowAndBlackForNoNumber) {
    const float none = std::nanf("");
    EXPECT_EQ(decode(pictureOf({5, 1, {{-200, -100, 0, 100, none}}}, {-100, 155})),
              (std::vector<std::uint8_t>{0, 0, 0, 0, 0, 0, 100, 100, 100, 200, 200, 200, 0, 0, 0}));
    EXPECT_EQ(decode(pictureOf({2, 1, {{0, 255}, {10, 300}, {20, -9}}}, {0, 255})),
              (std::vector<std::uint8_t>{0, 10, 20, 255, 255, 0}));
    const auto removed = decode(pictureOfDifference({3, 1, {{-4, 0, 4}}}, 4));
    EXPECT_GT(removed[2], removed[0] + 60);  // blue
    EXPECT_EQ(removed[3], removed[5]);       // white
    EXPECT_GT(removed[6], removed[8] + 60);  // orange
}

TEST(Picture, IsReducedByMeansOrByChoice) {
    const std::vector<float> values{1, 2, 3, 4, 5, 6};
    const std::vector<Samples> channels{Samples::dense(values.data(), {3, 2})};
    EXPECT_EQ(takePlane(channels, {}, 0, {0, 0, 3, 2}, {2, true}).channels[0],
              (std::vector<float>{3, 4.5}));
    EXPECT_EQ(takePlane(channels, {}, 0, {0, 0, 3, 2}, {2, false}).channels[0],
              (std::vector<float>{1, 3}));
}

TEST(Histograms, CountEveryFiniteDifferenceOnce) {
    const float none = std::nanf("");
    const std::vector<float> before{0, 10, 10, none, 30, 90}, after{0, 8, 12, 0, 30, none};
    const auto view = [](const std::vector<float>& v) {
        return std::vector<Samples>{Samples::dense(v.data(), {3, 2})};
    };
    const Removed removed = measureRemoved(view(before), view(after));
    EXPECT_EQ(removed.rootMeanSquare, std::sqrt(2.0));
    EXPECT_EQ(removed.mean, 0);
    // Whole numbers have bins of their own.
    ASSERT_EQ(removed.histogram.shares.size(), 13u);
    EXPECT_EQ(removed.histogram.shares[4], 0.25);
    EXPECT_EQ(removed.histogram.shares[6], 0.5);
    EXPECT_EQ(removed.histogram.shares[8], 0.25);
    // Along the rows 10, 0, 60; along the columns 20 and 80.
    const Histogram gradients = measureGradients(view(before), 10, 2);
    ASSERT_EQ(gradients.shares.size(), 40u);
    EXPECT_EQ(gradients.shares[0], 0.2);
    EXPECT_EQ(gradients.shares[10], 0.2);
    EXPECT_EQ(gradients.shares[20], 0.2);
    EXPECT_EQ(gradients.above, 0.4);
    const Range greys = commonGreys(view(before));
    EXPECT_EQ(greys.lowest, 0);
    EXPECT_EQ(greys.highest, 90);
}

TEST(Page, StaysWithinItsSizeAndTellsWhatItShows) {
    Sample large({1500, 1300}, 3, 30, 1);
    std::mt19937 random(1);  // the noise that compresses worst
    for (auto& channel : large.before) {
        for (float& value : channel) value = static_cast<float>(random() % 256);
    }
    large.content.title = "</script><b>&";
    large.content.greys = Range{0, 255};
    const std::string page = makePage(large.content);
    EXPECT_LE(page.size(), largestPage);
    EXPECT_GT(page.size(), largestPage / 3);
    EXPECT_EQ(page.find("http:"), page.find("http://www.w3.org/2000/svg"));  // a name, no address
    EXPECT_EQ(page.find("https:"), std::string::npos);
    const auto data = dataOf(page);
    EXPECT_EQ(data["title"], "</script><b>&");
    ASSERT_EQ(data["views"].size(), 2u);
    EXPECT_GT(data["views"][0]["reduction"], 1);
    EXPECT_EQ(data["views"][1]["reduction"], 1);
    EXPECT_EQ(data["sheet"]["cells"].size(), 15u);
}

TEST(Page, HoldsSlicesOfAVolumeThroughItsMiddle) {
    Sample sample({60, 50, 21}, 1, 30, 1);
    sample.content.axes = {{1, 1}, {1, 2}, {3, 3}};
    const auto data = dataOf(makePage(sample.content));
    ASSERT_EQ(data["views"].size(), 3u);
    EXPECT_EQ(data["views"][0]["name"], "Axial");
    const auto& slices = data["views"][0]["slices"];
    EXPECT_EQ(slices.size(), 21u);
    EXPECT_EQ(slices[10]["index"], 10);
    EXPECT_EQ(data["views"][1]["spacing"], (std::vector<double>{1, 3}));
}

TEST(Page, RefusesChannelsThatDoNotMatch) {
    Sample sample({8, 6}, 3, 30, 1);
    sample.content.after.pop_back();
    EXPECT_THROW(makePage(sample.content), std::invalid_argument);
    sample.content.before.resize(2, sample.content.before[0]);
    EXPECT_THROW(makePage(sample.content), std::invalid_argument);
    Sample other({9, 6}, 1, 30, 1);
    sample.content.before.resize(1, sample.content.before[0]);
    sample.content.after = other.content.after;
    EXPECT_THROW(makePage(sample.content), std::invalid_argument);
}

}  // namespace
}  // namespace diffusefilt_page
