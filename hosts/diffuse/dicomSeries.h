// A DICOM series: a folder with one file for each slice.
#pragma once

#include <filesystem>
#include <functional>

#include "picture.h"

namespace diffuse {

// Reads every slice of the one series that the folder holds with `readSlice` and stacks them along
// their normal. Slices of different sample types become float64.
// Throws std::runtime_error if the folder holds no series or several, if slices differ in shape or
// direction, or if they do not stand in even distances; and what readSlice throws.
Picture readSeries(const std::filesystem::path& folder,
                   const std::function<Picture(const std::filesystem::path&)>& readSlice);

}  // namespace diffuse
