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

// A step on a small grid, as the textbook has it.
std::vector<double> plainStep(const std::vector<double>& c, int width, int height, double k) {
    std::vector<double> next;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const auto flux = [&](int dx, int dy) {
                const int xn = std::clamp(x + dx, 0, width - 1);
                const int yn = std::clamp(y + dy, 0, height - 1);
                const double d = c[yn * width + xn] - c[y * width + x];
                return d / (1 + d * d / (k * k));
            };
            const double sum = flux(0, 1) + flux(1, 0) + flux(-1, 0) + flux(0, -1);
            next.push_back(c[y * width + x] + 0.25 * sum);
        }
    }
    return next;
}

TEST_F(DiffuseFolder, TakesTheStepsThatWereAskedFor) {
    std::vector<double> expected = {0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0};
    for (int steps = 0; steps <= 3; ++steps) {
        ASSERT_EQ(run("step.nrrd -k 1 -o out.nrrd -n " + std::to_string(steps)), 0) << complaint;
        const auto values = samples<double>("out.nrrd");
        ASSERT_EQ(values.size(), expected.size());
        if (steps == 1) {
            EXPECT_EQ(values[2], 0.125);
        }
        for (std::size_t i = 0; i < values.size(); ++i) {
            EXPECT_NEAR(values[i], expected[i], 1e-14) << "step " << steps << ", sample " << i;
        }
        expected = plainStep(expected, 4, 3, 1);
    }
}

TEST_F(DiffuseFolder, ChoosesThePipelineByItsOptions) {
    const auto north = [&](const std::string& options, std::size_t at) {
        EXPECT_EQ(run("step.nrrd -k 1 -n 1 -o out.nrrd " + options), 0) << complaint;
        return samples<double>("out.nrrd")[at];
    };
    EXPECT_EQ(north("--connectivity maximal", 2), 0.0625);
    EXPECT_EQ(north("--connectivity maximal", 1), 0.03125);
    EXPECT_EQ(north("--conduction exponential", 2), 0.25 * std::exp(-1.0));
    const float inFloat = static_cast<float>(0.25 * std::exp(-1.0));
    EXPECT_EQ(north("--conduction exponential --type float32", 2), inFloat);
    EXPECT_EQ(run("step.nrrd -k 1 -o out.nrrd --type float16"), 2);
}

TEST_F(DiffuseFolder, RoundsAndSaturatesToTheTypeOfTheInput) {
    ASSERT_EQ(run("bytes.nrrd -k 1000 -n 1 -o out.nrrd"), 0) << complaint;
    const auto expected = plainStep({10, 20, 30, 40, 50, 255}, 3, 2, 1000);
    const auto values = samples<unsigned char>("out.nrrd");
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
    double sum = 0, squares = 0, within = 0;
    for (const double value : noise) {
        sum += value;
        squares += value * value;
        within += std::abs(value) < 10;
    }
    const auto count = static_cast<double>(noise.size());
    EXPECT_NEAR(sum / count, 0, 0.5);
    EXPECT_NEAR(std::sqrt(squares / count), 10, 0.3);
    EXPECT_NEAR(within / count, 0.6827, 0.02);

    write("bytes.nrrd", "uint8", "101 100", zeros);
    ASSERT_EQ(run("bytes.nrrd -k 1 -n 0 --add-noise 10 --seed 7"), 0) << complaint;
    char line[100];
    const double psnr = 10 * std::log10(255 * 255 * count / squares);
    std::snprintf(line, sizeof line, "PSNR before: %.2f dB\nPSNR after: %.2f dB\n", psnr, psnr);
    EXPECT_EQ(printed, line);
}

TEST_F(DiffuseFolder, ReadsBackEveryFormatThatItWrites) {
    for (const std::string name :
         {"a.png", "a.tif", "a.bmp", "a.nii", "a.nii.gz", "a.nrrd", "a.mha", "a.mhd", "a.dcm"}) {
        ASSERT_EQ(run("bytes.nrrd -k 1 -n 0 -o " + name), 0) << complaint;
        ASSERT_EQ(run(name + " -k 1 -n 0 -o back.nrrd"), 0) << complaint;
        EXPECT_EQ(complaint, "");
        EXPECT_EQ(samples<unsigned char>("back.nrrd"),
                  (std::vector<unsigned char>{10, 20, 30, 40, 50, 255}))
            << name;
    }
}

TEST_F(DiffuseFolder, RefusesFilesThatEndTooEarly) {
    std::string zeros;
    for (int i = 0; i < 60 * 61; ++i) zeros += "0 ";
    write("flat.nrrd", "uint8", "61 60", zeros);
    for (const std::string name :
         {"a.png", "a.tif", "a.jpg", "a.bmp", "a.nii", "a.nii.gz", "a.nrrd", "a.mha", "a.hdr"}) {
        ASSERT_EQ(run("flat.nrrd -k 1 -n 0 --add-noise 90 -o " + name), 0) << complaint;
        ASSERT_EQ(run(name + " -k 1 -n 0 -o out.nrrd"), 0) << complaint;
        fs::remove(folder / "out.nrrd");
        const fs::path data = folder / (name == "a.hdr" ? "a.img" : name);
        fs::resize_file(data, fs::file_size(data) - 1000);
        EXPECT_EQ(run(name + " -k 1 -o out.nrrd"), 1) << name;
        EXPECT_EQ(std::count(complaint.begin(), complaint.end(), '\n'), 1) << complaint;
        EXPECT_FALSE(fs::exists(folder / "out.nrrd")) << name;
    }
}

