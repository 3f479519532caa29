// SPDX-License-Identifier: MIT
// NRRD with raw or gzip-packed samples, behind the header or in a file beside it.
#include <algorithm>
#include <cmath>
#include <sstream>

#include "rawData.h"

namespace diffuse {

namespace {

namespace fs = std::filesystem;

constexpr char note[] = "nrrd";  // the key of the lines that are kept as they are

TextHeader headerOf(const fs::path& file) {
    return readHeader(file, ':', "");
}

fs::path companionOf(const fs::path& file) {
    const TextHeader header = headerOf(file);
    return header.has("datafile") ? requireNeighbour(file, header.field("datafile")) : fs::path();
}

// Whether the first axis holds channels.
bool readChannels(const TextHeader& header, std::vector<int>& sizes, Picture& picture) {
    std::string kind;
    std::istringstream(header.field("kinds")) >> kind;
    if (kind.empty() || kind == "domain" || kind == "space" || kind == "???") return false;
    const Words vectors = {"vector", "2-vector", "3-vector", "4-vector", "list"};
    if (kind == "RGB-color") {
        picture.pixelKind = PixelKind::rgb;
    } else if (kind == "RGBA-color") {
        picture.pixelKind = PixelKind::rgba;
    } else if (std::ranges::find(vectors, kind) != vectors.end()) {
        picture.pixelKind = PixelKind::vector;
    } else {
        throw Refusal("its pixels are neither grey nor colours nor vectors but " + kind);
    }
    picture.channels = sizes.front();
    sizes.erase(sizes.begin());
    return true;
}

// Steps become directions of left, posterior and superior.
void placePicture(TextHeader& header, Picture& picture, std::size_t axes) {
    const bool isPlane = header.field("spacedimension") == "2";
    const std::size_t space =
        isPlane
            ? 0
            : header.wordIn("space", {"left-posterior-superior", "LPS", "left-anterior-superior",
                                      "LAS", "right-anterior-superior", "RAS"});
    const std::size_t count = isPlane ? 2 : 3;
    const double signs[] = {space >= 4 ? -1.0 : 1.0, space >= 2 ? -1.0 : 1.0, 1.0};
    for (const char* name : {"spacedirections", "spaceorigin"}) {
        if (!header.has(name)) continue;
        std::string& text = header.fields[name];
        if (text.starts_with("none ")) text.erase(0, 5);
        std::ranges::replace_if(
            text, [](char c) { return c == '(' || c == ')' || c == ','; }, ' ');
    }
    const std::vector<double> steps = header.numbers("spacedirections", count * axes);
    picture.origin.resize(count);
    if (header.has("spaceorigin")) picture.origin = header.numbers("spaceorigin", count);
    for (std::size_t i = 0; i < count; ++i) picture.origin[i] *= signs[i];
    for (std::size_t a = 0; a < axes; ++a) {
        Axis& axis = picture.axes[a];
        const auto step = [&](std::size_t i) { return i < count ? steps[count * a + i] : 0; };
        axis.spacing = std::hypot(step(0), step(1), step(2));
        for (std::size_t i = 0; i < count; ++i) {
            axis.direction.push_back(signs[i] * step(i) / axis.spacing);
        }
    }
}

void readAxes(TextHeader& header, Picture& picture) {
    const Words counts = {"1", "2", "3", "4"};
    std::vector<int> sizes = header.extents("sizes", header.wordIn("dimension", counts) + 1);
    const bool hasChannels = readChannels(header, sizes, picture);
    for (const int size : sizes) picture.axes.push_back({size});
    if (header.has("spacedirections")) return placePicture(header, picture, sizes.size());
    if (!header.has("spacings")) return;
    const auto spacings = header.numbers("spacings", sizes.size() + hasChannels);
    for (std::size_t a = 0; a < sizes.size(); ++a) {
        const double spacing = spacings[a + hasChannels];
        if (!std::isnan(spacing)) picture.axes[a].spacing = spacing;
    }
}

Contents open(const fs::path& file) {
    TextHeader header = headerOf(file);
    header.allow({"type", "dimension", "sizes", "spacings", "kinds", "space", "spacedimension",
                  "spacedirections", "spaceorigin", "spaceunits", "content", "endian", "encoding",
                  "datafile"});
    Picture picture;
    // Every three words are one type.
    const std::size_t type = header.wordIn(
        "type", {"uint8",  "uchar",    "unsigned char",  "int8",  "signed char", "int8_t",
                 "uint16", "ushort",   "unsigned short", "int16", "short",       "int16_t",
                 "uint32", "uint",     "unsigned int",   "int32", "int",         "int32_t",
                 "uint64", "uint64_t", "ulonglong",      "int64", "int64_t",     "longlong",
                 "float",  "float",    "float",          "double"});
    picture.sampleType = static_cast<SampleType>(type / 3);
    for (std::istringstream units(header.field("spaceunits")); !units.eof();) {
        std::string unit;
        if (units >> unit && unit != "\"mm\"" && unit != "\"\"") {
            throw Refusal("its lengths are in " + unit + ", not in mm");
        }
    }
    readAxes(header, picture);
    if (header.has("content")) header.notes += "content: " + header.field("content") + "\n";
    if (!header.notes.empty()) picture.notes[note] = header.notes;
    const fs::path data = companionOf(file);
    const bool isWide = sizeOf(picture.sampleType) > 1;
    return withSamples(picture,
                       {.file = data.empty() ? file : data,
                        .offset = data.empty() ? header.end : 0,
                        .isPacked = header.wordIn("encoding", {"raw", "gzip", "gz"}) > 0,
                        .isSwapped = isWide && header.wordIn("endian", {"little", "big"}) == 1});
}

void requireHeld(const Picture& picture) {
    if (picture.pixelKind == PixelKind::greyOpacity) {
        throw Refusal("NRRD holds no grey with opacity; PNG and TIFF do");
    }
}

void write(const std::string& file, const Picture& picture) {
    const char* types[] = {"uint8", "int8",   "uint16", "int16", "uint32",
                           "int32", "uint64", "int64",  "float", "double"};
    const char* kinds[] = {"", "", " RGB-color", " RGBA-color", " vector"};
    const bool isPlaced = !picture.origin.empty();
    const bool hasChannels = picture.channels > 1;
    const auto tuple = [](std::vector<double> numbers, double factor) {
        for (double& number : numbers) number *= factor;
        std::string text = listOf(numbers);
        std::ranges::replace(text, ' ', ',');
        text[0] = '(';
        return std::string(" ").append(text).append(")");
    };
    std::string sizes = hasChannels ? listOf({static_cast<double>(picture.channels)}) : "";
    std::string kind = kinds[static_cast<int>(picture.pixelKind)];
    std::string steps = !hasChannels ? "" : isPlaced ? " none" : " nan";
    for (const Axis& axis : picture.axes) {
        sizes += listOf({static_cast<double>(axis.extent)});
        kind += " domain";
        steps += isPlaced ? tuple(axis.direction, axis.spacing) : listOf({axis.spacing});
    }
    const auto kept = picture.notes.find(note);
    const std::string header =
        std::string("NRRD0005\ntype: ") + types[static_cast<int>(picture.sampleType)] +
        "\ndimension: " + std::to_string(picture.axes.size() + hasChannels) + "\n" +
        (!isPlaced                    ? ""
         : picture.origin.size() == 3 ? "space: left-posterior-superior\n"
                                      : "space dimension: 2\n") +
        "sizes:" + sizes + (isPlaced ? "\nspace directions:" : "\nspacings:") + steps +
        "\nkinds:" + kind + (isPlaced ? "\nspace origin:" + tuple(picture.origin, 1) : "") +
        "\nendian: little\nencoding: raw\n" + (kept == picture.notes.end() ? "" : kept->second);
    writeWithHeader(file, header + "\n", picture);
}

const KnownFormat nrrd({.name = "NRRD",
                        .suffixes = {".nrrd", ".nhdr"},
                        .recognises =
                            [](auto head) {
                                return head.starts_with("NRRD000") && head.size() > 7 &&
                                       head[7] >= '1' && head[7] <= '5';
                            },
                        .open = open,
                        .requireHeld = requireHeld,
                        .write = write,
                        .companion = companionOf});

}  // namespace

}  // namespace diffuse
