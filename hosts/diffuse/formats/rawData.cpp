#include "rawData.h"

#include <fcntl.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstring>
#include <fstream>
#include <new>
#include <span>
#include <sstream>

#include "../samples.h"

namespace diffuse {

namespace {

namespace fs = std::filesystem;

void refuseShort() {
    throw std::runtime_error("the file ends too early");
}
void refuseLong() {
    throw std::runtime_error("more follows than its header tells of");
}

std::string trimmed(const std::string& text) {
    constexpr char white[] = " \t\r";
    const std::size_t begin = text.find_first_not_of(white);
    if (begin == std::string::npos) return "";
    return text.substr(begin, text.find_last_not_of(white) - begin + 1);
}

// Of gzip; a file that only looks packed is taken for such.
void readPacked(const RawSamples& raw, std::span<std::byte> samples) {
    constexpr std::size_t most = 1 << 30;
    const int file = open(raw.file.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0 || lseek(file, static_cast<off_t>(raw.offset), SEEK_SET) < 0) {
        throw std::runtime_error(std::strerror(errno));
    }
    auto* const stream = gzdopen(file, "rb");
    if (!stream) throw std::bad_alloc();
    std::vector<std::byte> skipped(raw.skipped);
    std::byte behind{};
    int count = 0;
    for (std::span<std::byte> part : {std::span(skipped), samples, std::span(&behind, 1)}) {
        do {
            count = gzread(stream, part.data(), static_cast<unsigned>(std::min(part.size(), most)));
            part = part.subspan(std::max(count, 0));
        } while (count > 0 && !part.empty());
        if (part.data() != &behind && !part.empty()) count = -1;
        if (count < 0) break;
    }
    const bool isWhole = gzclose_r(stream) == Z_OK && count == 0;
    if (count > 0) refuseLong();
    if (!isWhole) throw std::runtime_error("its packed samples are damaged, or end too early");
}

void readSamples(const RawSamples& raw, std::span<std::byte> samples) {
    if (raw.isPacked) {
        readPacked(raw, samples);
    } else {
        std::ifstream stream(raw.file, std::ios::binary);
        stream.seekg(static_cast<std::streamoff>(raw.offset + raw.skipped));
        stream.read(reinterpret_cast<char*>(samples.data()),
                    static_cast<std::streamsize>(samples.size()));
        if (!stream) refuseShort();
    }
    for (std::size_t at = 0; raw.swapped > 1 && at < samples.size(); at += raw.swapped) {
        std::ranges::reverse(samples.subspan(at, raw.swapped));
    }
}

}  // namespace

std::string TextHeader::field(const std::string& name) const {
    const auto found = fields.find(name);
    return found == fields.end() ? "" : found->second;
}

std::vector<double> TextHeader::numbers(const std::string& name, std::size_t count) const {
    std::vector<double> numbers;
    std::istringstream words(field(name));
    for (std::string word; words >> word;) {
        const char* const end = word.data() + word.size();
        const auto [stop, error] = std::from_chars(word.data(), end, numbers.emplace_back());
        if (stop != end || error != std::errc()) numbers.resize(count + 1);
    }
    if (numbers.size() != count) {
        throw std::runtime_error("its " + name + " is not " + std::to_string(count) + " numbers");
    }
    return numbers;
}

void TextHeader::allow(std::initializer_list<const char*> names) const {
    for (const auto& [name, value] : fields) {
        if (std::ranges::count(names, name) == 0) {
            throw Refusal("its header has the field " + name + ", which would be lost");
        }
    }
}

std::size_t TextHeader::wordIn(const std::string& name,
                               std::initializer_list<const char*> words) const {
    const auto* found = std::ranges::find(words, field(name));
    if (found == words.end()) throw Refusal("its " + name + " is '" + field(name) + "'");
    return found - words.begin();
}

TextHeader readHeader(const fs::path& file, char separator, const std::string& last) {
    constexpr int most = 1 << 20;
    TextHeader header;
    std::ifstream stream(file, std::ios::binary);
    for (std::string line; std::getline(stream, line) && stream.tellg() < most;) {
        header.end = stream.tellg();
        const std::size_t at = line.find(separator);
        if (trimmed(line).empty()) return header;
        if (line[0] == '#' || at == std::string::npos) continue;
        if (line.substr(at, 2) == ":=") {
            header.notes += trimmed(line) + "\n";
            continue;
        }
        std::string name;
        for (const unsigned char c : line.substr(0, at)) {
            if (c != ' ') name += static_cast<char>(std::tolower(c));
        }
        if (header.has(name)) throw Refusal("its header tells " + name + " twice");
        header.fields[name] = trimmed(line.substr(at + 1));
        if (name == last) return header;
    }
    if (!header.has("datafile")) throw std::runtime_error("its header does not end");
    return header;
}

fs::path requireNeighbour(const fs::path& header, const std::string& name) {
    const fs::path plain = fs::path(name).lexically_normal();
    fs::path file = header.parent_path() / plain;
    if (plain.has_parent_path() || fs::weakly_canonical(fs::absolute(file)).parent_path() !=
                                       fs::weakly_canonical(fs::absolute(header)).parent_path()) {
        throw Refusal("its samples stand outside its folder, in " + name);
    }
    if (!fs::is_regular_file(file)) throw Refusal("its samples are not there, in " + name);
    return file;
}

Contents withSamples(const Picture& picture, const RawSamples& raw) {
    const std::uint64_t bytes = requireSize(picture);
    if (!raw.isPacked) {
        const std::uintmax_t present = fs::file_size(raw.file);
        if (present < raw.offset + raw.skipped + bytes) refuseShort();
        if (present > raw.offset + raw.skipped + bytes) refuseLong();
    }
    Contents contents{picture};
    contents.read = [=](std::byte* samples) { readSamples(raw, {samples, bytes}); };
    return contents;
}

void writeWithHeader(const fs::path& file, const std::string& header, const Picture& picture) {
    std::ofstream stream(file, std::ios::binary);
    stream << header << samplesOf(picture);
    stream.close();
    if (!stream) throw std::runtime_error(std::strerror(errno));
}

void writePacked(const fs::path& file, std::string_view bytes) {
    constexpr std::size_t most = 1 << 30;
    auto* const stream = gzopen(file.c_str(), "wb");
    bool isWritten = stream != nullptr;
    while (isWritten && !bytes.empty()) {
        const std::string_view part = bytes.substr(0, most);
        isWritten = gzwrite(stream, part.data(), static_cast<unsigned>(part.size())) > 0;
        bytes.remove_prefix(part.size());
    }
    if (!stream || gzclose(stream) != Z_OK || !isWritten) {
        throw std::runtime_error(std::strerror(errno));
    }
}

std::string listOf(const std::vector<double>& numbers) {
    std::ostringstream text;
    text.precision(17);
    for (const double number : numbers) text << ' ' << number;
    return text.str();
}

}  // namespace diffuse
