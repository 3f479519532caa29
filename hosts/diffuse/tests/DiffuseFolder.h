// SPDX-License-Identifier: MIT
// A folder with small pictures, to run the program in.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <diffusefilt_halide.hpp>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using namespace std::string_literals;

inline std::string slurp(const fs::path& file) {
    std::ostringstream text;
    text << std::ifstream(file, std::ios::binary).rdbuf();
    return text.str();
}

class DiffuseFolder : public testing::Test {
protected:
    void SetUp() override {
        std::string name = (fs::temp_directory_path() / "diffuse-test-XXXXXX").string();
        ASSERT_NE(mkdtemp(name.data()), nullptr);
        folder = name;
        write("step.nrrd", "double", "4 3", "0 0 0 0  0 0 1 0  0 0 0 0");
        write("bytes.nrrd", "uint8", "3 2", "10 20 30  40 50 255");
        write("volume.nrrd", "int16", "3 2 2", "0 1 2  3 4 5  6 7 8  9 10 11", leftHanded);
    }
    void TearDown() override { fs::remove_all(folder); }

    // A file of NRRD with samples of one of four types; `sizes` are those of its axes.
    void write(const std::string& name, const std::string& type, const std::string& sizes,
               const std::string& values, const std::string& fields = "") const {
        std::istringstream extents(sizes), words(values);
        const auto dimensions = std::distance(std::istream_iterator<std::string>(extents), {});
        std::string samples;
        const auto put = [&](auto sample) {
            samples.append(reinterpret_cast<const char*>(&sample), sizeof sample);
        };
        for (std::string word; words >> word;) {
            const double value = std::stod(word);
            if (type == "double") put(value);
            if (type == "float") put(static_cast<float>(value));
            if (type == "int16") put(static_cast<std::int16_t>(value));
            if (type == "uint8") put(static_cast<std::uint8_t>(value));
        }
        std::ofstream(folder / name) << "NRRD0004\ntype: " << type << "\ndimension: " << dimensions
                                     << "\nsizes: " << sizes << "\n"
                                     << fields << "endian: little\nencoding: raw\n\n"
                                     << samples;
    }

    // A header of MetaImage whose six samples of 8 bits stand in the other file.
    void writePair(const std::string& header, const std::string& data,
                   const std::string& fields = "") const {
        std::ofstream(folder / data) << "samples"s.substr(1);
        std::ofstream(folder / header)
            << "ObjectType = Image\nNDims = 2\nDimSize = 3 2\nElementType = MET_UCHAR\n"
            << fields << "ElementDataFile = " << data << "\n";
    }

    // Runs the program in the folder; what it printed stands in `printed` and `complaint`.
    // `emulator` is a program to run it in, with its options.
    int run(const std::string& arguments, const std::string& emulator = "") {
        const std::string command = "cd " + folder.string() + " && " + emulator +
                                    " " DIFFUSE_PROGRAM " " + arguments +
                                    " >stdout.log 2>stderr.log";
        const int status = std::system(command.c_str());
        printed = slurp(folder / "stdout.log");
        complaint = slurp(folder / "stderr.log");
        fs::remove(folder / "stdout.log");
        fs::remove(folder / "stderr.log");
        return WEXITSTATUS(status);
    }

    // Expects a refusal in one line that holds the words, and no file that was not there before.
    void expectRefusal(const std::string& arguments, int status, const std::string& words,
                       const std::string& emulator = "") {
        const std::size_t before = files();
        EXPECT_EQ(run(arguments, emulator), status) << arguments;
        EXPECT_EQ(std::count(complaint.begin(), complaint.end(), '\n'), 1) << complaint;
        EXPECT_NE(complaint.find(words), std::string::npos) << arguments << ": " << complaint;
        EXPECT_EQ(printed, "") << arguments;
        EXPECT_EQ(files(), before) << arguments;
    }

    // The samples of an NRRD file that the program wrote.
    template <typename Sample>
    std::vector<Sample> samples(const std::string& name) const {
        const std::string text = slurp(folder / name);
        const std::size_t start = text.find("\n\n") + 2;
        std::vector<Sample> values((text.size() - start) / sizeof(Sample));
        std::memcpy(values.data(), text.data() + start, values.size() * sizeof(Sample));
        return values;
    }

    std::size_t files() const { return std::distance(fs::directory_iterator(folder), {}); }

    // Of a volume: axes of steps 2, 3 and 4 towards the right, the back and the top.
    static constexpr char leftHanded[] =
        "space: left-posterior-superior\nspace directions: (-2,0,0) (0,3,0) (0,0,4)\n"
        "space origin: (5,6,7)\n";

    fs::path folder;
    std::string printed, complaint;
};
