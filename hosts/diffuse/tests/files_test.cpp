// SPDX-License-Identifier: MIT
// Formats, colours, and the place of a picture in space.
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <regex>
#include <string>
#include <vector>

#include "DiffuseFolder.h"

namespace {

using Bytes = std::vector<unsigned char>;

TEST_F(DiffuseFolder, KeepsTheResolutionOfPictures) {
    write("rgb.nrrd", "uint8", "3 3 2", "9 8 7  1 2 3  9 9 9  5 5 4  0 255 0  3 2 1",
          "kinds: RGB-color domain domain\nspacings: NaN 0.25 0.5\n");
    for (const std::string name : {"a.png", "a.tif"}) {
        ASSERT_EQ(run("rgb.nrrd -n 0 -o " + name), 0) << complaint;
        ASSERT_EQ(run(name + " -n 0 -o back.nrrd"), 0) << complaint;
        EXPECT_NE(slurp(folder / "back.nrrd").find(" 0.25 0.5\n"), std::string::npos)
            << name << slurp(folder / "back.nrrd");
    }
}

TEST_F(DiffuseFolder, KeepsTheCommentsOfAJpeg) {
    ASSERT_EQ(run("bytes.nrrd -n 0 -o plain.jpg"), 0) << complaint;
    const std::string comment = "\xff\xfe\0\x07words"s;
    std::ofstream(folder / "a.jpg") << slurp(folder / "plain.jpg").insert(2, comment);
    ASSERT_EQ(run("a.jpg -n 0 -o b.jpg"), 0) << complaint;
    EXPECT_NE(slurp(folder / "b.jpg").find(comment), std::string::npos);
    EXPECT_EQ(run("b.jpg -n 0 -o c.nrrd"), 0) << complaint;
}

TEST_F(DiffuseFolder, FiltersColoursByChannelAndKeepsOpacity) {
    const std::string channels[] = {"10 20 30 40 50 255", "1 2 200 4 5 6", "90 80 70 60 50 40"};
    std::vector<Bytes> filtered;
    for (const std::string& values : channels) {
        write("channel.nrrd", "uint8", "3 2", values);
        ASSERT_EQ(run("channel.nrrd -k 100 -n 2 -o out.nrrd"), 0) << complaint;
        filtered.push_back(samples<unsigned char>("out.nrrd"));
    }
    write("colours.nrrd", "uint8", "4 3 2",
          "10 1 90 7  20 2 80 200  30 200 70 7  40 4 60 7  50 5 50 7  255 6 40 7",
          "kinds: RGBA-color domain domain\n");
    ASSERT_EQ(run("colours.nrrd -k 100 -n 2 -o out.nrrd --preview sheet.nrrd"), 0) << complaint;
    const Bytes out = samples<unsigned char>("out.nrrd");
    const Bytes sheet = samples<unsigned char>("sheet.nrrd");
    ASSERT_EQ(out.size(), 24u);
    ASSERT_EQ(sheet.size(), 3u * 10 * 2);
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(out[4 * i + 3], i == 1 ? 200 : 7);
        for (int c = 0; c < 3; ++c) EXPECT_EQ(out[4 * i + c], filtered[c][i]) << i << " " << c;
    }
    EXPECT_EQ((Bytes{sheet.begin(), sheet.begin() + 3}), (Bytes{9, 0, 89}));  // 1 to 255 stretched
}

TEST_F(DiffuseFolder, KeepsThePlaceInSpace) {
    const std::string geometry =
        "space: left-posterior-superior\nspace directions: (0,2,0) (0,0,3) (4,0,0)\n"
        "space origin: (5,6,7)\n";
    write("volume.nrrd", "int16", "3 2 2", "0 1 2  3 4 5  6 7 8  9 10 11", geometry);
    write("single.nrrd", "int16", "3 2 1", "0 1 2  3 4 5", geometry);
    const struct {
        const char* source;
        const char* directions;
        const char* origin;
    } cases[] = {{"volume.nrrd", "(0,2,0) (0,0,3) (4,0,0)", "(5,6,7)"},
                 {"single.nrrd", "(0,2,0) (0,0,3) (4,0,0)", "(5,6,7)"},
                 {"volume.nrrd --slice z:1", "(0,2,0) (0,0,3) (4,0,0)", "(9,6,7)"},
                 {"volume.nrrd --slice y:1", "(0,2,0) (4,0,0) (0,0,-3)", "(5,6,10)"},
                 {"volume.nrrd --slice x:2", "(0,0,3) (4,0,0) (0,2,0)", "(5,10,7)"}};
    for (const auto& [source, directions, origin] : cases) {
        for (const std::string name : {"a.nii.gz", "a.mha"}) {
            ASSERT_EQ(run(std::string(source) + " -n 1 -o " + name), 0) << complaint;
            ASSERT_EQ(run(name + " -n 0 -o back.nrrd"), 0) << complaint;
            const std::string header =
                std::regex_replace(slurp(folder / "back.nrrd"), std::regex("-0(?=[,)])"), "0");
            for (const std::string& line : {"space directions: " + std::string(directions),
                                            "space origin: " + std::string(origin)}) {
                EXPECT_NE(header.find(line), std::string::npos) << source << name << header;
            }
        }
    }
}

}  // namespace
