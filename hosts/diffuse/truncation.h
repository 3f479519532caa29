// Files that end too early. Several of ITK's readers make up the missing samples without a word.
#pragma once

#include <itkImageIOBase.h>

#include <filesystem>

namespace diffuse {

// Throws std::runtime_error if the file holds less than its header promises. Known for NIfTI, BMP,
// JPEG, DICOM and whatever is compressed with gzip; `io` has read the header.
void requireWholeFile(const std::filesystem::path& file, const itk::ImageIOBase& io);

}  // namespace diffuse
