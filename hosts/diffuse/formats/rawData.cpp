// SPDX-License-Identifier: MIT
#include "rawData.h"

#include <libdeflate.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <span>
#include <sstream>

#include "picture/parallel.h"

namespace diffuse {

namespace {

namespace fs = std::filesystem;

std::string trimmed(const std::string& text) {
    constexpr char white[] = " \t\r";
    const std::size_t begin = text.find_first_not_of(white);
    if (begin == std::string::npos) return "";
    return text.substr(begin, text.find_last_not_of(white) - begin + 1);
}

void readPlain(const RawSamples& raw, std::span<std::byte> samples) {
    std::ifstream stream(raw.file, std::ios::binary);
    stream.seekg(static_cast<std::streamoff>(raw.offset + raw.skipped));
    stream.read(reinterpret_cast<char*>(samples.data()),
                static_cast<std::streamsize>(samples.size()));
    if (!stream) throw std::runtime_error("the file ends too early");
}

// Of gzip: streams one behind the other.
void readPacked(const RawSamples& raw, std::span<std::byte> samples) {
    std::ostringstream bytes;
    std::ifstream stream(raw.file, std::ios::binary);
    stream.seekg(static_cast<std::streamoff>(raw.offset));
    bytes << stream.rdbuf();
    const std::string packed = std::move(bytes).str();
    std::vector<std::byte> plain(raw.skipped + samples.size());
    auto* const unpack = libdeflate_alloc_decompressor();
    std::size_t end = 0;
    auto result = LIBDEFLATE_SUCCESS;
    for (std::size_t at = 0; at < packed.size() && result == LIBDEFLATE_SUCCESS;) {
        std::size_t taken = 0;
        std::size_t given = 0;
        result = libdeflate_gzip_decompress_ex(unpack, &packed[at], packed.size() - at, &plain[end],
                                               plain.size() - end, &taken, &given);
        at += taken;
        end += given;
    }
    libdeflate_free_decompressor(unpack);
    if (result == LIBDEFLATE_INSUFFICIENT_SPACE) {
        throw std::runtime_error("more follows than its header tells of");
    }
    if (result != LIBDEFLATE_SUCCESS || end < plain.size()) {
        throw std::runtime_error("its packed samples are damaged, or end too early");
    }
    std::ranges::copy(std::span(plain).subspan(raw.skipped), samples.begin());
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

template <std::size_t size>
void swapBytes(std::span<std::byte> samples) {
    for (; !samples.empty(); samples = samples.subspan(size)) {
        std::ranges::reverse(samples.template first<size>());
    }
}

// A stream of gzip of its own.
std::string packed(std::span<const std::byte> plain) {
    auto* const pack = libdeflate_alloc_compressor(6);
    std::string bytes(libdeflate_gzip_compress_bound(pack, plain.size()), '\0');
    bytes.resize(
        libdeflate_gzip_compress(pack, plain.data(), plain.size(), bytes.data(), bytes.size()));
    libdeflate_free_compressor(pack);
    return bytes;
}

// Streams one behind the other, which gzip takes for one, packed on all threads.
void writePacked(std::ostream& stream, std::span<const std::byte> header,
                 std::span<const std::byte> samples) {
    constexpr std::size_t size = 1 << 20;
    std::vector<std::string> parts((samples.size() + size - 1) / size);
    inParts(samples.size(), size, [&](std::size_t begin, std::size_t end) {
        parts[begin / size] = packed(samples.subspan(begin, end - begin));
    });
    stream << packed(header);
    for (const std::string& part : parts) stream << part;
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

std::vector<int> TextHeader::extents(const std::string& name, std::size_t count) const {
    std::vector<int> extents;
    for (const double number : numbers(name, count)) {
        const auto whole = static_cast<std::uint64_t>(std::clamp(number, 0.0, 1e18));
        if (static_cast<double>(whole) != number) {
            throw std::runtime_error("its " + name + " is no whole number");
        }
        extents.push_back(requireExtent(whole));
    }
    return extents;
}

std::size_t TextHeader::wordIn(const std::string& name, const Words& words) const {
    const auto found = std::ranges::find(words, field(name));
    if (found == words.end()) throw Refusal("its " + name + " is '" + field(name) + "'");
    return found - words.begin();
}

void TextHeader::allow(const Words& names) const {
    for (const auto& [name, value] : fields) {
        if (std::ranges::find(names, name) == names.end()) {
            throw Refusal("its header has the field " + name + ", which would be lost");
        }
    }
}

TextHeader readHeader(const fs::path& file, char separator, const std::string& last) {
    constexpr int most = 1 << 20;
    TextHeader header;
    std::ifstream stream(file, std::ios::binary);
    for (std::string line; std::getline(stream, line) && stream.tellg() < most;) {
        header.end = stream.tellg();
        const std::size_t at = line.find(separator);
        if (trimmed(line).empty()) return header;
        if (line.starts_with('#') || line.starts_with("NRRD000")) continue;
        if (at == std::string::npos) throw std::runtime_error("a line of its header is no field");
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

Contents withSamples(const Picture& picture, RawSamples raw) {
    Contents contents{picture};
    if (!raw.name.empty()) {
        raw.file = contents.companion = requireNeighbour(raw.file, raw.name);
        raw.offset = 0;
    }
    const std::uint64_t bytes = requireSize(picture);
    const std::uint64_t present = fs::file_size(raw.file) - raw.skipped - raw.offset;
    if (!raw.isPacked && present != bytes) {
        throw std::runtime_error(present < bytes || present > fs::file_size(raw.file)
                                     ? "the file ends too early"
                                     : "more follows than its header tells of");
    }
    contents.read = [=](std::byte* samples) {
        const std::span all(samples, bytes);
        raw.isPacked ? readPacked(raw, all) : readPlain(raw, all);
        const std::size_t size = raw.isSwapped ? sizeOf(picture.sampleType) : 1;
        if (size == 2) swapBytes<2>(all);
        if (size == 4) swapBytes<4>(all);
        if (size == 8) swapBytes<8>(all);
    };
    return contents;
}

void writeWithHeader(const std::string& file, const std::string& header, const Picture& picture,
                     bool isPacked) {
    std::ofstream stream(file, std::ios::binary);
    if (isPacked) {
        writePacked(stream, std::as_bytes(std::span(header)),
                    {picture.samples.get(), picture.bytes()});
    } else {
        stream << header;
        stream.write(reinterpret_cast<const char*>(picture.samples.get()),
                     static_cast<std::streamsize>(picture.bytes()));
    }
    stream.close();
    if (!stream) throw std::runtime_error(std::strerror(errno));
}

std::string listOf(const std::vector<double>& numbers) {
    std::ostringstream text;
    text.precision(17);
    for (const double number : numbers) text << ' ' << number;
    return text.str();
}

}  // namespace diffuse
