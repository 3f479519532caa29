// SPDX-License-Identifier: MIT
// PNG and JPEG.
#include <array>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>

#include "vipsPicture.h"

namespace diffuse {

namespace {

namespace fs = std::filesystem;

constexpr char comments[] = "jpeg";  // the key of the segments that libvips leaves out

// libpng stops before the end. Chunks are a length, a kind, so many bytes and a checksum.
Contents openPng(const fs::path& file) {
    constexpr std::streamoff magic = 8;
    std::ifstream stream(file, std::ios::binary);
    stream.seekg(magic);
    for (std::string kind; kind != "IEND";) {
        std::array<char, 8> head{};
        stream.read(head.data(), head.size());
        std::uint32_t length = 0;
        std::memcpy(&length, head.data(), sizeof length);
        kind = {&head[4], 4};
        stream.seekg(__builtin_bswap32(length) + std::streamoff{3}, std::ios::cur);
        if (stream.get() < 0) throw std::runtime_error("the file ends too early");
        if (kind == "acTL") throw Refusal("an animation, of which only one picture would be left");
    }
    return loadPages("pngload", file, 1);
}

// Level 6 takes nearly twice as long and saves next to nothing of what noise leaves to be packed.
void writePng(const std::string& file, const Picture& picture) {
    savePages("pngsave", file, picture, vips::VImage::option()->set("compression", 4));
}

// Segments are a marker, the length of the rest with its own two bytes, and the rest; the samples
// follow behind the one of the marker DA. Comments are FE.
Contents openJpeg(const fs::path& file) {
    Contents contents = loadPages("jpegload", file, 1);
    std::ifstream stream(file, std::ios::binary);
    stream.seekg(2);
    std::string segments;
    for (std::array<unsigned char, 4> head{}; head[1] != 0xda;) {
        if (!stream.read(reinterpret_cast<char*>(head.data()), head.size())) break;
        std::string rest(std::max(0, head[2] * 256 + head[3] - 2), '\0');
        stream.read(rest.data(), static_cast<std::streamsize>(rest.size()));
        if (head[1] == 0xfe) segments.append(head.begin(), head.end()).append(rest);
    }
    if (!segments.empty()) contents.picture.notes[comments] = segments;
    return contents;
}

void writeJpeg(const std::string& file, const Picture& picture) {
    savePages("jpegsave", file, picture, vips::VImage::option()->set("Q", 95));
    const auto kept = picture.notes.find(comments);
    if (kept == picture.notes.end()) return;
    std::ostringstream bytes;
    bytes << std::ifstream(file, std::ios::binary).rdbuf();
    std::ofstream stream(file, std::ios::binary);
    stream << bytes.str().insert(2, kept->second) << std::flush;
    if (!stream) throw std::runtime_error(std::strerror(errno));
}

bool isPng(std::string_view head) {
    return head.starts_with("\x89PNG\r\n\x1a\n");
}
bool isJpeg(std::string_view head) {
    return head.starts_with("\xff\xd8\xff");
}

using enum PixelKind;
using enum SampleType;
const KnownFormat png({"PNG",
                       {".png"},
                       isPng,
                       openPng,
                       writePng,
                       {grey, greyOpacity, rgb, rgba},
                       {uint8, uint16},
                       false,
                       true});
const KnownFormat jpeg(
    {"JPEG", {".jpg", ".jpeg"}, isJpeg, openJpeg, writeJpeg, {grey, rgb}, {uint8}, false, true});

}  // namespace

}  // namespace diffuse
