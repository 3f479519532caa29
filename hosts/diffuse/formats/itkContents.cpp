#include "itkContents.h"

#include <stdexcept>
#include <string>

namespace diffuse {

namespace {

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
            throw Refusal("its samples are of a type that is not read");
    }
}

PixelKind fromItk(itk::CommonEnums::IOPixel type, unsigned channels) {
    using Type = itk::CommonEnums::IOPixel;
    if (type == Type::SCALAR && channels == 1) return PixelKind::grey;
    if (type == Type::RGB && channels == 3) return PixelKind::rgb;
    if (type == Type::RGBA && channels == 4) return PixelKind::rgba;
    if (type == Type::VECTOR || type == Type::COVARIANTVECTOR || type == Type::POINT) {
        return PixelKind::vector;
    }
    throw Refusal("its pixels are neither grey nor colours nor vectors but " +
                  itk::ImageIOBase::GetPixelTypeAsString(type));
}

}  // namespace

Contents contentsOf(const itk::ImageIOBase::Pointer& io, const std::filesystem::path& file) {
    io->SetFileName(file.string());
    io->ReadImageInformation();
    Contents contents;
    Picture& picture = contents.picture;
    picture.sampleType = fromItk(io->GetComponentType());
    picture.channels = static_cast<int>(io->GetNumberOfComponents());
    picture.pixelKind = fromItk(io->GetPixelType(), io->GetNumberOfComponents());
    itk::ImageIORegion whole(io->GetNumberOfDimensions());
    for (unsigned i = 0; i < io->GetNumberOfDimensions(); ++i) {
        whole.SetSize(i, io->GetDimensions(i));
        const int extent = requireExtent(io->GetDimensions(i));
        picture.axes.push_back({extent, io->GetSpacing(i), io->GetDirection(i)});
        picture.origin.push_back(io->GetOrigin(i));
    }
    io->SetIORegion(whole);
    contents.read = [io](std::byte* samples) { io->Read(samples); };
    return contents;
}

Contents contentsOf(const itk::ImageIOBase::Pointer& io, const std::filesystem::path& file,
                    RawSamples raw) {
    Contents contents = contentsOf(io, file);
    raw.bytes = io->GetImageSizeInBytes();
    const bool isSwapped = io->GetByteOrder() == itk::CommonEnums::IOByteOrder::BigEndian;
    raw.swapped = isSwapped ? static_cast<int>(io->GetComponentSize()) : 1;
    requireWhole(raw);
    contents.read = [raw](std::byte* samples) { readSamples(raw, samples); };
    return contents;
}

void forgetPlace(Picture& picture) {
    picture.origin.clear();
    for (Axis& axis : picture.axes) axis.direction.clear();
}

}  // namespace diffuse
