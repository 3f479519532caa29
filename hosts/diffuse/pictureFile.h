// SPDX-License-Identifier: MIT
// Reading and writing pictures.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <vector>

#include "picture/picture.h"
#include "stagedFile.h"

namespace diffuse {

struct Input {
    Picture picture;
    std::vector<std::filesystem::path> files;  // all that it was read from
    std::string suffix;                        // of the format, or of NRRD where it is not written
    bool knowsSpacing = true;                  // between the slices of a volume
};

struct ReadSettings {
    std::optional<SliceChoice> slice = {};
    bool spreadsNan = false;
    bool pagesAreVolume = false;  // and not pictures of their own, where a format has pages
};

// Reads the whole file, standard input or the one DICOM series that a folder holds, in a child
// process, and leaves a slice of it if one is chosen. To be called before the process has other
// threads. Throws std::runtime_error with one line if that fails; unless `spreadsNan`, also if
// there are samples that are no finite numbers.
Input readPicture(const std::filesystem::path& file, const ReadSettings& settings);

// Throws std::runtime_error with one line if no file can stand in that place.
void requirePlace(const std::filesystem::path& file);

// Throws std::runtime_error with one line if the picture cannot be written there, as far as that
// shows without its samples: no format belongs to the name, the format cannot hold the picture, or
// no file can stand there.
void requireWritable(const std::filesystem::path& file, const Picture& picture);

// Writes the picture for the file of that name, in the format that belongs to the name.
// Throws std::runtime_error with one line if that fails.
std::unique_ptr<StagedFile> stagePicture(const std::filesystem::path& file, const Picture& picture);

std::unique_ptr<StagedFile> stageText(const std::filesystem::path& file, const std::string& text);

// Puts a staged file in place. Throws std::runtime_error with one line if that fails.
void commitFile(const StagedFile& file);

}  // namespace diffuse
