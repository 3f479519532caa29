// Reading and writing pictures: PNG, TIFF, JPEG, BMP, NIfTI, NRRD, MetaImage, DICOM.
#pragma once

#include <filesystem>

#include "picture.h"

namespace diffuse {

// Reads the whole file. Trailing axes of one sample are dropped, down to two dimensions.
// Throws std::runtime_error with one line if the file cannot be read or is not grey.
Picture readPicture(const std::filesystem::path& file);

// Throws std::runtime_error if no format belongs to the name of the file, or one that cannot hold
// so many dimensions.
void requireWritableFormat(const std::filesystem::path& file, int dimensions);

// Writes the picture in the format that belongs to the name, in its own sample type: integers
// are rounded to the nearest and saturated, NaN becomes the lowest. The file stands whole or,
// after std::runtime_error, not at all.
void writePicture(const std::filesystem::path& file, const Picture& picture);

}  // namespace diffuse
