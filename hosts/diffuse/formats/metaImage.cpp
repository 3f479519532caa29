// MetaImage with its samples behind the header or in a file beside it.
#include <algorithm>

#include "../samples.h"
#include "rawData.h"

namespace diffuse {

namespace {

namespace fs = std::filesystem;

// Reading from a file apart ends the header, and so does reading on behind it.
TextHeader headerOf(const fs::path& file) {
    return readHeader(file, '=', "elementdatafile");
}

fs::path companionOf(const fs::path& file) {
    const std::string data = headerOf(file).field("elementdatafile");
    return data == "LOCAL" ? fs::path() : requireNeighbour(file, data);
}

// A word for yes or no; absent, it says what `otherwise` says.
bool says(const TextHeader& header, const std::string& name, bool otherwise) {
    if (!header.has(name)) return otherwise;
    return header.wordIn(name, {"False", "false", "0", "True", "true", "1"}) >= 3;
}

// The first of the names that the header has, or the last of them.
std::string oneOf(const TextHeader& header, std::initializer_list<const char*> names) {
    const auto* found = std::ranges::find_if(names, [&](const char* n) { return header.has(n); });
    return found == names.end() ? *(found - 1) : *found;
}

void placePicture(const TextHeader& header, Picture& picture) {
    const std::size_t count = picture.axes.size();
    const std::string place = oneOf(header, {"offset", "position", "origin"});
    const std::string matrix = oneOf(header, {"transformmatrix", "rotation", "orientation"});
    if (!header.has(place) && !header.has(matrix)) return;
    picture.origin = header.has(place) ? header.numbers(place, count) : std::vector<double>(count);
    std::vector<double> turn(count * count);
    for (std::size_t i = 0; i < count; ++i) turn[i * (count + 1)] = 1;
    if (header.has(matrix)) turn = header.numbers(matrix, count * count);
    for (std::size_t a = 0; a < count; ++a) {
        const auto row = turn.begin() + static_cast<std::ptrdiff_t>(a * count);
        picture.axes[a].direction.assign(row, row + static_cast<std::ptrdiff_t>(count));
    }
}

void refuseWhatIsNotRead(const TextHeader& header, std::size_t dimensions) {
    header.allow({"objecttype",
                  "objectsubtype",
                  "ndims",
                  "binarydata",
                  "binarydatabyteordermsb",
                  "elementbyteordermsb",
                  "compresseddata",
                  "compresseddatasize",
                  "transformmatrix",
                  "rotation",
                  "orientation",
                  "offset",
                  "position",
                  "origin",
                  "centerofrotation",
                  "anatomicalorientation",
                  "elementspacing",
                  "elementsize",
                  "dimsize",
                  "elementnumberofchannels",
                  "elementtype",
                  "elementdatafile",
                  "distanceunits"});
    if (!says(header, "binarydata", true)) throw Refusal("its samples are text");
    if (says(header, "compresseddata", false)) throw Refusal("its samples are packed");
    if (header.has("distanceunits")) header.wordIn("distanceunits", {"mm", "?"});
    if (header.has("centerofrotation") &&
        header.numbers("centerofrotation", dimensions) != std::vector<double>(dimensions)) {
        throw Refusal("its header has a centre of rotation, which would be lost");
    }
}

Contents open(const fs::path& file) {
    const TextHeader header = headerOf(file);
    const std::size_t dimensions = header.wordIn("ndims", {"0", "1", "2", "3"});
    refuseWhatIsNotRead(header, dimensions);
    Picture picture;
    for (const double extent : header.numbers("dimsize", dimensions)) {
        const auto whole = static_cast<std::uint64_t>(std::clamp(extent, 0.0, 1e18));
        if (static_cast<double>(whole) != extent) throw std::runtime_error("its size is no number");
        picture.axes.push_back({requireExtent(whole)});
    }
    if (header.has("elementspacing")) {
        const std::vector<double> spacing = header.numbers("elementspacing", dimensions);
        for (std::size_t a = 0; a < dimensions; ++a) picture.axes[a].spacing = spacing[a];
    }
    placePicture(header, picture);
    picture.sampleType = static_cast<SampleType>(header.wordIn(
        "elementtype", {"MET_UCHAR", "MET_CHAR", "MET_USHORT", "MET_SHORT", "MET_UINT", "MET_INT",
                        "MET_ULONG_LONG", "MET_LONG_LONG", "MET_FLOAT", "MET_DOUBLE"}));
    if (header.has("elementnumberofchannels")) {
        const double channels = header.numbers("elementnumberofchannels", 1)[0];
        picture.channels = requireExtent(static_cast<std::uint64_t>(std::clamp(channels, 0., 1e9)));
        if (picture.channels != channels) throw std::runtime_error("its channels are no number");
    }
    // No word tells colours from other channels; three of 8 bits are shown as colours.
    if (picture.channels > 1) {
        const bool inColour = picture.channels == 3 && picture.sampleType == SampleType::uint8;
        picture.pixelKind = inColour ? PixelKind::rgb : PixelKind::vector;
    }
    const fs::path data = companionOf(file);
    RawSamples raw{data.empty() ? file : data, data.empty() ? header.end : 0};
    if (header.has("binarydatabyteordermsb") && header.has("elementbyteordermsb")) {
        throw Refusal("its header tells the order of bytes twice");
    }
    const bool isBig =
        says(header, oneOf(header, {"binarydatabyteordermsb", "elementbyteordermsb"}), false);
    if (isBig) raw.swapped = static_cast<int>(sizeOf(picture.sampleType));
    return withSamples(picture, raw);
}

void requireHeld(const Picture& picture) {
    if (hasOpacity(picture.pixelKind)) {
        throw Refusal("MetaImage holds no opacity; PNG, TIFF and NRRD do");
    }
}

void write(const fs::path& file, const Picture& picture) {
    const char* types[] = {"UCHAR", "CHAR",       "USHORT",    "SHORT", "UINT",
                           "INT",   "ULONG_LONG", "LONG_LONG", "FLOAT", "DOUBLE"};
    std::vector<double> extents;
    std::vector<double> spacing;
    std::vector<double> matrix;
    for (const Axis& axis : picture.axes) {
        extents.push_back(axis.extent);
        spacing.push_back(axis.spacing);
        matrix.insert(matrix.end(), axis.direction.begin(), axis.direction.end());
    }
    std::string header = "ObjectType = Image\nNDims = " + std::to_string(picture.axes.size()) +
                         "\nBinaryData = True\nBinaryDataByteOrderMSB = False\n"
                         "CompressedData = False\n";
    if (!matrix.empty()) {
        header +=
            "TransformMatrix =" + listOf(matrix) + "\nOffset =" + listOf(picture.origin) + "\n";
    }
    header += "ElementSpacing =" + listOf(spacing) + "\nDimSize =" + listOf(extents) +
              "\nElementNumberOfChannels = " + std::to_string(picture.channels) +
              "\nElementType = MET_" + types[static_cast<int>(picture.sampleType)] +
              "\nElementDataFile = LOCAL\n";
    writeWithHeader(file, header, picture);
}

bool recognises(std::string_view head) {
    return head.find("NDims") < 2000 && head.find('=') < 2000;
}

const KnownFormat metaImage({.name = "MetaImage",
                             .suffixes = {".mha", ".mhd"},
                             .recognises = recognises,
                             .open = open,
                             .requireHeld = requireHeld,
                             .write = write,
                             .companion = companionOf});

}  // namespace

}  // namespace diffuse
