// SPDX-License-Identifier: MIT
#include "rawData.h"

#include <fcntl.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <new>
#include <span>
#include <sstream>

#include "../parallel.h"

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

// A file that only looks packed is taken for such.
void readPacked(const RawSamples& raw, std::span<std::byte> samples) {
    constexpr std::size_t most = 1 << 30;
    const int file = open(raw.file.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0 || lseek(file, static_cast<off_t>(raw.offset), SEEK_SET) < 0) {
        throw std::runtime_error(std::strerror(errno));
    }
    auto* const stream = gzdopen(file, "rb");
    if (!stream) throw std::bad_alloc();
    gzbuffer(stream, 1 << 17);
    std::vector<std::byte> skipped(raw.skipped);
    std::byte behind{};
    int count = 1;
    for (std::span<std::byte> part : {std::span(skipped), samples, std::span(&behind, 1)}) {
        while (count > 0 && !part.empty()) {
            count = gzread(stream, part.data(), static_cast<unsigned>(std::min(part.size(), most)));
            part = part.subspan(std::max(count, 0));
        }
        if (count < 1 && part.data() != &behind) count = -1;
    }
    const bool isWhole = gzclose_r(stream) == Z_OK && count == 0;
    if (count > 0) throw std::runtime_error("more follows than its header tells of");
    if (!isWhole) throw std::runtime_error("its packed samples are damaged, or end too early");
}

template <std::size_t size>
void swapBytes(std::span<std::byte> samples) {
    for (; !samples.empty(); samples = samples.subspan(size)) {
        std::ranges::reverse(samples.template first<size>());
    }
}

// A piece of a stream of gzip that is packed by itself.
struct Block {
    std::span<const std::byte> plain;
    std::vector<std::byte> packed = {};  // empty if that failed
    std::uint32_t checksum = 0;

    void pack(bool isLast) {
        const auto* bytes = reinterpret_cast<const Bytef*>(plain.data());
        const auto size = static_cast<uInt>(plain.size());
        checksum = crc32(0, bytes, size);
        z_stream stream{};
        if (deflateInit2(&stream, 6, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY) != Z_OK) return;
        packed.resize(deflateBound(&stream, size) + 16);
        stream.next_in = const_cast<Bytef*>(bytes);
        stream.avail_in = size;
        stream.next_out = reinterpret_cast<Bytef*>(packed.data());
        stream.avail_out = static_cast<uInt>(packed.size());
        deflate(&stream, isLast ? Z_FINISH : Z_SYNC_FLUSH);
        packed.resize(stream.avail_in == 0 ? stream.total_out : 0);
        deflateEnd(&stream);
    }
};

// One member of gzip, as every reader knows it, whose blocks are packed on all threads.
void writePacked(std::ostream& stream, std::span<const std::byte> header,
                 std::span<const std::byte> samples) {
    constexpr std::size_t size = 1 << 19;
    std::vector<Block> blocks = {{header}};
    for (; !samples.empty(); samples = samples.subspan(std::min(size, samples.size()))) {
        blocks.push_back({samples.first(std::min(size, samples.size()))});
    }
    inParts(blocks.size(), 1, [&](std::size_t i, std::size_t) {
        blocks[i].pack(i + 1 == blocks.size());
    });
    stream.write("\x1f\x8b\x08\0\0\0\0\0\0\x03", 10);
    std::uint32_t ending[2] = {};  // checksum and length
    for (const Block& block : blocks) {
        if (block.packed.empty()) throw std::bad_alloc();
        const auto length = static_cast<std::streamsize>(block.packed.size());
        stream.write(reinterpret_cast<const char*>(block.packed.data()), length);
        ending[0] = crc32_combine(ending[0], block.checksum, static_cast<z_off_t>(block.plain.size()));
        ending[1] += block.plain.size();
    }
    stream.write(reinterpret_cast<const char*>(ending), sizeof ending);
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
    const std::uint64_t present = fs::file_size(raw.file) - raw.skipped - raw.offset;
    if (!raw.isPacked && present != bytes) {
        throw std::runtime_error(present < bytes || present > fs::file_size(raw.file)
                                     ? "the file ends too early"
                                     : "more follows than its header tells of");
    }
    Contents contents{picture};
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
