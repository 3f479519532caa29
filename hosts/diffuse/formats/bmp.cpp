// SPDX-License-Identifier: MIT
// BMP with plain samples: grey or coloured palettes of 8 bits, and colours of 24 bits.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "vipsPicture.h"

namespace diffuse {

namespace {

namespace fs = std::filesystem;

// Behind "BM", as it stands in the file.
struct [[gnu::packed]] Head {
    std::uint32_t fileSize = 0, reserved = 0, offset = 54, infoSize = 40;
    std::int32_t width = 0, height = 0;  // below 0 where the topmost row comes first
    std::uint16_t planes = 1, bits = 24;
    std::uint32_t packing = 0, size = 0;
    std::int32_t across = 0, down = 0;  // pixels for each metre
    std::uint32_t colours = 0, important = 0;
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
    Head head;
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
    if (fs::file_size(file) < head.offset + rowBytes(head) * height) {
        throw std::runtime_error("the file ends too early");
    }
    contents.read = [=, channels = picture.channels](std::byte* samples) {
        std::ifstream rows(file, std::ios::binary);
        rows.seekg(head.offset);
        std::string row(rowBytes(head), '\0');
        const std::size_t length = std::size_t{1} * channels * head.width;
        for (std::size_t y = 0; rows.read(row.data(), row.size()) && y < height; ++y) {
            std::byte* to = samples + length * (head.height < 0 ? y : height - 1 - y);
            for (std::size_t i = 0; i < length; ++i) {
                const std::size_t x = i / channels;
                const std::size_t from = 2 - i % channels;  // blue comes first
                const auto index = static_cast<unsigned char>(row[hasPalette ? x : 3 * x + from]);
                to[i] = std::byte(hasPalette ? palette[4 * index + from] : row[3 * x + from]);
            }
        }
    };
    return contents;
}

bool recognises(std::string_view head) {
    return head.starts_with("BM");
}

void requireHeld(const Picture& picture) {
    requireFlat(picture, false, false);
    if (picture.channels == 1) throw Refusal("BMP is written with colours only; PNG holds greys");
}

void write(const std::string& file, const Picture& picture) {
    Head head;
    head.width = picture.axes[0].extent;
    head.height = picture.axes[1].extent;
    const std::size_t bytes = rowBytes(head) * head.height;
    if (bytes > 4'000'000'000) throw std::runtime_error("BMP holds no more than 4 GB");
    head.size = static_cast<std::uint32_t>(bytes);
    head.fileSize = head.size + head.offset;
    head.across = static_cast<std::int32_t>(std::lround(1000 / picture.axes[0].spacing));
    head.down = static_cast<std::int32_t>(std::lround(1000 / picture.axes[1].spacing));
    std::ofstream stream(file, std::ios::binary);
    stream.write("BM", 2).write(reinterpret_cast<const char*>(&head), sizeof head);
    std::string row(rowBytes(head), '\0');
    for (int y = head.height - 1; y >= 0; --y) {
        const std::byte* from = picture.samples.get() + std::size_t{3} * y * head.width;
        for (std::size_t i = 0; i < std::size_t{3} * head.width; ++i) {
            row[i] = static_cast<char>(from[i - i % 3 + 2 - i % 3]);
        }
        stream.write(row.data(), static_cast<std::streamsize>(row.size()));
    }
    stream.close();
    if (!stream) throw std::runtime_error(std::strerror(errno));
}

const KnownFormat bmp({"BMP", {".bmp"}, recognises, open, requireHeld, write});

}  // namespace

}  // namespace diffuse
