// SPDX-License-Identifier: MIT
// DICOM: a file with a picture, or a folder with one series of such files. Read by GDCM and not
// written: a result would need an identity and a history that no filter can make up.
#include <gdcmImageChangeTransferSyntax.h>
#include <gdcmImageReader.h>
#include <gdcmStringFilter.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>
#include <numeric>
#include <sstream>

#include "Format.h"

namespace diffuse {

namespace {

namespace fs = std::filesystem;
using Vector = std::vector<double>;
using gdcm::PixelFormat;
using gdcm::TransferSyntax;

const gdcm::Tag pixelsTag(0x7fe0, 0x0010);

// Text of elements, without the blanks and zeros behind it.
class Tags {
public:
    explicit Tags(const gdcm::File& file) { filter_.SetFile(file); }

    std::string text(std::uint16_t group, std::uint16_t element) {
        std::string text = filter_.ToString(gdcm::Tag(group, element));
        text.resize(std::strlen(text.c_str()));  // behind the end there may be padding
        return text.erase(text.find_last_not_of(' ') + 1);
    }
    Vector numbers(std::uint16_t group, std::uint16_t element) {
        std::string all = text(group, element);
        std::ranges::replace(all, '\\', ' ');
        std::istringstream words(all);
        Vector numbers(std::istream_iterator<double>(words), {});
        if (!words.eof()) throw std::runtime_error("its header is damaged: '" + all + "'");
        return numbers;
    }
    double number(std::uint16_t group, std::uint16_t element, double otherwise) {
        const Vector all = numbers(group, element);
        return all.empty() ? otherwise : all.front();
    }

private:
    gdcm::StringFilter filter_;
};

void refuseWhatIsNotRead(const gdcm::File& file) {
    Tags tags(file);
    const TransferSyntax syntax = file.GetHeader().GetDataSetTransferSyntax();
    const std::string storage = tags.text(0x0008, 0x0016);
    const std::string colours = tags.text(0x0028, 0x0004);
    const double bits = tags.number(0x0028, 0x0100, 0);
    const bool isColour = colours == "RGB";
    const std::pair<bool, std::string> reasons[] = {
        {storage == "1.2.840.10008.5.1.4.1.1.481.2", "a dose, not a picture"},
        {storage == "1.2.840.10008.5.1.4.1.1.66.4", "a segmentation, not a picture"},
        {colours != "MONOCHROME2" && !isColour, "its colours are '" + colours + "'"},
        {bits != 8 && bits != 16 && bits != 32, "its samples are not of 8, 16 or 32 bits"},
        {tags.number(0x0028, 0x0103, 0) > 1, "its samples are neither signed nor unsigned"},
        {tags.number(0x0028, 0x0008, 1) != 1, "it holds several frames"},
        {isColour && tags.number(0x0028, 0x0006, 0) != 0, "its colours stand in planes"},
        {syntax == TransferSyntax::DeflatedExplicitVRLittleEndian, "all of its data are packed"},
        {syntax == TransferSyntax::JPEGBaselineProcess1 ||
             syntax == TransferSyntax::JPEGExtendedProcess2_4,
         "its pixels are packed by lossy JPEG, whose damage would not show"},
        // GDCM does not read these as they are.
        {syntax == TransferSyntax::RLELossless && isColour,
         "its colours are packed by run lengths"},
        {syntax.GetSwapCode() == gdcm::SwapCode::BigEndian && bits == 32,
         "its samples have 32 bits, the highest byte first"}};
    for (const auto& [isSo, reason] : reasons) {
        if (isSo) throw Refusal(reason);
    }
}

// Plain pixels begin at `start`, fill rows and columns, as an even number of bytes;
// packed ones end with a delimiter, but for padding. GDCM takes others too.
void requireWhole(const fs::path& file, std::size_t start, const gdcm::DataElement& pixels,
                  std::uint64_t bytes) {
    const std::uintmax_t size = fs::file_size(file);
    if (const gdcm::ByteValue* plain = pixels.GetByteValue()) {
        if (size < start + bytes) throw std::runtime_error("the file ends too early");
        if (plain->GetLength() < bytes || plain->GetLength() > bytes + 1) {
            throw std::runtime_error("its pixels do not fill its rows and columns");
        }
        return;
    }
    constexpr std::uintmax_t tailLength = 4096;
    std::ifstream stream(file, std::ios::binary);
    stream.seekg(static_cast<std::streamoff>(std::max(size, tailLength) - tailLength));
    const std::string tail(std::istreambuf_iterator<char>(stream), {});
    if (tail.find(std::string("\xfe\xff\xdd\xe0\0\0\0\0", 8)) == std::string::npos) {
        throw std::runtime_error("the file ends too early");
    }
}

void describeSamples(const gdcm::Image& image, Picture& picture) {
    constexpr PixelFormat::ScalarType types[] = {PixelFormat::UINT8,  PixelFormat::INT8,
                                                 PixelFormat::UINT16, PixelFormat::INT16,
                                                 PixelFormat::UINT32, PixelFormat::INT32};
    const PixelFormat format = image.GetPixelFormat();
    const auto* type = std::ranges::find(types, format.GetScalarType());
    picture.channels = format.GetSamplesPerPixel();
    if (type == std::end(types) || (picture.channels != 1 && picture.channels != 3)) {
        throw Refusal("its samples are of a type that is not read");
    }
    picture.sampleType = static_cast<SampleType>(type - types);
    if (picture.channels == 3) picture.pixelKind = PixelKind::rgb;
    picture.axes = {
        {requireExtent(image.GetDimension(0))}, {requireExtent(image.GetDimension(1))}, {1}};
    if (image.GetBufferLength() != requireSize(picture)) {
        throw std::runtime_error("its pixels do not fill its rows and columns");
    }
}

// Spacing stands as that of rows, then of columns. Without place or direction neither is known.
void placePicture(Tags tags, Picture& picture) {
    const Vector spacing = tags.numbers(0x0028, 0x0030);
    const Vector turn = tags.numbers(0x0020, 0x0037);
    const Vector place = tags.numbers(0x0020, 0x0032);
    for (int a = 0; a < 2 && spacing.size() == 2; ++a) picture.axes[a].spacing = spacing[1 - a];
    if (turn.size() != 6 || place.size() != 3) return;
    const Vector x(turn.begin(), turn.begin() + 3);
    const Vector y(turn.begin() + 3, turn.end());
    picture.axes[0].direction = x;
    picture.axes[1].direction = y;
    picture.axes[2].direction = {x[1] * y[2] - x[2] * y[1], x[2] * y[0] - x[0] * y[2],
                                 x[0] * y[1] - x[1] * y[0]};
    picture.axes[2].spacing = tags.number(0x0018, 0x0050, 1);
    picture.origin = place;
}

struct Slice {
    std::string name;
    std::string series;
    Contents contents;
};

Slice openSlice(const fs::path& file) {
    gdcm::Reader header;
    header.SetFileName(file.c_str());
    if (!header.ReadUpToTag(pixelsTag, {pixelsTag})) {
        throw std::runtime_error("its header is damaged");
    }
    const std::size_t start = header.GetStreamCurrentPosition();
    if (start >= fs::file_size(file)) throw Refusal("a DICOM file without a picture");
    refuseWhatIsNotRead(header.GetFile());
    const auto reader = std::make_shared<gdcm::ImageReader>();
    reader->SetFileName(file.c_str());
    if (!reader->Read()) throw std::runtime_error("its pixels are damaged");
    refuseWhatIsNotRead(reader->GetFile());  // damage may hide elements from the header
    gdcm::Image& image = reader->GetImage();
    requireWhole(file, start, image.GetDataElement(), image.GetBufferLength());
    gdcm::ImageChangeTransferSyntax unpack;
    unpack.SetTransferSyntax(TransferSyntax::ImplicitVRLittleEndian);
    unpack.SetInput(image);
    if (!unpack.Change()) throw std::runtime_error("its pixels are damaged");
    image = static_cast<const gdcm::Image&>(unpack.GetOutput());
    Tags tags(reader->GetFile());
    Slice slice{file.filename().string(), tags.text(0x0020, 0x000e), {}};
    describeSamples(image, slice.contents.picture);
    placePicture(tags, slice.contents.picture);
    slice.contents.slope = tags.number(0x0028, 0x1053, 1);
    slice.contents.shift = tags.number(0x0028, 0x1052, 0);
    slice.contents.read = [reader](std::byte* samples) {
        if (!reader->GetImage().GetBuffer(reinterpret_cast<char*>(samples))) {
            throw std::runtime_error("its pixels are damaged");
        }
    };
    return slice;
}

bool areClose(const Vector& a, const Vector& b, double tolerance) {
    return std::ranges::equal(a, b,
                              [&](double x, double y) { return std::abs(x - y) <= tolerance; });
}

// What keeps a slice out of the series of the first; empty if nothing does.
std::string differenceOf(const Slice& slice, const Slice& first) {
    constexpr double tolerance = 1e-4;  // of the components of a direction and of a spacing
    const Picture& own = slice.contents.picture;
    const Picture& other = first.contents.picture;
    if (own.origin.empty()) return " has no place in space, nor a series with ";
    if (slice.series != first.series) return " belongs to another series than ";
    if (own.sampleType != other.sampleType || own.channels != other.channels ||
        slice.contents.slope != first.contents.slope ||
        slice.contents.shift != first.contents.shift) {
        return " has samples of another type or scale than ";
    }
    for (int a = 0; a < 2; ++a) {
        if (own.axes[a].extent != other.axes[a].extent) return " is of another size than ";
        if (!areClose({own.axes[a].spacing}, {other.axes[a].spacing}, tolerance) ||
            !areClose(own.axes[a].direction, other.axes[a].direction, tolerance)) {
            return " has another spacing or direction than ";
        }
    }
    return "";
}

// Every file of the folder, but for hidden ones and the index that discs have.
std::vector<Slice> openSlices(const fs::path& folder) {
    std::vector<fs::path> files;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
        const std::string name = entry.path().filename().string();
        if (!name.starts_with('.') && name != "DICOMDIR") files.push_back(entry.path());
    }
    if (files.empty()) throw Refusal("this folder holds no DICOM files");
    std::ranges::sort(files);
    std::vector<Slice> slices;
    for (const fs::path& file : files) {
        const std::string name = file.filename().string();
        if (!fs::is_regular_file(file) || formatOf(file) != formatOf(folder)) {
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
        if (!difference.empty() && files.size() > 1) {
            throw Refusal(name + difference + slices.front().name);
        }
    }
    return slices;
}

double dot(const Vector& a, const Vector& b) {
    return std::inner_product(a.begin(), a.end(), b.begin(), 0.0);
}

// The distance of slices, which must follow each other straight and evenly; places are rounded to
// few digits.
double requireStack(const std::vector<Slice>& slices) {
    const auto placeOf = [&](std::size_t i) { return slices[i].contents.picture.origin; };
    const Vector& normal = slices.front().contents.picture.axes[2].direction;
    const std::size_t last = slices.size() - 1;
    const double mean =
        (dot(placeOf(last), normal) - dot(placeOf(0), normal)) / static_cast<double>(last);
    for (std::size_t i = 1; i <= last; ++i) {
        Vector way = placeOf(i);
        for (int c = 0; c < 3; ++c) way[c] -= placeOf(i - 1)[c];
        const double distance = dot(way, normal);
        const double aside = std::sqrt(std::max(0.0, dot(way, way) - distance * distance));
        const std::pair<bool, const char*> reasons[] = {
            {distance < 1e-4, " stand in the same place"},
            {aside > 0.01 * distance, " are shifted against each other, as by a tilted gantry"},
            {std::abs(distance - mean) > 0.05 * mean,
             " are not as far apart as the others: slices are missing or uneven"}};
        for (const auto& [isSo, reason] : reasons) {
            if (isSo) throw Refusal(slices[i - 1].name + " and " + slices[i].name + reason);
        }
    }
    return mean;
}

Contents openSeries(const fs::path& folder) {
    auto slices = std::make_shared<std::vector<Slice>>(openSlices(folder));
    Contents contents = slices->front().contents;
    if (slices->size() == 1) return contents;
    std::ranges::stable_sort(*slices, {}, [&](const Slice& slice) {
        return dot(slice.contents.picture.origin, contents.picture.axes[2].direction);
    });
    const std::uint64_t bytes = requireSize(contents.picture);
    contents.picture.origin = slices->front().contents.picture.origin;
    contents.picture.axes[2].extent = static_cast<int>(slices->size());
    contents.picture.axes[2].spacing = requireStack(*slices);
    contents.read = [=](std::byte* samples) {
        for (std::size_t i = 0; i < slices->size(); ++i) {
            (*slices)[i].contents.read(samples + i * bytes);
        }
    };
    return contents;
}

// Old files lack the preamble and begin with their first group.
bool recognises(std::string_view head) {
    using namespace std::string_view_literals;
    return (head.size() > 132 && head.substr(128, 4) == "DICM") || head.starts_with("\2\0\0\0"sv) ||
           head.starts_with("\x08\0\x05\0"sv) || head.starts_with("\x08\0\x16\0"sv);
}

const KnownFormat dicom({"DICOM", {".dcm"}, recognises, [](const fs::path& file) {
                             return fs::is_directory(file) ? openSeries(file)
                                                           : openSlice(file).contents;
                         }});

}  // namespace

}  // namespace diffuse
