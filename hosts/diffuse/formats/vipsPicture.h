// SPDX-License-Identifier: MIT
// What the formats share that libvips reads and writes; it takes its warnings for failures here.
#pragma once

#include <string>
#include <vips/vips8>

#include "Format.h"

namespace diffuse {

// Opens the file of pages of equal size by a loader of libvips. Throws Refusal for samples of
// other types than the program has and for inks, vips::VError for a damaged file.
Contents loadPages(const char* loader, const std::filesystem::path& file, int pages,
                   vips::VOption* options = vips::VImage::option());

// Writes the picture, or the volume as pages. Throws vips::VError if that fails.
void savePages(const char* saver, const std::string& file, const Picture& picture,
               vips::VOption* options);

}  // namespace diffuse
