// PNG, JPEG, TIFF and BMP by libvips, which takes its warnings for failures here.
#include <tiffio.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdarg>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <vips/vips8>

#include "../samples.h"
#include "Format.h"

namespace diffuse {

namespace {

namespace fs = std::filesystem;
using vips::VImage;

void startVips() {
    static const bool started = [] {
        if (vips_init("diffuse") != 0) throw std::runtime_error("libvips does not start");
        vips_cache_set_max(0);
        return true;
    }();
    static_cast<void>(started);
}

constexpr VipsBandFormat bandFormats[] = {
    VIPS_FORMAT_UCHAR, VIPS_FORMAT_CHAR,   VIPS_FORMAT_USHORT, VIPS_FORMAT_SHORT, VIPS_FORMAT_UINT,
    VIPS_FORMAT_INT,   VIPS_FORMAT_NOTSET, VIPS_FORMAT_NOTSET, VIPS_FORMAT_FLOAT};

// Text and bytes that belong to the picture, not to its old samples as a small preview would.
std::map<std::string, std::string> notesOf(const VImage& image) {
    std::map<std::string, std::string> notes;
    const std::unique_ptr<char*, void (*)(char**)> fields(vips_image_get_fields(image.get_image()),
                                                          g_strfreev);
    for (char** field = fields.get(); *field; ++field) {
        const std::string name = *field;
        if (name == colourProfile || name == "exif-data" || name == "xmp-data") {
            std::size_t size = 0;
            const void* bytes = image.get_blob(name.c_str(), &size);
            notes[name] = std::string(static_cast<const char*>(bytes), size);
        } else if (name.starts_with("exif-ifd") || name.starts_with("png-comment-") ||
                   name == VIPS_META_IMAGEDESCRIPTION) {
            notes[name] = image.get_string(name.c_str());
        }
    }
    return notes;
}

void setNotes(const Picture& picture, VImage& image) {
    for (const auto& [name, value] : picture.notes) {
        if (name.ends_with("-data")) {
            vips_image_set_blob_copy(image.get_image(), name.c_str(), value.data(), value.size());
        } else if (name.find('-') != std::string::npos) {
            image.set(name.c_str(), value.c_str());
        }
    }
    // It was turned upright when it was read, but the bytes of its description say otherwise.
    if (picture.notes.contains("exif-data")) image.set(VIPS_META_ORIENTATION, 1);
}

// Samples of a sequential picture, some lines at a time.
void readLines(const VImage& image, std::byte* samples) {
    constexpr int lines = 128;
    const std::size_t width = VIPS_IMAGE_SIZEOF_LINE(image.get_image());
    const vips::VRegion region = vips::VRegion::new_from_image(image);
    for (int y = 0; y < image.height(); y += lines) {
        const int count = std::min(lines, image.height() - y);
        region.prepare(0, y, image.width(), count);
        for (int i = 0; i < count; ++i, samples += width) {
            std::memcpy(samples, region.addr(0, y + i), width);
        }
    }
}

VImage load(const char* loader, vips::VOption* options) {
    startVips();
    VImage image;
    VImage::call(loader, options->set("out", &image)
                             ->set("access", VIPS_ACCESS_SEQUENTIAL)
                             ->set("fail_on", VIPS_FAIL_ON_WARNING));
    return image;
}

Contents contentsOf(const VImage& image, int pages) {
    const bool isUpright = vips_image_get_orientation(image.get_image()) == 1;
    if (!isUpright && pages > 1) throw Refusal("its pages are turned");
    const VImage upright = isUpright ? image : image.autorot();
    const auto* format = std::ranges::find(bandFormats, image.format());
    if (format == std::end(bandFormats)) throw Refusal("its samples have 64 bits, or are complex");
    if (image.interpretation() == VIPS_INTERPRETATION_CMYK) throw Refusal("its pixels are inks");
    constexpr PixelKind kinds[] = {PixelKind::grey, PixelKind::greyOpacity, PixelKind::rgb,
                                   PixelKind::rgba, PixelKind::vector};
    const auto spacing = [](double resolution) { return resolution > 0 ? 1 / resolution : 1; };
    Contents contents;
    Picture& picture = contents.picture;
    picture.sampleType = static_cast<SampleType>(format - std::begin(bandFormats));
    picture.pixelKind = kinds[std::min(image.bands(), 5) - 1];
    picture.channels = image.bands();
    picture.axes = {{upright.width(), spacing(upright.xres())},
                    {upright.height() / pages, spacing(upright.yres())}};
    if (pages > 1) picture.axes.push_back({pages});
    picture.notes = notesOf(upright);
    contents.read = [=](std::byte* samples) {
        readLines(isUpright ? image : image.copy_memory().autorot(), samples);
    };
    return contents;
}

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
    return contentsOf(load("pngload", VImage::option()->set("filename", file.c_str())), 1);
}

Contents openJpeg(const fs::path& file) {
    return contentsOf(load("jpegload", VImage::option()->set("filename", file.c_str())), 1);
}

// What must be the same on all pages of a volume: width, height, bits, kind of numbers, channels,
// photometric interpretation, planes, extra channels and the meaning of the first one.
std::array<int, 9> pageOf(TIFF* tiff) {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint16_t small[6] = {};
    std::uint16_t extra = 0;
    std::uint16_t* meanings = nullptr;
    TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &width);
    TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &height);
    const ttag_t tags[] = {TIFFTAG_BITSPERSAMPLE, TIFFTAG_SAMPLEFORMAT, TIFFTAG_SAMPLESPERPIXEL,
                           TIFFTAG_PHOTOMETRIC, TIFFTAG_PLANARCONFIG};
    for (std::size_t i = 0; i < std::size(tags); ++i) {
        TIFFGetFieldDefaulted(tiff, tags[i], &small[i]);
    }
    TIFFGetFieldDefaulted(tiff, TIFFTAG_EXTRASAMPLES, &extra, &meanings);
    return {static_cast<int>(width),
            static_cast<int>(height),
            small[0],
            small[1],
            small[2],
            small[3],
            small[4],
            extra,
            extra > 0 ? meanings[0] : 0};
}

