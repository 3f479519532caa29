// NRRD, with its samples behind the header or in a file of their own. ITK reads it; its writer
// would put every volume into a space, whether it was in one or not.
#include <itkNrrdImageIO.h>

#include <algorithm>
#include <cctype>
#include <fstream>
#include <map>
#include <sstream>

#include "Format.h"
#include "itkContents.h"
#include "rawData.h"

namespace diffuse {

namespace {

namespace fs = std::filesystem;

struct Header {
    std::map<std::string, std::string> fields;  // by names in lower case, blanks left out
    std::string notes;                          // lines that say nothing of samples or space
    std::uintmax_t end = 0;
};

Header headerOf(const fs::path& file) {
    Header header;
    header.end = readLines(file, [&](std::string_view line) {
        const std::size_t colon = line.find(':');
        if (line.empty() || line.starts_with('#') || colon == std::string_view::npos) {
            return !line.empty();
        }
        std::string name;
        for (const char c : line.substr(0, colon)) {
            if (c != ' ') name += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        }
        if (line.substr(colon).starts_with(":=") || name == "content") {
            header.notes += std::string(line) + "\n";
        } else if (header.fields.contains(name)) {
            throw Refusal("its header tells " + name + " twice");
        } else {
            header.fields[name] = trimmed(line.substr(colon + 1));
        }
        return true;
    });
    if (header.fields.contains("datafile")) {
        header.fields["datafile"] = requireNeighbour(header.fields["datafile"]);
    }
    return header;
}

std::vector<std::string> companionsOf(const fs::path& file) {
    const Header header = headerOf(file);
    const auto data = header.fields.find("datafile");
    return data == header.fields.end() ? std::vector<std::string>{} : std::vector{data->second};
}

void refuseWhatIsNotRead(const Header& header) {
    for (const char* field : {"lineskip", "byteskip", "measurementframe"}) {
        const auto found = header.fields.find(field);
        if (found != header.fields.end() && found->second != "0") {
            throw Refusal(std::string("its header has the field ") + field + ", which is not kept");
        }
    }
    const auto space = header.fields.find("space");
    if (space != header.fields.end()) {
        const std::string known[] = {"left-posterior-superior", "LPS",
                                     "right-anterior-superior", "RAS",
                                     "left-anterior-superior",  "LAS"};
        if (std::ranges::find(known, space->second) == std::end(known)) {
            throw Refusal("its space is " + space->second + ", not that of a patient");
        }
    }
    const auto dimension = header.fields.find("spacedimension");
    if (dimension != header.fields.end() && dimension->second != "2") {
        throw Refusal("its space has no name");
    }
}

// Of the first unit that the field names, in millimetres; the others must be the same.
double millimetres(const std::string& units) {
    const std::map<std::string, double> known = {{"mm", 1},    {"cm", 10},          {"m", 1000},
                                                 {"um", 1e-3}, {"\xc2\xb5m", 1e-3}, {"nm", 1e-6}};
    std::string first;
    std::istringstream words(units);
    for (std::string word; words >> word;) {
        std::erase(word, '"');
        if (word.empty() || word == "???") continue;
        if (!first.empty() && word != first) throw Refusal("its axes have different units");
        first = word;
    }
    if (first.empty()) return 1;
    if (!known.contains(first)) throw Refusal("its lengths are in " + first);
    return known.at(first);
}

void toMillimetres(Picture& picture, double unit) {
    for (Axis& axis : picture.axes) axis.spacing *= unit;
    for (double& place : picture.origin) place *= unit;
}

// The last number of a text could be cut.
void requireLineEnd(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary | std::ios::ate);
    stream.seekg(-1, std::ios::cur);
    if (std::isspace(stream.get()) == 0) throw std::runtime_error("the file ends too early");
}

// ITK reads samples that are text.
Contents readByItk(const fs::path& file, Header& header) {
    const auto io = itk::NrrdImageIO::New();
    const bool apart = header.fields.contains("datafile");
    const std::string& encoding = header.fields["encoding"];
    const bool isText = encoding == "ascii" || encoding == "txt" || encoding == "text";
    if (isText && !apart) {
        requireLineEnd(file);
        return contentsOf(io.GetPointer(), file);
    }
    if (encoding != "raw" && encoding != "gzip" && encoding != "gz") {
        throw Refusal("its encoding is " + encoding);
    }
    const RawSamples raw{apart ? file.parent_path() / header.fields["datafile"] : file,
                         apart ? 0 : header.end, encoding != "raw"};
    return contentsOf(io.GetPointer(), file, raw);
}

Contents open(const fs::path& file) {
    Header header = headerOf(file);
    refuseWhatIsNotRead(header);
    Contents contents = readByItk(file, header);
    Picture& picture = contents.picture;
    toMillimetres(picture, millimetres(header.fields["spaceunits"] + header.fields["units"]));
    if (!header.fields.contains("spacedirections")) forgetPlace(picture);
    if (!header.notes.empty()) picture.notes["nrrd"] = header.notes;
    return contents;
}

std::string tuple(const std::vector<double>& numbers, double factor) {
    std::ostringstream text;
    text.precision(17);
    for (const double number : numbers) text << (text.tellp() == 0 ? "(" : ",") << number * factor;
    return text.str() + ")";
}

// The axes of the picture, behind that of its channels if it has more than one.
std::string axesOf(const Picture& picture) {
    const bool isPlaced = !picture.origin.empty();
    const bool hasChannels = picture.channels > 1;
    std::ostringstream sizes, kinds, steps;
    steps.precision(17);
    if (hasChannels) {
        const char* names[] = {"", "", "RGB-color", "RGBA-color", "vector"};
        sizes << ' ' << picture.channels;
        kinds << ' ' << names[static_cast<int>(picture.pixelKind)];
        steps << (isPlaced ? " none" : " nan");
    }
    for (const Axis& axis : picture.axes) {
        sizes << ' ' << axis.extent;
        kinds << " domain";
        if (isPlaced) {
            steps << ' ' << tuple(axis.direction, axis.spacing);
        } else {
            steps << ' ' << axis.spacing;
        }
    }
    const std::string space =
        picture.origin.size() == 3 ? "space: left-posterior-superior\n" : "space dimension: 2\n";
    return "dimension: " + std::to_string(picture.axes.size() + hasChannels) + "\n" +
           (isPlaced ? space : "") + "sizes:" + sizes.str() + "\n" +
           (isPlaced ? "space directions:" : "spacings:") + steps.str() + "\nkinds:" + kinds.str() +
           "\n" + (isPlaced ? "space origin: " + tuple(picture.origin, 1) + "\n" : "");
}

std::string dataName(const fs::path& file) {
    return fs::path(file.filename()).replace_extension(".raw").string();
}

std::vector<std::string> writtenBeside(const fs::path& file) {
    return file.extension() == ".nhdr" ? std::vector{dataName(file)} : std::vector<std::string>{};
}

void write(const fs::path& file, const Picture& picture) {
    const char* types[] = {"uint8", "int8",   "uint16", "int16", "uint32",
                           "int32", "uint64", "int64",  "float", "double"};
    const bool apart = file.extension() == ".nhdr";
    const auto notes = picture.notes.find("nrrd");
    std::string header = std::string("NRRD0005\ntype: ") +
                         types[static_cast<int>(picture.sampleType)] + "\n" + axesOf(picture) +
                         "endian: little\nencoding: raw\n";
    if (notes != picture.notes.end()) header += notes->second;
    header += apart ? "data file: " + dataName(file) + "\n" : "\n";
    writeTextAndSamples(file, header, apart ? file.parent_path() / dataName(file) : fs::path(),
                        picture);
}

const KnownFormat nrrd({.name = "NRRD",
                        .suffixes = {".nrrd", ".nhdr"},
                        .recognises =
                            [](std::string_view head) { return head.starts_with("NRRD0"); },
                        .open = open,
                        .companions = companionsOf,
                        .requireHeld = [](const Picture& p) { refuseGreyOpacity(p, "NRRD"); },
                        .write = write,
                        .writtenBeside = writtenBeside});

}  // namespace

}  // namespace diffuse
