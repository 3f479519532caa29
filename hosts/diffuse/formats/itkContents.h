// Files that ITK reads.
#pragma once

#include <itkImageIOBase.h>

#include <filesystem>

#include "Format.h"
#include "rawData.h"

namespace diffuse {

// What ITK finds in the file, by the reader that is given. Throws what ITK throws, and Refusal for
// pixels that are neither grey nor colours nor vectors.
Contents contentsOf(const itk::ImageIOBase::Pointer& io, const std::filesystem::path& file);

// What ITK finds, with samples that stand as they are in a file; their number and order follow from
// what ITK found.
Contents contentsOf(const itk::ImageIOBase::Pointer& io, const std::filesystem::path& file,
                    RawSamples raw);

// A picture whose place in space is unknown; its spacing stays.
void forgetPlace(Picture& picture);

}  // namespace diffuse
