// SPDX-License-Identifier: MIT
// TIFF with pages of one kind. libvips reads as many pages as it finds and lets much pass that
// libtiff warns of, so libtiff looks at them first.
#include <tiffio.h>

#include <algorithm>
#include <cstdarg>
#include <memory>

#include "vipsPicture.h"

namespace diffuse {

namespace {

namespace fs = std::filesystem;

// What must be the same on all pages of a volume.
struct Page {
    std::uint32_t width = 0, height = 0;
    std::uint16_t bits = 1, numbers = SAMPLEFORMAT_UINT, channels = 1, photometric = 0;
    std::uint16_t planes = PLANARCONFIG_CONTIG, extra = 0, meaning = 0;  // of the first extra one

    bool operator==(const Page&) const = default;
};

Page pageOf(TIFF* tiff) {
    Page page;
    const std::uint16_t* meanings = nullptr;
    TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &page.width);
    TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &page.height);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_BITSPERSAMPLE, &page.bits);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLEFORMAT, &page.numbers);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLESPERPIXEL, &page.channels);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_PHOTOMETRIC, &page.photometric);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_PLANARCONFIG, &page.planes);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_EXTRASAMPLES, &page.extra, &meanings);
    if (page.extra > 0) page.meaning = meanings[0];
    return page;
}

// Whether libtiff complained, of anything but a private tag.
bool hasComplained = false;

void noteError(const char*, const char*, va_list) {
    hasComplained = true;
}

void noteWarning(const char*, const char* format, va_list values) {
    constexpr unsigned firstPrivate = 32768;
    const bool isUnknown = std::string_view(format).starts_with("Unknown field with tag");
    if (!isUnknown || va_arg(values, unsigned) < firstPrivate) hasComplained = true;
}

// Plain samples take so many bytes.
bool isFilled(TIFF* tiff, const Page& page) {
    std::uint16_t packing = 0;
    TIFFGetFieldDefaulted(tiff, TIFFTAG_COMPRESSION, &packing);
    if (packing != COMPRESSION_NONE || TIFFIsTiled(tiff) != 0) return true;
    std::uint64_t bytes = 0;
    for (std::uint32_t i = 0; i < TIFFNumberOfStrips(tiff); ++i) {
        bytes += TIFFGetStrileByteCount(tiff, i);
    }
    const int planes = page.planes == PLANARCONFIG_SEPARATE ? page.channels : 1;
    return bytes == TIFFScanlineSize64(tiff) * page.height * planes;
}

int countPages(TIFF* tiff, const Page& first) {
    int pages = 0;
    do {
        const Page page = pageOf(tiff);
        if (page != first) {
            throw Refusal("its page " + std::to_string(pages + 1) + " is not like the first");
        }
        if (!isFilled(tiff, page)) throw std::runtime_error("its samples are damaged");
        ++pages;
    } while (TIFFReadDirectory(tiff) != 0);
    if (hasComplained) throw std::runtime_error("its directories are damaged");
    return pages;
}

void refuseWhatIsNotRead(const Page& page) {
    constexpr int known[] = {PHOTOMETRIC_MINISWHITE, PHOTOMETRIC_MINISBLACK, PHOTOMETRIC_RGB,
                             PHOTOMETRIC_PALETTE, PHOTOMETRIC_YCBCR};
    if (page.extra > 0 && page.meaning == EXTRASAMPLE_ASSOCALPHA) {
        throw Refusal("its colours are multiplied by their opacity");
    }
    if (std::ranges::count(known, page.photometric) == 0) {
        throw Refusal("its colours are neither grey, RGB, YCbCr nor of a palette");
    }
    if (page.bits > 32) throw Refusal("its samples have 64 bits");
    // There libvips reads the first line of each strip only.
    if (page.planes == PLANARCONFIG_SEPARATE && page.channels > 1 &&
        page.photometric != PHOTOMETRIC_RGB) {
        throw Refusal("its channels stand in planes and are no colours");
    }
}

Contents open(const fs::path& file) {
    TIFFSetErrorHandler(noteError);
    TIFFSetWarningHandler(noteWarning);
    const std::unique_ptr<TIFF, void (*)(TIFF*)> tiff(TIFFOpen(file.c_str(), "rm"), TIFFClose);
    if (!tiff) throw std::runtime_error("its first page is damaged");
    const Page page = pageOf(tiff.get());
    const int pages = countPages(tiff.get(), page);
    refuseWhatIsNotRead(page);
    Contents contents = loadPages("tiffload", file, pages, vips::VImage::option()->set("n", pages));
    Picture& picture = contents.picture;
    const auto height = static_cast<int>(page.height);
    if (picture.axes[1].extent != height && picture.axes[0].extent != height) {
        throw std::runtime_error("its pages are damaged");
    }
    // It takes every fourth channel for opacity.
    if (page.extra > (page.meaning == EXTRASAMPLE_UNASSALPHA ? 1 : 0) ||
        (page.channels - page.extra > 1 && page.photometric <= PHOTOMETRIC_MINISBLACK)) {
        picture.pixelKind = PixelKind::vector;
    }
    return contents;
}

bool recognises(std::string_view head) {
    using namespace std::string_view_literals;
    return head.starts_with("II*\0"sv) || head.starts_with("MM\0*"sv) ||
           head.starts_with("II+\0"sv) || head.starts_with("MM\0+"sv);
}

void write(const std::string& file, const Picture& picture) {
    const bool isBig = picture.bytes() > 4'000'000'000;
    savePages("tiffsave", file, picture, vips::VImage::option()->set("bigtiff", isBig));
}

using enum PixelKind;
using enum SampleType;
const KnownFormat tiff({"TIFF",
                        {".tif", ".tiff"},
                        recognises,
                        open,
                        write,
                        {grey, greyOpacity, rgb, rgba},
                        {uint8, int8, uint16, int16, uint32, int32, float32},
                        true,
                        true,
                        true});

}  // namespace

}  // namespace diffuse
