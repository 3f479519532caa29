// What formats share that put plain samples behind a header of text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

#include "../picture.h"

namespace diffuse {

// Calls `take` with each line of the file, without its ending, until it returns false or the file
// ends. Returns the offset behind the last line.
// Throws std::runtime_error if more than a mebibyte is taken.
std::uintmax_t readLines(const std::filesystem::path& file,
                         const std::function<bool(std::string_view line)>& take);

// The text without the white space at its ends.
std::string trimmed(std::string_view text);

// The name of a header's data as a file of its folder. Throws Refusal if it leads out of it or
// stands for several files.
std::string requireNeighbour(const std::string& name);

// Samples as they stand in a file.
struct RawSamples {
    std::filesystem::path file;
    std::uintmax_t offset = 0;   // in the file, of the samples or of the stream they are packed in
    bool packed = false;         // by zlib or gzip
    std::uintmax_t skipped = 0;  // bytes before the samples, once they are unpacked
    std::uintmax_t bytes = 0;
    int swapped = 1;  // bytes of which the order is not this machine's
};

// Throws std::runtime_error unless the file holds these bytes and no more, once they are unpacked
// and their checksum is compared. What is not packed is looked at by `requireWhole` alone.
void requireWhole(const RawSamples& raw);
void readSamples(const RawSamples& raw, std::byte* samples);

std::size_t sizeOf(SampleType type);

// All samples of a picture as a file has them: of its sample type, rounded and saturated, with the
// channels of a pixel together or, if planar, one channel after the other.
std::string samplesOf(const Picture& picture, bool planar = false);

// Writes header and samples: into one file, or the samples into one of their own if `data` is not
// empty. Throws std::runtime_error if that fails.
void writeTextAndSamples(const std::filesystem::path& file, const std::string& header,
                         const std::filesystem::path& data, const Picture& picture);

// Throws Refusal for grey with opacity, which only PNG and TIFF hold.
void refuseGreyOpacity(const Picture& picture, const char* format);

}  // namespace diffuse