// Whether libtiff complained, of anything but a private tag.
bool tiffComplained = false;

void noteError(const char*, const char*, va_list) {
    tiffComplained = true;
}

void noteWarning(const char*, const char* format, va_list values) {
    constexpr unsigned firstPrivate = 32768;
    const bool isUnknown = std::string_view(format).starts_with("Unknown field with tag");
    if (!isUnknown || va_arg(values, unsigned) < firstPrivate) tiffComplained = true;
}

// Plain samples take so many bytes.
bool isFilled(TIFF* tiff, int height, int planes) {
    std::uint16_t packing = 0;
    TIFFGetFieldDefaulted(tiff, TIFFTAG_COMPRESSION, &packing);
    if (packing != COMPRESSION_NONE || TIFFIsTiled(tiff) != 0) return true;
    std::uint64_t bytes = 0;
    for (std::uint32_t i = 0; i < TIFFNumberOfStrips(tiff); ++i)
        bytes += TIFFGetStrileByteCount(tiff, i);
    return bytes == TIFFScanlineSize64(tiff) * height * planes;
}

// libvips reads as many pages as it finds, and takes every fourth channel for opacity.
Contents openTiff(const fs::path& file) {
    TIFFSetErrorHandler(noteError);
    TIFFSetWarningHandler(noteWarning);
    const std::unique_ptr<TIFF, void (*)(TIFF*)> tiff(TIFFOpen(file.c_str(), "rm"), TIFFClose);
    if (!tiff) throw std::runtime_error("its first page is damaged");
    const auto [width, height, bits, format, channels, photometric, planes, extra, meaning] =
        pageOf(tiff.get());
    const auto first = pageOf(tiff.get());
    int pages = 0;
    do {
        if (pageOf(tiff.get()) != first) {
            throw Refusal("its page " + std::to_string(pages + 1) + " is not like the first");
        }
        const int parts = planes == PLANARCONFIG_SEPARATE ? channels : 1;
        if (!isFilled(tiff.get(), height, parts))
            throw std::runtime_error("its samples are damaged");
        ++pages;
    } while (TIFFReadDirectory(tiff.get()) != 0);
    if (tiffComplained) throw std::runtime_error("its directories are damaged");
    if (extra > 0 && meaning == EXTRASAMPLE_ASSOCALPHA) {
        throw Refusal("its colours are multiplied by their opacity");
    }
    const bool isKnown = photometric == PHOTOMETRIC_MINISWHITE ||
                         photometric == PHOTOMETRIC_MINISBLACK || photometric == PHOTOMETRIC_RGB ||
                         photometric == PHOTOMETRIC_PALETTE || photometric == PHOTOMETRIC_YCBCR;
    if (!isKnown) throw Refusal("its colours are neither grey, RGB, YCbCr nor of a palette");
    if (bits > 32) throw Refusal("its samples have 64 bits");
    // There libvips reads the first line of each strip only.
    if (planes == PLANARCONFIG_SEPARATE && channels > 1 && photometric != PHOTOMETRIC_RGB) {
        throw Refusal("its channels stand in planes and are no colours");
    }
    auto* const options = VImage::option()->set("filename", file.c_str())->set("n", pages);
    Contents contents = contentsOf(load("tiffload", options), pages);
    Picture& picture = contents.picture;
    if (picture.axes[1].extent != height && picture.axes[0].extent != height) {
        throw std::runtime_error("its pages are damaged");
    }
    if (extra > (meaning == EXTRASAMPLE_UNASSALPHA ? 1 : 0)) picture.pixelKind = PixelKind::vector;
    if (channels - extra > 1 && photometric <= PHOTOMETRIC_MINISBLACK) {
        picture.pixelKind = PixelKind::vector;
    }
    return contents;
}

