#include <itkMetaDataObject.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <limits>
#include <stdexcept>
#include <string>

#include "dicomSeries.h"
#include "formats.h"
#include "pictureFile.h"
#include "samples.h"
#include "truncation.h"

namespace diffuse {

namespace {

namespace fs = std::filesystem;

SampleType fromItk(itk::CommonEnums::IOComponent type) {
    using Type = itk::CommonEnums::IOComponent;
    switch (type) {
        case Type::UCHAR:
            return SampleType::uint8;
        case Type::CHAR:
            return SampleType::int8;
        case Type::USHORT:
            return SampleType::uint16;
        case Type::SHORT:
            return SampleType::int16;
        case Type::UINT:
            return SampleType::uint32;
        case Type::INT:
            return SampleType::int32;
        case Type::ULONG:
        case Type::ULONGLONG:
            return SampleType::uint64;
        case Type::LONG:
        case Type::LONGLONG:
            return SampleType::int64;
        case Type::FLOAT:
            return SampleType::float32;
        case Type::DOUBLE:
            return SampleType::float64;
        default:
            throw std::runtime_error("samples of an unknown type");
    }
}

PixelKind fromItk(itk::CommonEnums::IOPixel type, unsigned channels) {
    using Type = itk::CommonEnums::IOPixel;
    const bool inColour = type == Type::RGB || type == Type::RGBA;
    if (type == Type::SCALAR && channels == 1) return PixelKind::grey;
    // PNG's reader calls grey with opacity a scalar, TIFF's a colour.
    if ((type == Type::SCALAR || inColour) && channels == 2) return PixelKind::greyOpacity;
    if (inColour) return channels == 4 ? PixelKind::rgba : PixelKind::rgb;
    if (type == Type::VECTOR || type == Type::FIXEDARRAY || type == Type::POINT ||
        type == Type::COVARIANTVECTOR || type == Type::OFFSET || type == Type::ARRAY) {
        return PixelKind::vector;
    }
    throw std::runtime_error("its pixels are neither grey nor colours nor vectors but " +
                             itk::ImageIOBase::GetPixelTypeAsString(type));
}

void readAxes(const itk::ImageIOBase& io, Picture& picture) {
    constexpr auto most = std::numeric_limits<int>::max();
    std::uint64_t samples = 1;
    for (unsigned i = 0; i < io.GetNumberOfDimensions(); ++i) {
        const std::uint64_t extent = io.GetDimensions(i);
        if (extent < 1 || extent > most) {
            throw std::runtime_error("an axis of " + std::to_string(extent) +
                                     " samples, 1 to 2147483647 are possible");
        }
        // The stride of this axis.
        if (extent > 1 && samples > most) {
            throw std::runtime_error("slices of more than 2147483647 samples");
        }
        samples *= extent;
        picture.axes.push_back({static_cast<int>(extent), io.GetSpacing(i), io.GetDirection(i)});
        picture.origin.push_back(io.GetOrigin(i));
    }
}

// A header may promise anything. Beside the samples stand their values, and those of one
// channel before and after a step.
void requireMemory(const itk::ImageIOBase& io) {
    const double needed =
        static_cast<double>(io.GetImageSizeInComponents()) *
        (io.GetComponentSize() + sizeof(double) * (1 + 2.0 / io.GetNumberOfComponents()));
    const double present =
        static_cast<double>(sysconf(_SC_PHYS_PAGES)) * static_cast<double>(sysconf(_SC_PAGE_SIZE));
    if (needed > present) throw std::bad_alloc();
}

// MetaImage's reader leaves the samples alone that a short file lacks: the last one then still
// holds whatever it was filled with before.
template <typename Sample>
std::vector<Sample> readSamples(itk::ImageIOBase& io) {
    std::vector<Sample> samples(io.GetImageSizeInComponents());
    const Sample marker = 101;
    const Sample otherMarker = 102;
    samples.back() = marker;
    io.Read(samples.data());
    if (samples.back() == marker) {
        samples.back() = otherMarker;
        io.Read(samples.data());
        if (samples.back() == otherMarker) throw std::runtime_error("the file ends too early");
    }
    return samples;
}

// From pixel after pixel to channel after channel.
template <typename Sample>
std::vector<double> toValues(const std::vector<Sample>& samples, std::size_t channels) {
    std::vector<double> values(samples.size());
    const std::size_t pixels = samples.size() / channels;
    for (std::size_t c = 0; c < channels; ++c) {
        for (std::size_t i = 0; i < pixels; ++i) {
            values[c * pixels + i] = static_cast<double>(samples[i * channels + c]);
        }
    }
    return values;
}

// BMP's reader hands out colours for greys as well.
void dropEqualChannels(Picture& picture) {
    for (int c = 1; c < picture.channels; ++c) {
        if (!std::ranges::equal(picture.channel(0), picture.channel(c))) return;
    }
    picture.values.resize(picture.values.size() / picture.channels);
    picture.channels = 1;
    picture.pixelKind = PixelKind::grey;
}

Picture readFile(const fs::path& file) {
    if (!std::ifstream(file)) throw std::runtime_error(std::strerror(errno));
    const auto io = openReader(file);
    if (!io) throw std::runtime_error("unknown format or damaged file");
    io->ReadImageInformation();
    Picture picture;
    picture.sampleType = fromItk(io->GetComponentType());
    picture.channels = static_cast<int>(io->GetNumberOfComponents());
    picture.pixelKind = fromItk(io->GetPixelType(), io->GetNumberOfComponents());
    if (isFormat(*io, "JPEGImageIO") && picture.channels == 4) {
        throw std::runtime_error("its pixels are inks, not colours");
    }
    itk::ExposeMetaData(io->GetMetaDataDictionary(), dicomModality, picture.modality);
    readAxes(*io, picture);
    requireWholeFile(file, *io);
    requireMemory(*io);
    setWholeRegion(*io);
    withSampleType(picture.sampleType, [&]<typename Sample>(Sample*) {
        picture.values = toValues(readSamples<Sample>(*io), picture.channels);
    });
    if (isFormat(*io, "BMPImageIO")) dropEqualChannels(picture);
    return picture;
}

}  // namespace

Picture readPicture(const fs::path& file) {
    Picture picture;
    explainFailures("read", file, [&] {
        picture = fs::is_directory(file) ? readSeries(file, readPicture) : readFile(file);
    });
    return picture;
}

}  // namespace diffuse
