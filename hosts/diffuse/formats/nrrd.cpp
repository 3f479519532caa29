// NRRD with raw or gzip-packed samples, behind the header or in a file beside it.
#include <algorithm>
#include <cmath>
#include <sstream>

#include "../samples.h"
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

// Kinds of an axis of channels, in the order of PixelKind; the two that no kind tells are left out.
PixelKind kindOf(const std::string& kind) {
    const std::pair<const char*, PixelKind> kinds[] = {
        {"RGB-color", PixelKind::rgb},     {"RGBA-color", PixelKind::rgba},
        {"vector", PixelKind::vector},     {"2-vector", PixelKind::vector},
        {"3-vector", PixelKind::vector},   {"4-vector", PixelKind::vector},
        {"list", PixelKind::vector},       {"covariant-vector", PixelKind::vector},
        {"3-gradient", PixelKind::vector}, {"point", PixelKind::vector}};
    for (const auto& [name, meaning] : kinds) {
        if (name == kind) return meaning;
    }
    throw Refusal("its pixels are neither grey nor colours nor vectors but " + kind);
}

// Whether the first axis holds channels.
bool readChannels(const TextHeader& header, std::vector<double>& sizes, Picture& picture) {
    std::istringstream kinds(header.field("kinds"));
    std::string kind;
    kinds >> kind;
    if (kind.empty() || kind == "domain" || kind == "space" || kind == "???") return false;
    picture.pixelKind = kindOf(kind);
    picture.channels = requireExtent(static_cast<std::uint64_t>(sizes.front()));
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
    std::vector<double> sizes =
        header.numbers("sizes", static_cast<std::size_t>(header.numbers("dimension", 1)[0]));
    const bool hasChannels = readChannels(header, sizes, picture);
    for (const double size : sizes) {
        if (size != std::floor(size)) throw std::runtime_error("its sizes are no whole numbers");
        picture.axes.push_back({requireExtent(size < 0 ? 0 : static_cast<std::uint64_t>(size))});
    }
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
    if (header.field("spaceunits").find_first_not_of("\"m ") != std::string::npos ||
        header.field("spaceunits").find("\"m\"") != std::string::npos) {
        throw Refusal("its lengths are in " + header.field("spaceunits") + ", not in mm");
    }
    readAxes(header, picture);
    if (header.has("content")) header.notes += "content: " + header.field("content") + "\n";
    if (!header.notes.empty()) picture.notes[note] = header.notes;
    const fs::path data = companionOf(file);
    RawSamples raw{data.empty() ? file : data, data.empty() ? header.end : 0};
    raw.isPacked = header.wordIn("encoding", {"raw", "gzip", "gz"}) > 0;
    const std::size_t size = sizeOf(picture.sampleType);
    if (size > 1 && header.wordIn("endian", {"little", "big"}) == 1) {
        raw.swapped = static_cast<int>(size);
    }
    return withSamples(picture, raw);
}

void requireHeld(const Picture& picture) {
    if (picture.pixelKind == PixelKind::greyOpacity) {
        throw Refusal("NRRD holds no grey with opacity; PNG and TIFF do");
    }
}

void write(const fs::path& file, const Picture& picture) {
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