struct BmpHead {
    std::uint32_t offset = 0, infoSize = 0;
    std::int32_t width = 0, height = 0;
    std::uint16_t planes = 0, bits = 0;
    std::uint32_t packing = 0, size = 0, across = 0, down = 0, colours = 0;
};

// What reads BMP makes up samples that a file lacks, and gives greys in three channels.
Contents openBmp(const fs::path& file) {
    BmpHead head;
    constexpr std::streamoff begin = 10;
    std::ifstream stream(file, std::ios::binary);
    stream.seekg(begin);
    stream.read(reinterpret_cast<char*>(&head), sizeof head);
    const std::uint32_t colours = head.bits <= 8 ? 1U << head.bits : 0;
    const bool isKnown = head.bits == 1 || head.bits == 4 || head.bits == 8 || head.bits == 24;
    if (!stream || head.infoSize < 40 || head.packing != 0 || head.planes != 1 || !isKnown ||
        (head.colours != 0 && head.colours != colours && colours != 0)) {
        throw Refusal("it is packed, of an old kind, or without a whole palette");
    }
    const std::uint64_t row =
        (std::uint64_t{static_cast<std::uint32_t>(head.width)} * head.bits + 31) / 32 * 4;
    if (fs::file_size(file) < head.offset + row * std::abs(std::int64_t{head.height})) {
        throw std::runtime_error("the file ends too early");
    }
    std::string palette(std::size_t{4} * colours, '\0');
    stream.seekg(begin + 4 + head.infoSize);
    stream.read(palette.data(), static_cast<std::streamsize>(palette.size()));
    bool isGrey = colours > 0;
    for (std::size_t i = 0; i < palette.size(); i += 4) {
        isGrey = isGrey && palette[i] == palette[i + 1] && palette[i] == palette[i + 2];
    }
    // A name could tell it to take the file for something else.
    stream.seekg(0);
    const std::string bytes(std::istreambuf_iterator<char>(stream), {});
    VipsBlob* const blob = vips_blob_copy(bytes.data(), bytes.size());
    auto* const options = VImage::option()->set("buffer", blob);
    vips_area_unref(VIPS_AREA(blob));
    VImage image = load("magickload_buffer", options);
    if (isGrey != (image.bands() == 1)) {
        image = isGrey ? image.extract_band(0) : image.colourspace(VIPS_INTERPRETATION_sRGB);
    }
    return contentsOf(image, 1);
}

void save(const char* saver, const fs::path& file, const Picture& picture, vips::VOption* options) {
    startVips();
    const std::string samples = samplesOf(picture);
    const int height = picture.axes[1].extent;
    const int pages = picture.dimensions() == 3 ? picture.axes[2].extent : 1;
    const bool isWide = picture.sampleType == SampleType::uint16;
    const bool isGrey = picture.channels < 3;
    VImage image = VImage::new_from_memory(const_cast<char*>(samples.data()), samples.size(),
                                           picture.axes[0].extent, height * pages, picture.channels,
                                           bandFormats[static_cast<int>(picture.sampleType)]);
    const auto meaning = isGrey   ? isWide ? VIPS_INTERPRETATION_GREY16 : VIPS_INTERPRETATION_B_W
                         : isWide ? VIPS_INTERPRETATION_RGB16
                                  : VIPS_INTERPRETATION_sRGB;
    image = image.copy(VImage::option()
                           ->set("interpretation", meaning)
                           ->set("xres", 1 / picture.axes[0].spacing)
                           ->set("yres", 1 / picture.axes[1].spacing));
    setNotes(picture, image);
    if (pages > 1) image.set(VIPS_META_PAGE_HEIGHT, height);
    VImage::call(saver, options->set("in", image)->set("filename", file.c_str()));
}

