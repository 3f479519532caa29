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

#include "picture/picture.h"

namespace diffuse {

// A file that is understood and not taken, in one line that says what would be lost. Any other
// exception of a reader means a damaged file.
struct Refusal : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Does the work; turns what it throws into a std::runtime_error of one line with these words
// before.
void explainFailures(const std::string& before, const std::function<void()>& work);

// What the headers of a file tell, and how to get at its samples.
struct Contents {
    Picture picture;              // without its samples
    double slope = 1, shift = 0;  // a value is slope * sample + shift
    // Puts all samples, of the picture's sample type, where it is told, the channels of a pixel
    // together. Throws if one is missing.
    std::function<void(std::byte*)> read = {};
    std::filesystem::path companion = {};  // that holds the samples, if the file does not
};

struct Format {
    const char* name;
    std::vector<std::string> suffixes;  // in lower case, with their dots
    // Whether a file is of this format, by its first bytes.
    bool (*recognises)(std::string_view head);
    Contents (*open)(const std::filesystem::path& file);
    // Where the format is written, all in one file, which exists. Throws Refusal for what it cannot
    // hold beyond the lists below.
    void (*write)(const std::string& file, const Picture& picture) = nullptr;
    std::vector<PixelKind> kinds = {};
    std::vector<SampleType> types = {};
    bool holdsVolumes = true, holdsProfiles = false;
    bool hasPages = false;     // which may be pictures or the slices of a volume
    bool holdsSeries = false;  // of volumes; of pictures also where it has pages
};

// Throws Refusal if the format does not hold such a picture, which may be without samples.
void requireHeld(const Format& format, const Picture& picture);

inline const std::vector<SampleType> allTypes = {
    SampleType::uint8,   SampleType::int8,   SampleType::uint16, SampleType::int16,
    SampleType::uint32,  SampleType::int32,  SampleType::uint64, SampleType::int64,
    SampleType::float32, SampleType::float64};

// Adds a format to the list. For static objects alone.
struct KnownFormat {
    explicit KnownFormat(const Format& format);
};

// The format of an existing file by its contents, of a folder DICOM; null if no format knows them.
// Throws Refusal if it cannot be read.
const Format* formatOf(const std::filesystem::path& file);

// The format whose suffix ends the name, whatever the case of its letters; null if there is none.
const Format* formatOfName(const std::filesystem::path& file);

// Whether files of this name are written.
bool isWritten(const std::filesystem::path& file);

// The extent of an axis, 1 to 2147483647. Throws Refusal for any other.
int requireExtent(std::uint64_t samples);

// The bytes of all samples. Throws Refusal if there are not 2 or 3 axes, or the library's records
// cannot hold them.
std::uint64_t requireSize(const Picture& picture);

// The key of the colour profile among the notes of a picture.
inline constexpr char colourProfile[] = "icc-profile-data";

}  // namespace diffuse
