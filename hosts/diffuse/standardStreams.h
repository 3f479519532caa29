// SPDX-License-Identifier: MIT
// Standard input and output in the place of files.
#pragma once

#include <filesystem>
#include <string>

#include "pictureFile.h"

namespace diffuse {

// The name - stands for them.
bool isStream(const std::filesystem::path& file);

// All of standard input as a file of a name that tells its format, as long as this exists.
class StandardInput {
public:
    // Throws std::runtime_error if it cannot be kept.
    StandardInput();
    ~StandardInput();
    StandardInput(const StandardInput&) = delete;
    StandardInput& operator=(const StandardInput&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const { return path_; }

private:
    int file_ = -1;
    std::filesystem::path folder_, path_;
};

// The name of the output; of standard output one that tells the format, which is that of the input.
std::filesystem::path outputName(const std::filesystem::path& output, const Input& input);

// Writes the picture to standard output, in the format that belongs to the name.
// Throws std::runtime_error with one line if that fails.
void printPicture(const std::filesystem::path& name, const Picture& picture);

}  // namespace diffuse
