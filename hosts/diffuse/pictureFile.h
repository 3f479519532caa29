// Reading and writing pictures: PNG, TIFF, JPEG, BMP, NIfTI, NRRD, MetaImage, DICOM.
#pragma once

#include <filesystem>

#include "picture.h"

namespace diffuse {

// Reads the whole file, or the one DICOM series that a folder holds.
// Throws std::runtime_error with one line if that fails.
Picture readPicture(const std::filesystem::path& file);

// Throws std::runtime_error with one line if the picture cannot be written there, as far as that
// shows without its values: no format belongs to the name of the file, the format cannot hold so
// many dimensions or channels, there is no such folder, or a folder stands in the place.
void requireWritable(const std::filesystem::path& file, int dimensions, PixelKind pixelKind);

// Writes the picture in the format that belongs to the name, in its own sample type: integers
// are rounded to the nearest and saturated, NaN becomes the lowest. The file stands whole or,
// after std::runtime_error with one line, not at all.
void writePicture(const std::filesystem::path& file, const Picture& picture);

}  // namespace diffuse
