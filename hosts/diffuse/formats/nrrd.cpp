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

constexpr char seriesNote[] = "nrrdseries";  // that of the kind and the spacing of its axis

std::string lastWord(const std::string& text) {
    const std::size_t end = text.find_last_not_of(' ');
    return end == std::string::npos ? "" : text.substr(text.find_last_of(' ', end) + 1, end);
}

// A fourth axis, or a third in time or of a list, counts the pictures of a series.
void readSeries(const TextHeader& header, std::vector<int>& sizes, Picture& picture) {
    const std::string kind = lastWord(header.field("kinds"));
    if (sizes.size() != 4 && (sizes.size() != 3 || (kind != "time" && kind != "list"))) return;
    const Words kinds = {"", "domain", "time", "list", "none", "???"};
    if (std::ranges::find(kinds, kind) == kinds.end()) {
        throw Refusal("its fourth axis is neither time nor a list but " + kind);
    }
    picture.count = sizes.back();
    sizes.pop_back();
    const std::string step = header.has("spacings") ? lastWord(header.field("spacings")) : "nan";
    picture.notes[seriesNote] = (kind.empty() ? "list " : kind + " ") + step;
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

// "(1,0,0) none (0,1,0)" as plain numbers.
std::string unwrapped(std::string text) {
    if (text.starts_with("none ")) text.erase(0, 5);
    if (text.ends_with(" none")) text.erase(text.size() - 5);
    std::ranges::replace_if(
        text, [](char c) { return c == '(' || c == ')' || c == ','; }, ' ');
    return text;
}

// Steps become directions of left, posterior and superior.
void placePicture(TextHeader& header, Picture& picture) {
    const bool isPlane = header.field("spacedimension") == "2";
    const Words spaces = {"left-posterior-superior", "LPS", "right-anterior-superior", "RAS"};
    const double sign = !isPlane && header.wordIn("space", spaces) >= 2 ? -1 : 1;
    const std::size_t count = isPlane ? 2 : 3;
    const double signs[] = {sign, sign, 1};
    for (const char* name : {"spacedirections", "spaceorigin"}) {
        if (header.has(name)) header.fields[name] = unwrapped(header.field(name));
    }
    const auto steps = header.numbers("spacedirections", count * picture.axes.size());
    picture.origin.resize(count);
    if (header.has("spaceorigin")) picture.origin = header.numbers("spaceorigin", count);
    auto step = steps.begin();
    for (std::size_t i = 0; i < count; ++i) picture.origin[i] *= signs[i];
    for (Axis& axis : picture.axes) {
        double square = 0;
        for (std::size_t i = 0; i < count; ++i, ++step) {
            square += *step * *step;
            axis.direction.push_back(signs[i] * *step);
        }
        axis.spacing = std::sqrt(square);
        for (double& component : axis.direction) component /= axis.spacing;
    }
}

void readAxes(TextHeader& header, Picture& picture) {
    const Words counts = {"1", "2", "3", "4", "5"};
    std::vector<int> sizes = header.extents("sizes", header.wordIn("dimension", counts) + 1);
    const bool hasChannels = readChannels(header, sizes, picture);
    readSeries(header, sizes, picture);
    for (const int size : sizes) picture.axes.push_back({size});
    if (header.has("spacedirections")) return placePicture(header, picture);
    if (!header.has("spacings")) return;
    const bool isSeries = picture.notes.contains(seriesNote);
    const auto spacings = header.numbers("spacings", sizes.size() + hasChannels + isSeries);
    for (std::size_t a = 0; a < sizes.size(); ++a) {
        const double spacing = spacings[a + hasChannels];
        if (!std::isnan(spacing)) picture.axes[a].spacing = spacing;
    }
}

Contents open(const fs::path& file) {
    TextHeader header = readHeader(file, ':', "");
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
    const bool isWide = sizeOf(picture.sampleType) > 1;
    return withSamples(picture,
                       {.file = file,
                        .name = header.field("datafile"),
                        .offset = header.end,
                        .isPacked = header.wordIn("encoding", {"raw", "gzip", "gz"}) > 0,
                        .isSwapped = isWide && header.wordIn("endian", {"little", "big"}) == 1});
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
    if (picture.count > 1) {
        const auto series = picture.notes.find(seriesNote);
        const std::string words = series == picture.notes.end() ? "list nan" : series->second;
        sizes += listOf({static_cast<double>(picture.count)});
        kind.append(" ").append(words, 0, words.find(' '));
        steps += isPlaced ? " none" : words.substr(words.find(' '));
    }
    const auto kept = picture.notes.find(note);
    const std::string header =
        std::string("NRRD0005\ntype: ") + types[static_cast<int>(picture.sampleType)] +
        "\ndimension: " + std::to_string(picture.axes.size() + hasChannels + (picture.count > 1)) +
        "\n" +
        (!isPlaced                    ? ""
         : picture.origin.size() == 3 ? "space: left-posterior-superior\n"
                                      : "space dimension: 2\n") +
        "sizes:" + sizes + (isPlaced ? "\nspace directions:" : "\nspacings:") + steps +
        "\nkinds:" + kind + (isPlaced ? "\nspace origin:" + tuple(picture.origin, 1) : "") +
        "\nendian: little\nencoding: raw\n" + (kept == picture.notes.end() ? "" : kept->second);
    writeWithHeader(file, header + "\n", picture);
}

bool recognises(std::string_view head) {
    return head.starts_with("NRRD000") && head.size() > 7 && head[7] >= '1' && head[7] <= '5';
}

using enum PixelKind;
const KnownFormat nrrd({"NRRD",
                        {".nrrd", ".nhdr"},
                        recognises,
                        open,
                        write,
                        {grey, rgb, rgba, vector},
                        allTypes,
                        true,
                        false,
                        false,
                        true});

}  // namespace

}  // namespace diffuse
