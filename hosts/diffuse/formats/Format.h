// SPDX-License-Identifier: MIT
// What the program knows of a format of files. Each family of formats stands in one file beside
// this one, which adds it to the list by a KnownFormat.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "../picture.h"

namespace diffuse {

// A file that is understood and not taken, in one line that says what would be lost. Any other
// exception of a reader means a damaged file.
struct Refusal : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// What the headers of a file tell, and how to get at its samples.
struct Contents {
    Picture picture;              // without its samples
    double slope = 1, shift = 0;  // a value is slope * sample + shift
    // Puts all samples, of the picture's sample type, where it is told, the channels of a pixel
    // together. Throws if one is missing.
    std::function<void(std::byte*)> read = {};
};

struct Format {
    const char* name;
    std::vector<std::string> suffixes;  // in lower case, with their dots
    // Whether a file is of this format, by its first bytes, unpacked if gzip has packed them.
    bool (*recognises)(std::string_view head);
    Contents (*open)(const std::filesystem::path& file);

    // Where the format is written: throws Refusal if it cannot hold such a picture, which may be
    // without samples; writes it, all in one file, which exists.
    void (*requireHeld)(const Picture& picture) = nullptr;
    void (*write)(const std::string& file, const Picture& picture) = nullptr;
    bool keepsProfile = false;  // the colour profile

    // Where a file may name another of its folder that holds its samples: that one, or nothing.
    std::filesystem::path (*companion)(const std::filesystem::path& file) = nullptr;
};

// Adds a format to the list. For static objects alone.
struct KnownFormat {
    explicit KnownFormat(const Format& format);
};

// The format of an existing file by its contents, of a folder DICOM; else that of its name; else
// null. Throws Refusal if it cannot be read.
const Format* formatOf(const std::filesystem::path& file);

// The format whose suffix ends the name, whatever the case of its letters; null if there is none.
const Format* formatOfName(const std::filesystem::path& file);

// The extent of an axis, 1 to 2147483647. Throws Refusal for any other.
int requireExtent(std::uint64_t samples);

// The bytes of all samples. Throws Refusal if there are not 2 or 3 axes, or the library's records
// cannot hold them.
std::uint64_t requireSize(const Picture& picture);

// The key of the colour profile among the notes of a picture.
inline constexpr char colourProfile[] = "icc-profile-data";

}  // namespace diffuse
