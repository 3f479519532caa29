// DICOM: single files, files of several frames, and folders with one series. Read by ITK and GDCM
// and not written: a result would need an identity and a history that no filter can make up.
#include <gdcmReader.h>
#include <gdcmSequenceOfItems.h>
#include <gdcmStringFilter.h>
#include <itkGDCMImageIO.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <memory>
#include <numeric>
#include <sstream>

#include "Format.h"
#include "itkContents.h"
#include "rawData.h"

namespace diffuse {

namespace {

namespace fs = std::filesystem;

const gdcm::Tag classTag(0x0008, 0x0016);
const gdcm::Tag seriesTag(0x0020, 0x000e);
const gdcm::Tag positionTag(0x0020, 0x0032);
const gdcm::Tag orientationTag(0x0020, 0x0037);
const gdcm::Tag photometricTag(0x0028, 0x0004);
const gdcm::Tag channelsTag(0x0028, 0x0002);
const gdcm::Tag spacingTag(0x0028, 0x0030);
const gdcm::Tag bitsTag(0x0028, 0x0100);
const gdcm::Tag pixelsTag(0x7fe0, 0x0010);

using Vector = std::vector<double>;

Vector numbersOf(std::string text) {
    std::ranges::replace(text, '\\', ' ');
    std::istringstream words(text);
    return {std::istream_iterator<double>(words), {}};
}

bool endsWithDelimiter(std::ifstream& stream) {
    constexpr std::streamoff tailLength = 4096;
    stream.seekg(0, std::ios::end);
    stream.seekg(-std::min(tailLength, static_cast<std::streamoff>(stream.tellg())), std::ios::end);
    const std::string tail(std::istreambuf_iterator<char>(stream), {});
    return tail.find(std::string("\xfe\xff\xdd\xe0\0\0\0\0", 8)) != std::string::npos;
}

// Reads all but the pixels. Their tag and length stand in the bytes before them; packed ones have
// no length and end with a delimiter.
void readHeader(const fs::path& file, gdcm::Reader& reader) {
    reader.SetFileName(file.c_str());
    if (!reader.ReadUpToTag(pixelsTag, {pixelsTag})) {
        throw std::runtime_error("its header is damaged");
    }
    const gdcm::TransferSyntax syntax = reader.GetFile().GetHeader().GetDataSetTransferSyntax();
    if (syntax == gdcm::TransferSyntax::DeflatedExplicitVRLittleEndian) {
        throw Refusal("all of its data are packed (deflated)");
    }
    const std::size_t start = reader.GetStreamCurrentPosition();
    unsigned char bytes[12] = {};
    std::ifstream stream(file, std::ios::binary);
    stream.seekg(static_cast<std::streamoff>(start) - std::streamoff{sizeof bytes});
    stream.read(reinterpret_cast<char*>(bytes), sizeof bytes);
    const bool isBig = syntax.GetSwapCode() == gdcm::SwapCode::BigEndian;
    const auto number = [&](int at, int count) {
        std::uint32_t value = 0;
        for (int i = 0; i < count; ++i)
            value = value << 8 | bytes[at + (isBig ? i : count - 1 - i)];
        return value;
    };
    const auto isPixels = [&](int at) {
        return number(at, 2) == 0x7fe0 && number(at + 2, 2) == 0x10;
    };
    if (!stream || (!isPixels(0) && !isPixels(4))) {
        throw Refusal("a DICOM file without a picture");
    }
    const std::uint32_t length = number(8, 4);
    if (length == 0xffffffff ? !endsWithDelimiter(stream) : fs::file_size(file) < start + length) {
        throw std::runtime_error("the file ends too early");
    }
}

std::string textOf(const gdcm::File& file, const gdcm::Tag& tag) {
    gdcm::StringFilter filter;
    filter.SetFile(file);
    const std::string text = filter.ToString(tag);
    return trimmed(text.c_str());
}

// GDCM reads none of these as they are.
void refuseWrongSamples(const gdcm::File& file) {
    const gdcm::TransferSyntax syntax = file.GetHeader().GetDataSetTransferSyntax();
    const std::string bits = textOf(file, bitsTag);
    const bool isDeep = bits == "16" || bits == "32";
    if (bits == "1") throw Refusal("its samples have 1 bit");
    if (syntax == gdcm::TransferSyntax::RLELossless && isDeep && textOf(file, channelsTag) != "1") {
        throw Refusal("its colours have " + bits + " bits and are packed by run lengths");
    }
    if (syntax.GetSwapCode() == gdcm::SwapCode::BigEndian && bits == "32") {
        throw Refusal("its samples have 32 bits, the highest byte first");
    }
}

void refuseWhatIsNotRead(const gdcm::File& file) {
    const std::string storage = textOf(file, classTag);
    if (storage == "1.2.840.10008.5.1.4.1.1.481.2") throw Refusal("a dose, not a picture");
    if (storage == "1.2.840.10008.5.1.4.1.1.66.4") throw Refusal("a segmentation, not a picture");
    const std::string colours = textOf(file, photometricTag);
    if (colours == "MONOCHROME1") throw Refusal("its greys run from white to black");
    const std::string known[] = {"MONOCHROME2", "RGB", "PALETTE COLOR", "YBR_RCT", "YBR_ICT"};
    if (std::ranges::find(known, colours) == std::end(known)) {
        throw Refusal("its colours are " + (colours.empty() ? "not named" : colours));
    }
}

// The values of an element in the functional groups that all frames share, then in those of each.
std::vector<Vector> inGroups(const gdcm::DataSet& set, const gdcm::Tag& group,
                             const gdcm::Tag& element) {
    std::vector<Vector> values;
    const auto items = [](const gdcm::DataSet& parent, const gdcm::Tag& tag) {
        return parent.FindDataElement(tag) ? parent.GetDataElement(tag).GetValueAsSQ() : nullptr;
    };
    for (const gdcm::Tag& groups : {gdcm::Tag(0x5200, 0x9229), gdcm::Tag(0x5200, 0x9230)}) {
        const auto frames = items(set, groups);
        for (std::size_t i = 1; frames && i <= frames->GetNumberOfItems(); ++i) {
            const auto inner = items(frames->GetItem(i).GetNestedDataSet(), group);
            if (!inner || inner->GetNumberOfItems() == 0) continue;
            const gdcm::DataSet& last = inner->GetItem(1).GetNestedDataSet();
            const auto* bytes = last.FindDataElement(element)
                                    ? last.GetDataElement(element).GetByteValue()
                                    : nullptr;
            if (bytes) values.push_back(numbersOf({bytes->GetPointer(), bytes->GetLength()}));
        }
    }
    return values;
}

double dot(const Vector& a, const Vector& b) {
    return std::inner_product(a.begin(), a.end(), b.begin(), 0.0);
}

Vector normalOf(const Picture& slice) {
    const Vector& x = slice.axes[0].direction;
    const Vector& y = slice.axes[1].direction;
    return {x[1] * y[2] - x[2] * y[1], x[2] * y[0] - x[0] * y[2], x[0] * y[1] - x[1] * y[0]};
}

Vector between(const Vector& from, const Vector& to) {
    return {to[0] - from[0], to[1] - from[1], to[2] - from[2]};
}

// The third axis of slices at these places, which must follow each other straight and evenly.
// Places are rounded to few digits. `names` tells of the slice with that number.
Axis stackAxis(const Picture& slice, const std::vector<Vector>& places,
               const std::function<std::string(std::size_t)>& names) {
    const Vector normal = normalOf(slice);
    const auto last = static_cast<double>(places.size() - 1);
    const double mean = dot(between(places.front(), places.back()), normal) / last;
    for (std::size_t i = 1; i < places.size(); ++i) {
        const Vector way = between(places[i - 1], places[i]);
        const double distance = dot(way, normal);
        const std::string pair = names(i - 1) + " and " + names(i);
        if (std::abs(distance) < 1e-4) throw Refusal(pair + " stand in the same place");
        if (std::abs(distance - mean) > 0.05 * std::abs(mean)) {
            throw Refusal(pair + " stand " + std::to_string(std::abs(distance)) +
                          " mm apart, the mean is " + std::to_string(std::abs(mean)) +
                          ": slices are missing or uneven");
        }
        if (std::sqrt(std::max(0.0, dot(way, way) - distance * distance)) >
            0.01 * std::abs(distance)) {
            throw Refusal(pair + " are shifted against each other, as with a tilted gantry");
        }
    }
    const double sign = mean < 0 ? -1 : 1;
    return {static_cast<int>(places.size()),
            std::abs(mean),
            {sign * normal[0], sign * normal[1], sign * normal[2]}};
}

// ITK gives axes of length 1 and a place at 0 where the file has none.
void placePicture(const gdcm::File& file, Picture& picture) {
    const gdcm::DataSet& set = file.GetDataSet();
    const auto frames = static_cast<std::size_t>(picture.axes[2].extent);
    const auto places = inGroups(set, gdcm::Tag(0x0020, 0x9113), positionTag);
    const auto orientations = inGroups(set, gdcm::Tag(0x0020, 0x9116), orientationTag);
    const bool isGrouped = places.size() == frames && !orientations.empty();
    if (frames > 1 && isGrouped) {
        for (std::size_t i = 0; i < frames; ++i) {
            const Vector& own = orientations[orientations.size() == frames ? i : 0];
            if (own != orientations.front() || own.size() != 6 || places[i].size() != 3) {
                throw Refusal("its frames lie in different directions");
            }
        }
        picture.origin = places.front();
        picture.axes[2] = stackAxis(
            picture, places, [](std::size_t i) { return "its frame " + std::to_string(i + 1); });
        return;
    }
    const bool isPlaced = numbersOf(textOf(file, positionTag)).size() == 3 &&
                          numbersOf(textOf(file, orientationTag)).size() == 6;
    if (frames == 1 && (isPlaced || isGrouped)) return;
    forgetPlace(picture);
    const Vector spacing = numbersOf(textOf(file, spacingTag));
    picture.axes[0].spacing = spacing.size() == 2 ? spacing[1] : 1;
    picture.axes[1].spacing = spacing.size() == 2 ? spacing[0] : 1;
    picture.axes[2].spacing = 1;
}

struct Slice {
    fs::path file;
    std::string series;
    Contents contents;
};

Slice openSlice(const fs::path& file) {
    gdcm::Reader reader;
    readHeader(file, reader);
    refuseWhatIsNotRead(reader.GetFile());
    refuseWrongSamples(reader.GetFile());
    const auto io = itk::GDCMImageIO::New();
    Slice slice{file, textOf(reader.GetFile(), seriesTag), contentsOf(io.GetPointer(), file)};
    placePicture(reader.GetFile(), slice.contents.picture);
    return slice;
}

// What keeps a slice out of the series of the first; empty if nothing does.
std::string differenceOf(const Slice& slice, const Slice& first) {
    constexpr double tolerance = 1e-4;  // of the components of a direction and of a spacing
    const Picture& own = slice.contents.picture;
    const Picture& other = first.contents.picture;
    if (own.axes[2].extent != 1) return "holds several frames";
    if (own.origin.empty()) return "has no place in space";
    if (slice.series != first.series) return "belongs to another series than ";
    if (own.sampleType != other.sampleType || own.channels != other.channels) {
        return "has samples of another type than ";
    }
    for (int a = 0; a < 2; ++a) {
        if (own.axes[a].extent != other.axes[a].extent) return "is of another size than ";
        if (std::abs(own.axes[a].spacing - other.axes[a].spacing) > tolerance) {
            return "has another spacing than ";
        }
        for (int i = 0; i < 3; ++i) {
            if (std::abs(own.axes[a].direction[i] - other.axes[a].direction[i]) > tolerance) {
                return "lies in another direction than ";
            }
        }
    }
    return "";
}

// Every file of the folder, but for hidden ones and the index that discs have.
std::vector<fs::path> filesIn(const fs::path& folder) {
    std::vector<fs::path> files;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
        const std::string name = entry.path().filename().string();
        const bool isAside = name.starts_with('.') || name == "DICOMDIR" || entry.is_directory();
        if (!isAside) files.push_back(entry.path());
    }
    std::ranges::sort(files);
    if (files.empty()) throw Refusal("this folder holds no files");
    return files;
}

std::vector<Slice> openSlices(const fs::path& folder) {
    std::vector<Slice> slices;
    for (const fs::path& file : filesIn(folder)) {
        const std::string name = file.filename().string();
        const Format* format = fs::is_regular_file(file) ? formatOf(file) : nullptr;
        if (!format || format->name != std::string("DICOM")) {
            throw Refusal(name + " is no DICOM file");
        }
        try {
            slices.push_back(openSlice(file));
        } catch (const Refusal& refusal) {
            throw Refusal(name + ": " + refusal.what());
        } catch (const std::exception& error) {
            throw std::runtime_error(name + ": " + error.what());
        }
        const std::string difference = differenceOf(slices.back(), slices.front());
        if (!difference.empty()) {
            const bool isCompared = difference.ends_with(' ');
            throw Refusal(name + " " + difference +
                          (isCompared ? slices.front().file.filename().string() : ""));
        }
    }
    return slices;
}

Contents openSeries(const fs::path& folder) {
    auto slices = std::make_shared<std::vector<Slice>>(openSlices(folder));
    const Vector normal = normalOf(slices->front().contents.picture);
    std::ranges::stable_sort(*slices, {}, [&](const Slice& slice) {
        return dot(slice.contents.picture.origin, normal);
    });
    Contents contents;
    Picture& volume = contents.picture = slices->front().contents.picture;
    const std::size_t bytes =
        sizeOf(volume.sampleType) * volume.channels * volume.axes[0].extent * volume.axes[1].extent;
    if (slices->size() > 1) {
        std::vector<Vector> places;
        for (const Slice& slice : *slices) places.push_back(slice.contents.picture.origin);
        volume.axes[2] = stackAxis(
            volume, places, [&](std::size_t i) { return (*slices)[i].file.filename().string(); });
    }
    contents.read = [slices, bytes](std::byte* samples) {
        for (const Slice& slice : *slices) {
            slice.contents.read(samples);
            samples += bytes;
        }
    };
    return contents;
}

Contents open(const fs::path& file) {
    return fs::is_directory(file) ? openSeries(file) : openSlice(file).contents;
}

// Old files lack the preamble and begin with their first group.
bool recognises(std::string_view head) {
    using namespace std::string_view_literals;
    return (head.size() > 132 && head.substr(128, 4) == "DICM") ||
           head.starts_with("\x02\0\0\0"sv) || head.starts_with("\x08\0\x05\0"sv) ||
           head.starts_with("\x08\0\0\0"sv) || head.starts_with("\x08\0\x16\0"sv);
}

const KnownFormat dicom(
    {.name = "DICOM", .suffixes = {".dcm", ".dicom"}, .recognises = recognises, .open = open});

}  // namespace

}  // namespace diffuse
