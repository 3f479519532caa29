// SPDX-License-Identifier: MIT
// Whole volumes, and the instruction sets that the program chooses from.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

#include "DiffuseFolder.h"

namespace {

TEST_F(DiffuseFolder, OneSliceIsAPictureUnlessItStandsOnAnotherAxis) {
    const auto centreOf = [&](const std::string& sizes) {
        write("thin.nrrd", "double", sizes, "0 0 0  0 1 0  0 0 0", leftHanded);
        EXPECT_EQ(run("thin.nrrd -k 1 -n 1 -o out.nrrd --preview sheet.nrrd"), 0) << complaint;
        return samples<double>("out.nrrd")[4];
    };
    EXPECT_NEAR(centreOf("3 3 1"), 1 - 4 * 0.125, 1e-15);
    EXPECT_NEAR(centreOf("3 1 3"), 1 - 4 / 12.0, 1e-15);
}

// A body of 3 x 5 x 7 voxels (left, posterior, superior), whatever way its axes run in the file.
TEST_F(DiffuseFolder, PreviewShowsCentralSlicesUpright) {
    const int extents[] = {3, 5, 7};
    const auto grey = [](int left, int back, int up) { return left + 3 * (back + 5 * up); };
    // Axial 3 x 5, coronal 3 x 7, sagittal 5 x 7, with gaps of 4; filtered below clean.
    std::vector<unsigned char> expected(19 * 18, 255);
    const auto show = [&](int x, int y, int value) {
        const auto shown = static_cast<unsigned char>(std::lround(value * (255 / 104.0)));
        expected[19 * y + x] = expected[19 * (y + 11) + x] = shown;
    };
    for (int row = 0; row < 7; ++row) {
        for (int i = 0; i < 3 && row < 5; ++i) show(i, row, grey(i, row, 3));
        for (int i = 0; i < 3; ++i) show(7 + i, row, grey(i, 2, 6 - row));
        for (int i = 0; i < 5; ++i) show(14 + i, row, grey(1, i, 6 - row));
    }
    const struct {
        int course[3];  // along left, posterior or superior: 0, 1, 2
        bool reversed[3];
        const char* directions;
    } files[] = {{{0, 1, 2}, {true, false, false}, "(-1,0,0) (0,1,0) (0,0,1)"},
                 {{1, 2, 0}, {false, true, false}, "(0,1,-0.2) (0,-0.2,-1) (1,0,0)"},
                 {{2, 0, 1}, {false, false, true}, "(0,0,1) (1,0,0) (0,-1,0)"}};
    for (const auto& [course, reversed, directions] : files) {
        std::string sizes, values;
        for (const int c : course) sizes += std::to_string(extents[c]) + " ";
        for (int i = 0; i < 3 * 5 * 7; ++i) {
            int at[3];
            for (int axis = 0, rest = i; axis < 3; rest /= extents[course[axis++]]) {
                const int c = course[axis];
                at[c] = reversed[axis] ? extents[c] - 1 - rest % extents[c] : rest % extents[c];
            }
            values += std::to_string(grey(at[0], at[1], at[2])) + " ";
        }
        const std::string space = "space: left-posterior-superior\nspace directions: ";
        write("body.nrrd", "uint8", sizes, values, space + directions + "\n");
        ASSERT_EQ(run("body.nrrd -k 1 -n 0 --preview sheet.nrrd"), 0) << complaint;
        EXPECT_EQ(samples<unsigned char>("sheet.nrrd"), expected) << directions;
    }
}

// What stands behind `auto` shows in the last bits: no two sets agree in all of them.
TEST_F(DiffuseFolder, AutoRunsTheBestSetOfTheProcessor) {
    if (std::system("command -v qemu-x86_64 >/dev/null") != 0) {
        GTEST_SKIP() << "qemu-x86_64 is missing: the choice was not tried on other processors";
    }
    std::string values;
    for (int i = 0; i < 400; ++i) values += std::to_string(i * i % 97 + 0.1 * (i % 7)) + " ";
    write("rough.nrrd", "double", "20 20", values);
    const std::string call = "rough.nrrd -k 30 -n 2 --connectivity maximal -o ";
    // Without XSAVE no state of AVX can be saved.
    const std::string all = ",+xsave,+avx,+avx2,+fma,+bmi1,";
    const std::vector<std::string> sets = {"none", "avx", "avx2"};
    const struct {
        std::string features;
        std::size_t best;
    } processors[] = {{"", 0}, {all + "-xsave", 0}, {",+xsave,+avx", 1}, {all + "+popcnt", 2}};
    for (const auto& [features, best] : processors) {
        const std::string emulator = "qemu-x86_64 -cpu qemu64,+ssse3,+sse4.1" + features;
        ASSERT_EQ(run(call + "auto.nrrd", emulator), 0) << features << ": " << complaint;
        for (std::size_t i = 0; i < sets.size(); ++i) {
            const std::string output = sets[i] + ".nrrd";
            const int status = run(call + output + " --instruction-set " + sets[i], emulator);
            EXPECT_EQ(status, i > best ? 1 : 0) << features << ": " << complaint;
            if (i > best) {
                EXPECT_NE(complaint.find("cannot run the " + sets[i]), std::string::npos);
                EXPECT_EQ(std::count(complaint.begin(), complaint.end(), '\n'), 1) << complaint;
            } else {
                EXPECT_EQ(slurp(folder / "auto.nrrd") == slurp(folder / output), i == best)
                    << features << ": " << sets[i];
            }
        }
    }
}

}  // namespace
