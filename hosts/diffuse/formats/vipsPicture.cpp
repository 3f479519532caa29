// SPDX-License-Identifier: MIT
#include "vipsPicture.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace diffuse {

namespace {

using vips::VImage;

// Without its modules, for formats that are not read here. What is printed besides its errors
// tells the time and the number of the process.
void startVips() {
    static const int status = [] {
        setenv("VIPSHOME", "/nonexistent", 1);
        g_log_set_default_handler([](auto...) {}, nullptr);
        const int result = vips_init("diffuse");
        vips_cache_set_max(0);
        return result;
    }();
    if (status != 0) throw std::runtime_error("libvips does not start");
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

}  // namespace

Contents loadPages(const char* loader, const std::filesystem::path& file, int pages,
                   vips::VOption* options) {
    startVips();
    VImage image;
    VImage::call(loader, options->set("filename", file.c_str())
                             ->set("out", &image)
                             ->set("access", VIPS_ACCESS_SEQUENTIAL)
                             ->set("fail_on", VIPS_FAIL_ON_WARNING));
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

void savePages(const char* saver, const std::string& file, const Picture& picture,
               vips::VOption* options) {
    startVips();
    const int height = picture.axes[1].extent;
    const int pages = picture.dimensions() == 3 ? picture.axes[2].extent : picture.count;
    const bool isWide = picture.sampleType == SampleType::uint16;
    VImage image = VImage::new_from_memory(picture.samples.get(), picture.bytes(),
                                           picture.axes[0].extent, height * pages, picture.channels,
                                           bandFormats[static_cast<int>(picture.sampleType)]);
    const auto meaning = picture.channels < 3
                             ? isWide ? VIPS_INTERPRETATION_GREY16 : VIPS_INTERPRETATION_B_W
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

}  // namespace diffuse