void requireFlat(const Picture& picture, bool canBeWide, bool canBeClear) {
    const bool isNarrow = picture.sampleType == SampleType::uint8;
    if (picture.dimensions() > 2) throw Refusal("this format holds no volumes; TIFF does");
    if (picture.pixelKind == PixelKind::vector ||
        !(isNarrow || (canBeWide && picture.sampleType == SampleType::uint16))) {
        throw Refusal(std::string("this format holds greys and colours of ") +
                      (canBeWide ? "8 or 16" : "8") + " bits from 0 up; NRRD holds others");
    }
    if (!canBeClear && hasOpacity(picture.pixelKind)) {
        throw Refusal("this format holds no opacity; PNG and TIFF do");
    }
}

void requireTiff(const Picture& picture) {
    if (sizeOf(picture.sampleType) == 8 || picture.pixelKind == PixelKind::vector) {
        throw Refusal("TIFF is written with greys and colours of up to 32 bits; NRRD holds others");
    }
}

bool isTiff(std::string_view head) {
    const std::string_view magic = head.substr(0, 4);
    return magic == std::string_view("II*\0", 4) || magic == std::string_view("MM\0*", 4) ||
           magic == std::string_view("II+\0", 4) || magic == std::string_view("MM\0+", 4);
}

bool isPng(std::string_view head) {
    return head.starts_with("\x89PNG\r\n\x1a\n");
}
bool isJpeg(std::string_view head) {
    return head.starts_with("\xff\xd8\xff");
}
bool isBmp(std::string_view head) {
    return head.starts_with("BM");
}
void requirePng(const Picture& picture) {
    requireFlat(picture, true, true);
}
void requireJpeg(const Picture& picture) {
    requireFlat(picture, false, false);
}
// Greys would come back as colours, or packed by run lengths.
void requireBmp(const Picture& picture) {
    requireFlat(picture, false, false);
    if (picture.channels == 1) throw Refusal("BMP is written with colours only; PNG holds greys");
}

void writePng(const fs::path& file, const Picture& picture) {
    save("pngsave", file, picture, VImage::option());
}
void writeJpeg(const fs::path& file, const Picture& picture) {
    save("jpegsave", file, picture, VImage::option()->set("Q", 95));
}
void writeTiff(const fs::path& file, const Picture& picture) {
    const bool isBig = picture.values.size() > 500'000'000;
    save("tiffsave", file, picture, VImage::option()->set("bigtiff", isBig));
}
void writeBmp(const fs::path& file, const Picture& picture) {
    save("magicksave", file, picture, VImage::option()->set("format", "BMP3"));
    // The saver leaves out the resolution, in pixels for each metre behind 38 bytes.
    std::int32_t resolution[2];
    for (int a : {0, 1}) {
        resolution[a] = static_cast<std::int32_t>(std::lround(1000 / picture.axes[a].spacing));
    }
    std::fstream stream(file, std::ios::binary | std::ios::in | std::ios::out);
    stream.seekp(38);
    if (!stream.write(reinterpret_cast<const char*>(resolution), sizeof resolution).flush()) {
        throw std::runtime_error("cannot write its resolution");
    }
}

const KnownFormat png({"PNG", {".png"}, isPng, openPng, requirePng, writePng, true});
const KnownFormat jpeg({"JPEG", {".jpg", ".jpeg"}, isJpeg, openJpeg, requireJpeg, writeJpeg, true});
const KnownFormat tiff({"TIFF", {".tif", ".tiff"}, isTiff, openTiff, requireTiff, writeTiff, true});
const KnownFormat bmp({"BMP", {".bmp"}, isBmp, openBmp, requireBmp, writeBmp});

}  // namespace

}  // namespace diffuse
