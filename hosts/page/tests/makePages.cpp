// SPDX-License-Identifier: MIT
// Writes pages for the browser's test into a folder: of a picture, of a large one in colour, and of
// a volume.
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "Sample.h"

namespace {

void writePages(const std::filesystem::path& folder) {
    using namespace diffusefilt_page;
    std::filesystem::create_directories(folder);
    const auto write = [&](const char* name, Sample& sample) {
        sample.content.title = name;
        sample.content.facts = {{"File", name}, {"Threshold", "found by <b>hand</b>"}};
        std::ofstream(folder / name) << makePage(sample.content);
    };
    Sample picture({300, 200}, 1, 30, 3);
    write("picture.html", picture);
    Sample colour({1400, 900}, 3, 30, 3);
    colour.content.greys = Range{0, 255};
    write("colour.html", colour);
    Sample volume({90, 110, 40}, 1, 30, 3);
    volume.content.axes = {{1, -1}, {1, -2}, {2.5, 3}};
    volume.content.remarks = {
        "The spacings differ by a factor of 2.5, which the step does not know."};
    write("volume.html", volume);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    try {
        writePages(argv[1]);
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
