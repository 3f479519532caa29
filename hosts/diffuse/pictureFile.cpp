#include "pictureFile.h"

#include <itkBMPImageIOFactory.h>
#include <itkGDCMImageIOFactory.h>
#include <itkImageIOFactory.h>
#include <itkJPEGImageIOFactory.h>
#include <itkMetaImageIOFactory.h>
#include <itkNiftiImageIOFactory.h>
#include <itkNrrdImageIOFactory.h>
#include <itkPNGImageIOFactory.h>
#include <itkTIFFImageIOFactory.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <limits>
#include <stdexcept>
#include <string>
#include <tuple>
#include <type_traits>

#include "quietStderr.h"
#include "truncation.h"
#include "wholeFile.h"

namespace diffuse {

namespace {

namespace fs = std::filesystem;
using FileMode = itk::ImageIOFactory::IOFileModeEnum;

[[noreturn]] void fail(const std::string& what, const fs::path& file, const std::string& why) {
    throw std::runtime_error("cannot " + what + " " + file.string() + ": " + why);
}

// ITK's descriptions run over several lines and open with the address of an object.
std::string oneLine(std::string text) {
    const std::size_t opening = text.find("): ");
    if (text.starts_with("ITK ERROR: ") || text.starts_with("itk::ERROR: ")) {
        text.erase(0, opening == std::string::npos ? text.find(": ") + 2 : opening + 3);
    }
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text;
}

itk::ImageIOBase::Pointer openFormat(const fs::path& file, FileMode mode) {
    static const bool registered = [] {
        itk::Object::SetGlobalWarningDisplay(false);
        itk::PNGImageIOFactory::RegisterOneFactory();
        itk::TIFFImageIOFactory::RegisterOneFactory();
        itk::JPEGImageIOFactory::RegisterOneFactory();
        itk::BMPImageIOFactory::RegisterOneFactory();
        itk::NiftiImageIOFactory::RegisterOneFactory();
        itk::NrrdImageIOFactory::RegisterOneFactory();
        itk::MetaImageIOFactory::RegisterOneFactory();
        itk::GDCMImageIOFactory::RegisterOneFactory();
        return true;
    }();
    static_cast<void>(registered);
    return itk::ImageIOFactory::CreateImageIO(file.c_str(), mode);
}

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

// Calls `visit` with a null pointer to the C++ type of a sample.
template <typename Visitor>
void withSampleType(SampleType type, const Visitor& visit) {
    switch (type) {
        case SampleType::uint8:
            return visit(static_cast<std::uint8_t*>(nullptr));
        case SampleType::int8:
            return visit(static_cast<std::int8_t*>(nullptr));
        case SampleType::uint16:
            return visit(static_cast<std::uint16_t*>(nullptr));
        case SampleType::int16:
            return visit(static_cast<std::int16_t*>(nullptr));
        case SampleType::uint32:
            return visit(static_cast<std::uint32_t*>(nullptr));
        case SampleType::int32:
            return visit(static_cast<std::int32_t*>(nullptr));
        case SampleType::uint64:
            return visit(static_cast<std::uint64_t*>(nullptr));
        case SampleType::int64:
            return visit(static_cast<std::int64_t*>(nullptr));
        case SampleType::float32:
            return visit(static_cast<float*>(nullptr));
        case SampleType::float64:
            return visit(static_cast<double*>(nullptr));
    }
}

template <typename Sample>
Sample toSample(double value) {
    if constexpr (std::is_integral_v<Sample>) {
        using Limits = std::numeric_limits<Sample>;
        if (value >= static_cast<double>(Limits::max())) return Limits::max();
        // NaN fails the comparison and becomes the lowest value.
        if (!(value > static_cast<double>(Limits::lowest()))) return Limits::lowest();
        return static_cast<Sample>(std::round(value));
    } else {
        return static_cast<Sample>(value);
    }
}

void readAxes(itk::ImageIOBase& io, Picture& picture) {
    for (unsigned i = 0; i < io.GetNumberOfDimensions(); ++i) {
        if (io.GetDimensions(i) < 1 || io.GetDimensions(i) > std::numeric_limits<int>::max()) {
            throw std::runtime_error("an axis of " + std::to_string(io.GetDimensions(i)) +
                                     " samples");
        }
        picture.axes.push_back({static_cast<int>(io.GetDimensions(i)), io.GetSpacing(i),
                                io.GetOrigin(i), io.GetDirection(i)});
    }
}

void setWholeRegion(itk::ImageIOBase& io) {
    itk::ImageIORegion region(io.GetNumberOfDimensions());
    for (unsigned i = 0; i < io.GetNumberOfDimensions(); ++i) {
        region.SetSize(i, io.GetDimensions(i));
    }
    io.SetIORegion(region);
}

// The channels of every pixel as one value: some formats keep grey pictures as three equal ones.
template <typename Sample>
std::vector<double> greyValues(const std::vector<Sample>& samples, unsigned channels) {
    std::vector<double> values;
    values.reserve(samples.size() / channels);
    for (auto pixel = samples.begin(); pixel != samples.end(); pixel += channels) {
        const bool grey =
            channels == 1 || (channels == 3 && std::equal(pixel, pixel + 2, pixel + 1));
        if (!grey) throw std::runtime_error("it is in colour or has several channels");
        values.push_back(static_cast<double>(*pixel));
    }
    return values;
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

Picture readWith(const fs::path& file, itk::ImageIOBase& io) {
    io.ReadImageInformation();
    Picture picture;
    picture.sampleType = fromItk(io.GetComponentType());
    readAxes(io, picture);
    requireWholeFile(file, io);
    setWholeRegion(io);
    withSampleType(picture.sampleType, [&]<typename Sample>(Sample*) {
        picture.values = greyValues(readSamples<Sample>(io), io.GetNumberOfComponents());
    });
    while (picture.dimensions() > 2 && picture.axes.back().extent == 1) picture.axes.pop_back();
    return picture;
}

// Whether the axes of the volume mirror the body, as a left hand does a right one.
bool isLeftHanded(const Picture& volume) {
    const auto& [x, y, z] =
        std::tie(volume.axes[0].direction, volume.axes[1].direction, volume.axes[2].direction);
    return (x[1] * y[2] - x[2] * y[1]) * z[0] + (x[2] * y[0] - x[0] * y[2]) * z[1] +
               (x[0] * y[1] - x[1] * y[0]) * z[2] <
           0;
}

void writeWith(itk::ImageIOBase& io, const Picture& picture) {
    const int dimensions = picture.dimensions();
    // DICOM names the directions of rows and columns only, the third follows from them.
    if (dimensions == 3 && io.GetNameOfClass() == std::string("GDCMImageIO") &&
        isLeftHanded(picture)) {
        throw std::runtime_error("DICOM cannot hold a volume whose axes are left-handed");
    }
    io.SetNumberOfDimensions(dimensions);
    for (int i = 0; i < dimensions; ++i) {
        const Axis& axis = picture.axes[i];
        io.SetDimensions(i, axis.extent);
        io.SetSpacing(i, axis.spacing);
        io.SetOrigin(i, axis.origin);
        // A slice lies in a space of more dimensions than its own file can tell.
        const bool ownSpace = static_cast<int>(axis.direction.size()) == dimensions;
        io.SetDirection(i, ownSpace ? axis.direction : io.GetDefaultDirection(i));
    }
    io.SetPixelType(itk::CommonEnums::IOPixel::SCALAR);
    io.SetNumberOfComponents(1);
    setWholeRegion(io);
    withSampleType(picture.sampleType, [&]<typename Sample>(Sample*) {
        io.SetComponentType(itk::ImageIOBase::MapPixelType<Sample>::CType);
        std::vector<Sample> samples(picture.values.size());
        std::transform(picture.values.begin(), picture.values.end(), samples.begin(),
                       toSample<Sample>);
        io.Write(samples.data());
    });
}

}  // namespace

Picture readPicture(const fs::path& file) {
    if (fs::is_directory(file)) fail("read", file, "it is a folder");
    if (!std::ifstream(file)) fail("read", file, std::strerror(errno));
    const QuietStderr quiet;
    try {
        const auto io = openFormat(file, FileMode::ReadMode);
        if (!io) throw std::runtime_error("unknown format or damaged file");
        io->SetFileName(file.string());
        return readWith(file, *io);
    } catch (const itk::ExceptionObject& error) {
        fail("read", file, oneLine(error.GetDescription()));
    } catch (const std::bad_alloc&) {
        fail("read", file, "not enough memory");
    } catch (const std::exception& error) {
        fail("read", file, error.what());
    }
}

void requireWritableFormat(const fs::path& file, int dimensions) {
    const auto io = openFormat(file, FileMode::WriteMode);
    if (!io) fail("write", file, "no known format has this file name extension");
    // PNG's writer keeps the first slice of a volume without a word.
    const std::string writer = io->GetNameOfClass();
    const bool flat = writer == "PNGImageIO" || writer == "JPEGImageIO" || writer == "BMPImageIO";
    if (flat && dimensions > 2) fail("write", file, "this format holds no volumes");
}

void writePicture(const fs::path& file, const Picture& picture) {
    const QuietStderr quiet;
    try {
        // Room for the widest sample type, uncompressed, and for a header.
        const std::size_t room = picture.values.size() * sizeof(double) + (1 << 16);
        writeWhole(file, room, [&](const fs::path& beside) {
            const auto io = openFormat(beside, FileMode::WriteMode);
            if (!io) throw std::runtime_error("no known format has this file name extension");
            io->SetFileName(beside.string());
            writeWith(*io, picture);
        });
    } catch (const itk::ExceptionObject& error) {
        fail("write", file, oneLine(error.GetDescription()));
    } catch (const std::exception& error) {
        fail("write", file, error.what());
    }
}

}  // namespace diffuse
