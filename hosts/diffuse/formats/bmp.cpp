// SPDX-License-Identifier: MIT
// BMP with plain samples, palettes of 8 bits and colours of 24 bits; read and not written.
#include <cstdint>
#include <cstdlib>
#include <fstream>

#include "Format.h"

namespace diffuse {

namespace {

namespace fs = std::filesystem;

// Behind "BM", as it stands in the file.
struct [[gnu::packed]] Head {
    std::uint32_t fileSize, reserved, offset, infoSize;
    std::int32_t width, height;  // height below 0 where the topmost row comes first
    std::uint16_t planes, bits;
    std::uint32_t packing, size;
    std::int32_t across, down;  // pixels for each metre
    std::uint32_t colours;
};

// Rows are filled up to whole words.
std::size_t rowBytes(const Head& head) {
    return (std::size_t{static_cast<std::uint32_t>(head.width)} * head.bits + 31) / 32 * 4;
}

// Blue, green, red and nothing for each colour.
bool isGrey(const std::string& palette) {
    for (std::size_t i = 0; i < palette.size(); i += 4) {
        if (palette[i] != palette[i + 1] || palette[i] != palette[i + 2]) return false;
    }
    return !palette.empty();
}

Contents open(const fs::path& file) {
    Head head{};
    std::ifstream stream(file, std::ios::binary);
    stream.seekg(2).read(reinterpret_cast<char*>(&head), sizeof head);
    const bool hasPalette = head.bits == 8;
    if (!stream || head.infoSize < 40 || head.packing != 0 || head.planes != 1 ||
        (!hasPalette && head.bits != 24) ||
        (hasPalette && head.colours != 0 && head.colours != 256)) {
        throw Refusal("it is packed, not of 8 or 24 bits, of an old kind, or has half a palette");
    }
    std::string palette(hasPalette ? 1024 : 0, '\0');
    stream.seekg(14 + std::streamoff{head.infoSize}).read(palette.data(), hasPalette ? 1024 : 0);
    Contents contents;
    Picture& picture = contents.picture;
    const auto spacing = [](std::int32_t resolution) {
        return resolution > 0 ? 1000.0 / resolution : 1;
    };
    picture.axes = {{requireExtent(head.width), spacing(head.across)},
                    {requireExtent(std::abs(std::int64_t{head.height})), spacing(head.down)}};
    picture.sampleType = SampleType::uint8;
    picture.channels = isGrey(palette) ? 1 : 3;
    picture.pixelKind = isGrey(palette) ? PixelKind::grey : PixelKind::rgb;
    const std::size_t height = picture.axes[1].extent;
    if (head.offset < 14 + head.infoSize + palette.size()) {
        throw std::runtime_error("its samples stand in its header");
    }
    if (fs::file_size(file) < head.offset + rowBytes(head) * height) {
        throw std::runtime_error("the file ends too early");
    }
    contents.read = [=, channels = picture.channels](std::byte* samples) {
        std::ifstream rows(file, std::ios::binary);
        rows.seekg(head.offset);
        std::string row(rowBytes(head), '\0');
        const auto stride = static_cast<std::streamsize>(row.size());
        const std::size_t length = std::size_t{1} * channels * head.width;
        for (std::size_t y = 0; y < height && rows.read(row.data(), stride); ++y) {
            std::byte* to = samples + length * (head.height < 0 ? y : height - 1 - y);
            for (std::size_t i = 0; i < length; ++i) {
                const std::size_t x = i / channels;
                const std::size_t from = 2 - i % channels;  // blue comes first
                const auto index = static_cast<unsigned char>(row[hasPalette ? x : 3 * x + from]);
                to[i] = std::byte(hasPalette ? palette[std::size_t{4} * index + from]
                                             : row[3 * x + from]);
            }
        }
    };
    return contents;
}

bool recognises(std::string_view head) {
    return head.starts_with("BM");
}

const KnownFormat bmp({"BMP", {".bmp"}, recognises, open});

}  // namespace

}  // namespace diffuse
