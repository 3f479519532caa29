// SPDX-License-Identifier: MIT
// The program as a user meets it: real runs on real files in a folder of their own.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "DiffuseFolder.h"

namespace {

TEST_F(DiffuseFolder, TakesTheStepsThatWereAskedFor) {
    ASSERT_EQ(run("step.nrrd -k 1 -n 0 -o after0.nrrd"), 0) << complaint;
    for (int steps = 1; steps <= 3; ++steps) {
        const std::string before = "after" + std::to_string(steps - 1) + ".nrrd";
        const std::string after = "after" + std::to_string(steps) + ".nrrd";
        ASSERT_EQ(run(before + " -k 1 -n 1 -o " + after), 0) << complaint;
        ASSERT_EQ(run("step.nrrd -k 1 -o out.nrrd -n " + std::to_string(steps)), 0) << complaint;
        EXPECT_EQ(samples<double>("out.nrrd"), samples<double>(after)) << steps;
    }
    EXPECT_EQ(samples<double>("after0.nrrd"),
              (std::vector<double>{0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0}));
    EXPECT_EQ(samples<double>("after1.nrrd"),
              (std::vector<double>{0, 0, 0.125, 0, 0, 0.125, 0.5, 0.125, 0, 0, 0.125, 0}));
}

TEST_F(DiffuseFolder, ChoosesThePipelineByItsOptions) {
    const auto north = [&](const std::string& options, std::size_t at) {
        EXPECT_EQ(run("step.nrrd -k 1 -n 1 -o out.nrrd " + options), 0) << complaint;
        return samples<double>("out.nrrd")[at];
    };
    EXPECT_EQ(north("--connectivity maximal", 2), 0.0625);
    EXPECT_EQ(north("--connectivity maximal", 1), 0.03125);
    const std::string other =
        std::string("--conduction ") + wordOf(diffusefilt_host::Conduction(1));
    EXPECT_EQ(north(other, 2), 0.25 * std::exp(-1.0));
    const float inFloat = static_cast<float>(0.25 * std::exp(-1.0));
    EXPECT_EQ(north(other + " --type float32", 2), inFloat);
}

TEST_F(DiffuseFolder, RoundsAndSaturatesToTheTypeOfTheInput) {
    ASSERT_EQ(run("bytes.nrrd -k 1000 -n 1 -o out.nrrd"), 0) << complaint;
    const auto values = samples<unsigned char>("out.nrrd");
    write("wide.nrrd", "double", "3 2", "10 20 30  40 50 255");
    ASSERT_EQ(run("wide.nrrd -k 1000 -n 1 -o wide-out.nrrd"), 0) << complaint;
    const auto expected = samples<double>("wide-out.nrrd");
    ASSERT_EQ(values.size(), expected.size());
    for (std::size_t i = 0; i < values.size(); ++i) EXPECT_EQ(values[i], std::lround(expected[i]));

    // Noise this wide leaves almost no sample inside the range of its type.
    ASSERT_EQ(run("bytes.nrrd -k 1 -n 0 --add-noise 1e6 -o out.nrrd"), 0) << complaint;
    for (const int value : samples<unsigned char>("out.nrrd")) {
        EXPECT_TRUE(value == 0 || value == 255);
    }
}

TEST_F(DiffuseFolder, CutsSlicesOnEveryAxis) {
    const std::vector<std::pair<std::string, std::vector<short>>> slices = {
        {"x:2", {2, 5, 8, 11}}, {"y:0", {0, 1, 2, 6, 7, 8}}, {"z:1", {6, 7, 8, 9, 10, 11}}};
    for (const auto& [slice, expected] : slices) {
        ASSERT_EQ(run("volume.nrrd -k 1 -n 0 -o out.nrrd --slice " + slice), 0) << complaint;
        EXPECT_EQ(samples<short>("out.nrrd"), expected) << slice;
    }
}

TEST_F(DiffuseFolder, NoiseIsGaussianRepeatableAndMeasured) {
    std::string zeros;
    for (int i = 0; i < 100 * 101; ++i) zeros += "0 ";
    write("flat.nrrd", "double", "101 100", zeros);
    ASSERT_EQ(run("flat.nrrd -k 1 -n 0 --add-noise 10 --seed 7 -o out.nrrd"), 0) << complaint;
    const auto noise = samples<double>("out.nrrd");
    // Computed once outside this program: SplitMix64 from 7, Box-Muller.
    EXPECT_NEAR(noise[0], 13.64992297457228, 1e-12);
    EXPECT_NEAR(noise[1], 1.4452122126941587, 1e-12);
    double sum = 0, squares = 0;
    for (const double value : noise) {
        sum += value;
        squares += value * value;
    }
    const auto count = static_cast<double>(noise.size());
    EXPECT_NEAR(sum / count, 0, 0.5);
    EXPECT_NEAR(std::sqrt(squares / count), 10, 0.3);

    write("bytes.nrrd", "uint8", "101 100", zeros);
    ASSERT_EQ(run("bytes.nrrd -k 1 -n 0 --add-noise 10 --seed 7"), 0) << complaint;
    char line[100];
    const double psnr = 10 * std::log10(255 * 255 * count / squares);
    std::snprintf(line, sizeof line, "PSNR before: %.2f dB\nPSNR after: %.2f dB\n", psnr, psnr);
    EXPECT_EQ(printed, line);
}

TEST_F(DiffuseFolder, PreviewShowsThePanelsSideBySide) {
    ASSERT_EQ(run("bytes.nrrd -k 1e-9 -n 1 --preview sheet.nrrd"), 0) << complaint;
    // 10 to 255 is stretched to 0 to 255; a threshold this small changes nothing.
    const std::vector<unsigned char> expected = {0,  10, 21,  255, 255, 255, 255, 0,  10, 21,
                                                 31, 42, 255, 255, 255, 255, 255, 31, 42, 255};
    EXPECT_EQ(samples<unsigned char>("sheet.nrrd"), expected);
}

}  // namespace
