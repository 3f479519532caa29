// SPDX-License-Identifier: MIT
// What formats share that put plain samples behind a header.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "Format.h"

namespace diffuse {

using Words = std::vector<const char*>;

// A header of lines, each a name, a separator and a value.
struct TextHeader {
    std::map<std::string, std::string> fields;  // names in lower case without blanks
    std::string notes;                          // lines with a separator of two characters
    std::uintmax_t end = 0;                     // the offset behind it

    [[nodiscard]] bool has(const std::string& name) const { return fields.contains(name); }
    // Empty if there is none.
    [[nodiscard]] std::string field(const std::string& name) const;
    // Throws std::runtime_error unless the field has `count` numbers and no other words.
    [[nodiscard]] std::vector<double> numbers(const std::string& name, std::size_t count) const;
    // The same of whole numbers, 1 to 2147483647.
    [[nodiscard]] std::vector<int> extents(const std::string& name, std::size_t count) const;
    // The field's place among the words. Throws Refusal if it has none.
    std::size_t wordIn(const std::string& name, const Words& words) const;
    // Throws Refusal if there is a field of another name.
    void allow(const Words& names) const;
};

// Reads lines up to an empty one or through that of the field `last`.
// Throws Refusal if a field comes twice, std::runtime_error if the header does not end.
TextHeader readHeader(const std::filesystem::path& file, char separator, const std::string& last);

// Samples as they stand in a file.
struct RawSamples {
    std::filesystem::path file;
    std::string name = {};       // of the file beside it that holds them, if it does not
    std::uintmax_t offset = 0;   // in the file, of the samples or of the stream they are packed in
    bool isPacked = false;       // by gzip
    std::uintmax_t skipped = 0;  // bytes before the samples, once they are unpacked
    bool isSwapped = false;      // whether the highest byte of a sample comes first
};

// A picture with these samples. Throws std::runtime_error if the file holds more or fewer; where
// they are packed, that shows when they are read. Throws Refusal if the name is that of no file
// or leads to another folder, itself or by a link.
Contents withSamples(const Picture& picture, RawSamples raw);

// Writes the header and all samples, packed by gzip or plain.
// Throws std::runtime_error if that fails.
void writeWithHeader(const std::string& file, const std::string& header, const Picture& picture,
                     bool isPacked = false);

// Numbers with blanks before them, in all of their digits.
std::string listOf(const std::vector<double>& numbers);

}  // namespace diffuse
