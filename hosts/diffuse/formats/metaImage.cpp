// MetaImage, with its samples behind the header or in a file of their own. ITK reads it.
#include <itkMetaImageIO.h>

#include <algorithm>
#include <cctype>
#include <map>
#include <sstream>

#include "Format.h"
#include "itkContents.h"
#include "rawData.h"

namespace diffuse {

namespace {

namespace fs = std::filesystem;

struct Header {
    std::map<std::string, std::string> fields;
    std::uintmax_t end = 0;

    [[nodiscard]] std::string field(const char* name) const {
        const auto found = fields.find(name);
        return found == fields.end() ? "" : found->second;
    }
};

Header headerOf(const fs::path& file) {
    Header header;
    header.end = readLines(file, [&](std::string_view line) {
        const std::size_t equals = line.find('=');
        if (equals == std::string_view::npos) return !trimmed(line).empty();
        const std::string name = trimmed(line.substr(0, equals));
        if (header.fields.contains(name)) throw Refusal("its header tells " + name + " twice");
        header.fields[name] = trimmed(line.substr(equals + 1));
        return name != "ElementDataFile";
    });
    const std::string data = header.field("ElementDataFile");
    if (data.empty()) throw std::runtime_error("its header has no ElementDataFile");
    if (data != "LOCAL") requireNeighbour(data);
    return header;
}

std::vector<std::string> companionsOf(const fs::path& file) {
    const std::string data = headerOf(file).field("ElementDataFile");
    return data == "LOCAL" ? std::vector<std::string>{} : std::vector{data};
}

bool isTrue(const std::string& word) {
    return !word.empty() && (word[0] == 'T' || word[0] == '1');
}

void refuseWhatIsNotRead(const Header& header) {
    const std::string dimensions = header.field("NDims");
    if (dimensions != "2" && dimensions != "3") {
        throw Refusal("it has " + dimensions + " dimensions, 2 or 3 are needed");
    }
    const std::string units = header.field("DistanceUnits");
    if (!units.empty() && units != "mm" && units != "?")
        throw Refusal("its lengths are in " + units);
    if (header.fields.contains("BinaryData") && !isTrue(header.field("BinaryData")))
        throw Refusal("its samples are text");
    if (const std::string skipped = header.field("HeaderSize");
        !skipped.empty() && skipped != "0") {
        throw Refusal("its samples stand behind a header of their own");
    }
}

// No word tells colours or opacity from other channels; three of 8 bits are shown as colours.
PixelKind kindOf(const Picture& picture) {
    if (picture.channels == 1) return PixelKind::grey;
    const bool inColour = picture.channels == 3 && picture.sampleType == SampleType::uint8;
    return inColour ? PixelKind::rgb : PixelKind::vector;
}

Contents open(const fs::path& file) {
    const Header header = headerOf(file);
    refuseWhatIsNotRead(header);
    const auto io = itk::MetaImageIO::New();
    const std::string data = header.field("ElementDataFile");
    const bool isLocal = data == "LOCAL";
    RawSamples raw{isLocal ? file : file.parent_path() / data, isLocal ? header.end : 0,
                   isTrue(header.field("CompressedData"))};
    Contents contents = contentsOf(io.GetPointer(), file, raw);
    contents.picture.pixelKind = kindOf(contents.picture);
    const char* places[] = {"Offset",          "Position", "Origin",
                            "TransformMatrix", "Rotation", "Orientation"};
    const auto isTold = [&](const char* name) { return header.fields.contains(name); };
    if (std::ranges::none_of(places, isTold)) forgetPlace(contents.picture);
    return contents;
}

void requireHeld(const Picture& picture) {
    if (hasOpacity(picture.pixelKind)) {
        throw Refusal("MetaImage holds no opacity; PNG, TIFF and NRRD do");
    }
}

std::string dataName(const fs::path& file) {
    return fs::path(file.filename()).replace_extension(".raw").string();
}

std::vector<std::string> writtenBeside(const fs::path& file) {
    return file.extension() == ".mhd" ? std::vector{dataName(file)} : std::vector<std::string>{};
}

void write(const fs::path& file, const Picture& picture) {
    const char* types[] = {"UCHAR", "CHAR",       "USHORT",    "SHORT", "UINT",
                           "INT",   "ULONG_LONG", "LONG_LONG", "FLOAT", "DOUBLE"};
    std::ostringstream extents, spacing, matrix, offset;
    for (auto* text : {&extents, &spacing, &matrix, &offset}) text->precision(17);
    for (const Axis& axis : picture.axes) {
        extents << ' ' << axis.extent;
        spacing << ' ' << axis.spacing;
        for (const double component : axis.direction) matrix << ' ' << component;
    }
    for (const double place : picture.origin) offset << ' ' << place;
    std::ostringstream header;
    header << "ObjectType = Image\nNDims = " << picture.axes.size()
           << "\nBinaryData = True\nBinaryDataByteOrderMSB = False\nCompressedData = False\n";
    if (!picture.origin.empty()) {
        header << "TransformMatrix =" << matrix.str() << "\nOffset =" << offset.str() << "\n";
    }
    header << "ElementSpacing =" << spacing.str() << "\nDimSize =" << extents.str() << "\n";
    if (picture.channels > 1) header << "ElementNumberOfChannels = " << picture.channels << "\n";
    const bool apart = file.extension() == ".mhd";
    header << "ElementType = MET_" << types[static_cast<int>(picture.sampleType)]
           << "\nElementDataFile = " << (apart ? dataName(file) : "LOCAL") << "\n";
    writeTextAndSamples(file, header.str(),
                        apart ? file.parent_path() / dataName(file) : fs::path(), picture);
}

bool recognises(std::string_view head) {
    return head.substr(0, 2000).find("NDims") != std::string_view::npos &&
           head.find('=') != std::string_view::npos && std::isalpha(head[0]) != 0;
}

const KnownFormat metaImage({.name = "MetaImage",
                             .suffixes = {".mha", ".mhd"},
                             .recognises = recognises,
                             .open = open,
                             .companions = companionsOf,
                             .requireHeld = requireHeld,
                             .write = write,
                             .writtenBeside = writtenBeside});

}  // namespace

}  // namespace diffuse
