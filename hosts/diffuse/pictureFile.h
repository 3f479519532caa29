// Reading and writing pictures.
#pragma once

#include <filesystem>
#include <memory>
#include <vector>

#include "picture.h"
#include "stagedFile.h"

namespace diffuse {

struct Input {
    Picture picture;
    std::vector<std::filesystem::path> files;  // all that it was read from
};

// Reads the whole file, or the one DICOM series that a folder holds, in a child process. To be
// called before the process has other threads.
// Throws std::runtime_error with one line if that fails.
Input readPicture(const std::filesystem::path& file);

// Throws std::runtime_error with one line if the picture cannot be written there, as far as that
// shows without its values: no format belongs to the name, the format cannot hold the picture,
// there is no such folder, or no file can stand in that place.
void requireWritable(const std::filesystem::path& file, const Picture& picture);

// Writes the picture beside the file of that name, in the format that belongs to the name and in
// its own sample type: integers are rounded to the nearest and saturated, NaN becomes the lowest.
// Throws std::runtime_error with one line if that fails.
std::unique_ptr<StagedFile> stagePicture(const std::filesystem::path& file, const Picture& picture);

// Puts a filled file in place. Throws std::runtime_error with one line if that fails.
void commitPicture(const StagedFile& file);

}  // namespace diffuse
