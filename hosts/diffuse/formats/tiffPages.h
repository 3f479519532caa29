// The pages of a TIFF by its own directories: libvips reads as many as it finds.
#pragma once

#include <filesystem>
#include <string_view>

#include "../picture.h"

namespace diffuse {

struct TiffPages {
    int count = 0;
    int channels = 0;
    PixelKind kind = PixelKind::grey;
};

bool isTiff(std::string_view head);

// Throws std::runtime_error if a directory is missing or damaged, and Refusal if pages differ or
// their pixels are neither greys nor colours nor plain channels.
TiffPages requireTiffPages(const std::filesystem::path& file);

}  // namespace diffuse