TEST_F(DiffuseFolder, MontageShowsThePanelsSideBySide) {
    ASSERT_EQ(run("bytes.nrrd -k 1e-9 -n 1 --montage sheet.nrrd"), 0) << complaint;
    // 10 to 255 is stretched to 0 to 255; a threshold this small changes nothing.
    const std::vector<unsigned char> expected = {0,  10, 21,  255, 255, 255, 255, 0,  10, 21,
                                                 31, 42, 255, 255, 255, 255, 255, 31, 42, 255};
    EXPECT_EQ(samples<unsigned char>("sheet.nrrd"), expected);
}

TEST_F(DiffuseFolder, RefusesBadInputInOneLineAndWritesNothing) {
    write("line.nrrd", "double", "4", "1 2 3 4");
    write("four.nrrd", "double", "2 1 1 2", "1 2 3 4");
    std::ofstream(folder / "colour.nrrd")
        << "NRRD0004\ntype: uint8\ndimension: 3\nsizes: 3 1 2\nkinds: RGB-color domain domain\n"
           "encoding: ascii\n\n1 1 1 2 3 4\n";
    std::ofstream(folder / "text.png") << "this is no picture\n";
    std::ofstream(folder / "empty.nrrd");
    std::ofstream(folder / "short.nrrd") << slurp(folder / "step.nrrd").substr(0, 75);
    fs::create_directory(folder / "taken.nrrd");
    const struct {
        const char* arguments;
        int status;
        const char* words;
    } cases[] = {
        {"missing.png -k 1 -o out.nrrd", 1, "missing.png: No such file"},
        {"text.png -k 1 -o out.nrrd", 1, "text.png: unknown format"},
        {"empty.nrrd -k 1 -o out.nrrd", 1, "empty.nrrd"},
        {"short.nrrd -k 1 -o out.nrrd", 1, "short.nrrd"},
        {". -k 1 -o out.nrrd", 1, "folder"},
        {"line.nrrd -k 1 -o out.nrrd", 1, "1 dimensions"},
        {"colour.nrrd -k 1 -o out.nrrd", 1, "in colour"},
        {"four.nrrd -k 1 -o out.nrrd", 1, "4 dimensions"},
        {"volume.nrrd -k 1 -o out.png", 1, "no volumes"},
        {"volume.nrrd -k 1 -o out.dcm", 1, "left-handed"},
        {"volume.nrrd -k 1 -o out.nrrd --slice z:2", 1, "slices 0 to 1"},
        {"step.nrrd -k 1 -o out.nrrd --slice z:0", 1, "3 dimensions"},
        {"step.nrrd -k 1 -o out.unknown", 1, "out.unknown"},
        {"step.nrrd -k 1 -o out.png", 1, "out.png"},  // PNG has no floating point
        {"step.nrrd -k 1 -o no/out.nrrd", 1, "no/out.nrrd: No such file"},
        {"step.nrrd -k 1 -o taken.nrrd", 1, "taken.nrrd: Is a directory"},
        {"volume.nrrd -k 1 -o out.nrrd --slice z:-1", 2, "AXIS:INDEX"},
        {"volume.nrrd -k 1 -o out.nrrd --slice w:1", 2, "AXIS:INDEX"},
        {"volume.nrrd -k 1 -o out.nrrd --slice z:1x", 2, "AXIS:INDEX"},
        {"step.nrrd -k 1 -o out.nrrd -n -1", 2, "--iterations"},
        {"step.nrrd -k 1 -o out.nrrd -n 2.5", 2, "--iterations"},
        {"step.nrrd -k nan -o out.nrrd", 2, "--threshold"},
        {"step.nrrd -k inf -o out.nrrd", 2, "--threshold"},
        {"step.nrrd -k 0 -o out.nrrd", 2, "--threshold"},
        {"step.nrrd -k ten -o out.nrrd", 2, "--threshold"},
        {"step.nrrd -o out.nrrd", 2, "--threshold"},
        {"step.nrrd -k 1 -o out.nrrd --add-noise -3", 2, "--add-noise"},
        {"step.nrrd -k 1 -o out.nrrd --instruction-set sse", 2, "--instruction-set"},
        {"step.nrrd -k 1", 2, "nothing to do"},
        {"-k 1 -o out.nrrd", 2, "input"},
        {"step.nrrd -k 1 -o out.nrrd --unknown", 2, "--unknown"},
    };
    const std::size_t before = files();
    for (const auto& [arguments, status, words] : cases) {
        EXPECT_EQ(run(arguments), status) << arguments;
        EXPECT_EQ(std::count(complaint.begin(), complaint.end(), '\n'), 1) << complaint;
        EXPECT_NE(complaint.find(words), std::string::npos) << arguments << ": " << complaint;
        EXPECT_EQ(printed, "") << arguments;
        EXPECT_EQ(files(), before) << arguments;
    }
}

}  // namespace
