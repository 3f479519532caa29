// SPDX-License-Identifier: MIT
// MetaImage with its samples behind the header or in a file beside it.
#include "rawData.h"

namespace diffuse {

namespace {

namespace fs = std::filesystem;

void placePicture(const TextHeader& header, Picture& picture) {
    const std::size_t count = picture.axes.size();
    if (header.has("elementspacing")) {
        const std::vector<double> spacing = header.numbers("elementspacing", count);
        for (std::size_t a = 0; a < count; ++a) picture.axes[a].spacing = spacing[a];
    }
    if (!header.has("offset") && !header.has("transformmatrix")) return;
    picture.origin.resize(count);
    if (header.has("offset")) picture.origin = header.numbers("offset", count);
    std::vector<double> turn(count * count);
    for (std::size_t i = 0; i < count; ++i) turn[i * (count + 1)] = 1;
    if (header.has("transformmatrix")) turn = header.numbers("transformmatrix", count * count);
    for (std::size_t a = 0; a < count; ++a) {
        const auto row = turn.begin() + static_cast<std::ptrdiff_t>(a * count);
        picture.axes[a].direction.assign(row, row + static_cast<std::ptrdiff_t>(count));
    }
}

void refuseWhatIsNotRead(const TextHeader& header, std::size_t dimensions) {
    header.allow({"objecttype", "objectsubtype", "ndims", "binarydata", "binarydatabyteordermsb",
                  "elementbyteordermsb", "compresseddata", "compresseddatasize", "transformmatrix",
                  "offset", "centerofrotation", "anatomicalorientation", "elementspacing",
                  "elementsize", "dimsize", "elementnumberofchannels", "elementtype",
                  "elementdatafile", "distanceunits"});
    const std::pair<const char*, Words> known[] = {{"binarydata", {"True", "true", "1"}},
                                                   {"compresseddata", {"False", "false", "0"}},
                                                   {"distanceunits", {"mm", "?"}}};
    for (const auto& [name, words] : known) {
        if (header.has(name)) header.wordIn(name, words);
    }
    if (header.has("centerofrotation") &&
        header.numbers("centerofrotation", dimensions) != std::vector<double>(dimensions)) {
        throw Refusal("its header has a centre of rotation, which would be lost");
    }
}

bool isSwapped(const TextHeader& header) {
    const bool hasOld = header.has("elementbyteordermsb");
    if (hasOld && header.has("binarydatabyteordermsb")) {
        throw Refusal("its header tells the order of bytes twice");
    }
    const char* const name = hasOld ? "elementbyteordermsb" : "binarydatabyteordermsb";
    return header.has(name) &&
           header.wordIn(name, {"False", "false", "0", "True", "true", "1"}) >= 3;
}

Contents open(const fs::path& file) {
    // Reading from a file apart ends the header, and so does reading on behind it.
    const TextHeader header = readHeader(file, '=', "elementdatafile");
    const std::size_t dimensions = header.wordIn("ndims", {"0", "1", "2", "3"});
    refuseWhatIsNotRead(header, dimensions);
    Picture picture;
    for (const int extent : header.extents("dimsize", dimensions)) picture.axes.push_back({extent});
    placePicture(header, picture);
    picture.sampleType = static_cast<SampleType>(header.wordIn(
        "elementtype", {"MET_UCHAR", "MET_CHAR", "MET_USHORT", "MET_SHORT", "MET_UINT", "MET_INT",
                        "MET_ULONG_LONG", "MET_LONG_LONG", "MET_FLOAT", "MET_DOUBLE"}));
    if (header.has("elementnumberofchannels")) {
        picture.channels = header.extents("elementnumberofchannels", 1)[0];
    }
    // No word tells colours from other channels; three of 8 bits are shown as colours.
    if (picture.channels > 1) {
        const bool isColour = picture.channels == 3 && picture.sampleType == SampleType::uint8;
        picture.pixelKind = isColour ? PixelKind::rgb : PixelKind::vector;
    }
    const std::string data = header.field("elementdatafile");
    return withSamples(picture, {.file = file,
                                 .name = data == "LOCAL" ? "" : data,
                                 .offset = header.end,
                                 .isSwapped = isSwapped(header)});
}

void write(const std::string& file, const Picture& picture) {
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

using enum PixelKind;
const KnownFormat metaImage(
    {"MetaImage", {".mha", ".mhd"}, recognises, open, write, {grey, rgb, vector}, allTypes});

}  // namespace

}  // namespace diffuse
