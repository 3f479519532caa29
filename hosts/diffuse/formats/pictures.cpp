// PNG, JPEG, TIFF and BMP, read and written by libvips, which takes its warnings for failures here.
#include <algorithm>
#include <array>
#include <fstream>
#include <map>
#include <memory>
#include <vips/vips8>

#include "Format.h"
#include "rawData.h"
#include "tiffPages.h"

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
    VIPS_FORMAT_UCHAR, VIPS_FORMAT_CHAR,  VIPS_FORMAT_USHORT, VIPS_FORMAT_SHORT,
    VIPS_FORMAT_UINT,  VIPS_FORMAT_INT,   VIPS_FORMAT_NOTSET, VIPS_FORMAT_NOTSET,
    VIPS_FORMAT_FLOAT, VIPS_FORMAT_DOUBLE};

SampleType sampleTypeOf(const VImage& image) {
    const auto* format = std::ranges::find(bandFormats, image.format());
    if (format == std::end(bandFormats)) throw Refusal("its samples are complex numbers");
    return static_cast<SampleType>(format - std::begin(bandFormats));
}

// Text and bytes that belong to the picture, not to its old samples as a small preview would.
std::map<std::string, std::string> notesOf(const VImage& image) {
    std::map<std::string, std::string> notes;
    const std::unique_ptr<char*, void (*)(char**)> fields(vips_image_get_fields(image.get_image()),
                                                          g_strfreev);
    for (char** field = fields.get(); *field; ++field) {
        const std::string name = *field;
        const bool isBlob = name == colourProfile || name == "exif-data" || name == "xmp-data" ||
                            name == "iptc-data";
        const bool isText = name.starts_with("exif-ifd") || name.starts_with("png-comment-") ||
                            name == "image-description";
        if (isBlob) {
            std::size_t size = 0;
            const void* bytes = image.get_blob(name.c_str(), &size);
            notes[name] = std::string(static_cast<const char*>(bytes), size);
        } else if (isText) {
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
}

int orientationOf(const VImage& image) {
    return vips_image_get_orientation(image.get_image());
}

// Samples of a sequential picture, some lines at a time.
void readLines(const VImage& image, std::byte* samples) {
    constexpr int lines = 128;
    const std::size_t width = VIPS_IMAGE_SIZEOF_LINE(image.get_image());
    const vips::VRegion region = vips::VRegion::new_from_image(image);
    for (int y = 0; y < image.height(); y += lines) {
        const int count = std::min(lines, image.height() - y);
        region.prepare(0, y, image.width(), count);
        for (int i = 0; i < count; ++i) {
            std::memcpy(samples, region.addr(0, y + i), width);
            samples += width;
        }
    }
}

void readUpright(const VImage& image, std::byte* samples) {
    if (orientationOf(image) == 1) return readLines(image, samples);
    readLines(image.copy_memory().autorot(), samples);
}

PixelKind kindOf(const VImage& image) {
    if (image.interpretation() == VIPS_INTERPRETATION_CMYK) {
        throw Refusal("its pixels are inks, not colours");
    }
    constexpr PixelKind kinds[] = {PixelKind::grey, PixelKind::greyOpacity, PixelKind::rgb,
                                   PixelKind::rgba};
    return image.bands() <= 4 ? kinds[image.bands() - 1] : PixelKind::vector;
}

Contents contentsOf(const VImage& image, int pages) {
    const VImage upright = orientationOf(image) == 1 ? image : image.autorot();
    Contents contents;
    Picture& picture = contents.picture;
    picture.sampleType = sampleTypeOf(image);
    picture.pixelKind = kindOf(image);
    picture.channels = image.bands();
    const auto spacing = [](double resolution) { return resolution > 0 ? 1 / resolution : 1; };
    picture.axes = {{upright.width(), spacing(upright.xres())},
                    {upright.height() / pages, spacing(upright.yres())}};
    if (pages > 1) picture.axes.push_back({pages});
    picture.notes = notesOf(upright);
    contents.read = [image](std::byte* samples) { readUpright(image, samples); };
    return contents;
}

VImage load(const char* loader, vips::VOption* options) {
    startVips();
    VImage image;
    options->set("out", &image)
        ->set("access", VIPS_ACCESS_SEQUENTIAL)
        ->set("fail_on", VIPS_FAIL_ON_WARNING);
    VImage::call(loader, options);
    return image;
}

Contents openPng(const fs::path& file) {
    std::array<char, 4096> head{};
    std::ifstream(file, std::ios::binary).read(head.data(), head.size());
    if (std::string_view(head.data(), head.size()).find("acTL") != std::string_view::npos) {
        throw Refusal("an animation, of which only the first picture would be left");
    }
    return contentsOf(load("pngload", VImage::option()->set("filename", file.c_str())), 1);
}

Contents openJpeg(const fs::path& file) {
    return contentsOf(load("jpegload", VImage::option()->set("filename", file.c_str())), 1);
}

Contents openTiff(const fs::path& file) {
    const TiffPages pages = requireTiffPages(file);
    const auto options = VImage::option()->set("filename", file.c_str())->set("n", -1);
    const VImage image = load("tiffload", options);
    if (image.height() % pages.count != 0 || (pages.count > 1 && orientationOf(image) != 1) ||
        vips_image_get_n_pages(image.get_image()) != pages.count) {
        throw Refusal("its pages cannot be read as one volume");
    }
    Contents contents = contentsOf(image, pages.count);
    if (pages.channels != image.bands()) throw Refusal("its channels are not read as they are");
    contents.picture.pixelKind = pages.kind;
    return contents;
}

Contents openBmp(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(stream), {});
    if (!bytes.starts_with("BM")) throw std::runtime_error("it does not begin as one");
    VipsBlob* blob = vips_blob_copy(bytes.data(), bytes.size());
    const auto options = VImage::option()->set("buffer", blob);
    vips_area_unref(VIPS_AREA(blob));
    return contentsOf(load("magickload_buffer", options), 1);
}

VImage imageOf(const Picture& picture, const std::string& samples) {
    startVips();
    const auto axis = [&](std::size_t i) {
        return i < picture.axes.size() ? picture.axes[i].extent : 1;
    };
    const auto format = bandFormats[static_cast<int>(picture.sampleType)];
    const bool isWide = picture.sampleType == SampleType::uint16;
    const VipsInterpretation grey = isWide ? VIPS_INTERPRETATION_GREY16 : VIPS_INTERPRETATION_B_W;
    const VipsInterpretation colour = isWide ? VIPS_INTERPRETATION_RGB16 : VIPS_INTERPRETATION_sRGB;
    const VipsInterpretation meanings[] = {grey, grey, colour, colour,
                                           VIPS_INTERPRETATION_MULTIBAND};
    VImage image = VImage::new_from_memory(const_cast<char*>(samples.data()), samples.size(),
                                           axis(0), axis(1) * axis(2), picture.channels, format);
    image = image.copy(VImage::option()
                           ->set("interpretation", meanings[static_cast<int>(picture.pixelKind)])
                           ->set("xres", 1 / picture.axes[0].spacing)
                           ->set("yres", 1 / picture.axes[1].spacing));
    setNotes(picture, image);
    return image;
}

void save(const char* saver, const fs::path& file, const Picture& picture, vips::VOption* options) {
    const std::string samples = samplesOf(picture);
    VImage image = imageOf(picture, samples);
    if (picture.dimensions() == 3) image.set(VIPS_META_PAGE_HEIGHT, picture.axes[1].extent);
    VImage::call(saver, options->set("in", image)->set("filename", file.c_str()));
}

void requireFlat(const Picture& picture, const char* format, bool isWide) {
    const std::string name = format;
    if (picture.dimensions() > 2) throw Refusal(name + " holds no volumes; TIFF does");
    if (picture.pixelKind == PixelKind::vector) {
        throw Refusal(name + " holds greys and colours only; TIFF and NRRD hold any channels");
    }
    const bool isHeld = picture.sampleType == SampleType::uint8 ||
                        (isWide && picture.sampleType == SampleType::uint16);
    if (!isHeld) {
        throw Refusal(name + " holds whole numbers of " + (isWide ? "8 or 16" : "8") +
                      " bits from 0 up only; TIFF and NRRD hold others");
    }
}

void requireOpaque(const Picture& picture, const char* format) {
    if (hasOpacity(picture.pixelKind)) {
        throw Refusal(std::string(format) + " holds no opacity; PNG and TIFF do");
    }
}

void requireTiff(const Picture& picture) {
    if (picture.sampleType == SampleType::uint64 || picture.sampleType == SampleType::int64) {
        throw Refusal("TIFF is not written with whole numbers of 64 bits; NRRD and NIfTI are");
    }
    if (picture.pixelKind == PixelKind::vector) {
        throw Refusal("TIFF is not written with channels that are no colours; NRRD and NIfTI are");
    }
}

const KnownFormat png(
    {.name = "PNG",
     .suffixes = {".png"},
     .recognises = [](std::string_view head) { return head.starts_with("\x89PNG\r\n\x1a\n"); },
     .open = openPng,
     .requireHeld = [](const Picture& picture) { requireFlat(picture, "PNG", true); },
     .write = [](const fs::path& file,
                 const Picture& picture) { save("pngsave", file, picture, VImage::option()); },
     .keepsProfile = true});

const KnownFormat jpeg({.name = "JPEG",
                        .suffixes = {".jpg", ".jpeg"},
                        .recognises =
                            [](std::string_view head) { return head.starts_with("\xff\xd8\xff"); },
                        .open = openJpeg,
                        .requireHeld =
                            [](const Picture& picture) {
                                requireFlat(picture, "JPEG", false);
                                requireOpaque(picture, "JPEG");
                            },
                        .write =
                            [](const fs::path& file, const Picture& picture) {
                                save("jpegsave", file, picture, VImage::option()->set("Q", 95));
                            },
                        .keepsProfile = true});

const KnownFormat tiff({.name = "TIFF",
                        .suffixes = {".tif", ".tiff"},
                        .recognises = isTiff,
                        .open = openTiff,
                        .requireHeld = requireTiff,
                        .write =
                            [](const fs::path& file, const Picture& picture) {
                                constexpr std::size_t most = 2'000'000'000;
                                const bool isBig = picture.values.size() * sizeof(double) > most;
                                save("tiffsave", file, picture,
                                     VImage::option()->set("bigtiff", isBig));
                            },
                        .keepsProfile = true});

const KnownFormat bmp({.name = "BMP",
                       .suffixes = {".bmp"},
                       .recognises = [](std::string_view head) { return head.starts_with("BM"); },
                       .open = openBmp,
                       .requireHeld =
                           [](const Picture& picture) {
                               requireFlat(picture, "BMP", false);
                               requireOpaque(picture, "BMP");
                           },
                       .write =
                           [](const fs::path& file, const Picture& picture) {
                               save("magicksave", file, picture,
                                    VImage::option()->set("format", "BMP3"));
                           }});

}  // namespace

}  // namespace diffuse
