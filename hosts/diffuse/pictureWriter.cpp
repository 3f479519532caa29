#include <itkMetaDataObject.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

#include "formats.h"
#include "pictureFile.h"
#include "samples.h"
#include "wholeFile.h"

namespace diffuse {

namespace {

namespace fs = std::filesystem;

itk::ImageIOBase::Pointer requireWriter(const fs::path& file) {
    const auto io = openWriter(file);
    if (!io) throw std::runtime_error("no known format has this file name extension");
    return io;
}

// A slice keeps its place in space where the format has room for one.
int dimensionsIn(const itk::ImageIOBase& io, const Picture& picture) {
    const int all = static_cast<int>(picture.axes.size());
    if (isFlat(io) || isFormat(io, "TIFFImageIO")) return picture.dimensions();
    return isFormat(io, "GDCMImageIO") ? std::min(all, 3) : all;
}

// Whether the axes of the volume mirror the body, as a left hand does a right one.
bool isLeftHanded(const Picture& volume) {
    const auto& x = volume.axes[0].direction;
    const auto& y = volume.axes[1].direction;
    const auto& z = volume.axes[2].direction;
    return (x[1] * y[2] - x[2] * y[1]) * z[0] + (x[2] * y[0] - x[0] * y[2]) * z[1] +
               (x[0] * y[1] - x[1] * y[0]) * z[2] <
           0;
}

void describeAxes(itk::ImageIOBase& io, const Picture& picture) {
    const int dimensions = dimensionsIn(io, picture);
    io.SetNumberOfDimensions(dimensions);
    for (int i = 0; i < dimensions; ++i) {
        const Axis& axis = picture.axes[i];
        io.SetDimensions(i, axis.extent);
        io.SetSpacing(i, axis.spacing);
        io.SetOrigin(i, i < static_cast<int>(picture.origin.size()) ? picture.origin[i] : 0);
        // Two axes cannot tell how a slice lies in space, three can.
        std::vector<double> direction = axis.direction;
        const auto known = static_cast<int>(direction.size());
        if (known != dimensions && (dimensions < 3 || known < dimensions)) {
            direction = io.GetDefaultDirection(i);
        }
        direction.resize(dimensions);
        io.SetDirection(i, direction);
    }
}

void describePixels(itk::ImageIOBase& io, const Picture& picture) {
    using Pixel = itk::CommonEnums::IOPixel;
    constexpr Pixel pixels[] = {Pixel::SCALAR, Pixel::SCALAR, Pixel::RGB, Pixel::RGBA,
                                Pixel::VECTOR};
    io.SetPixelType(pixels[static_cast<int>(picture.pixelKind)]);
    io.SetNumberOfComponents(picture.channels);
}

// From channel after channel to pixel after pixel.
template <typename Sample>
std::vector<Sample> toSamples(const Picture& picture) {
    std::vector<Sample> samples(picture.values.size());
    for (int c = 0; c < picture.channels; ++c) {
        std::size_t at = c;
        for (const double value : picture.channel(c)) {
            samples[at] = toSample<Sample>(value);
            at += picture.channels;
        }
    }
    return samples;
}

void writeWith(itk::ImageIOBase& io, const Picture& picture) {
    // DICOM names the directions of rows and columns only, the third follows from them.
    if (isFormat(io, "GDCMImageIO") && picture.dimensions() == 3 && isLeftHanded(picture)) {
        throw std::runtime_error("DICOM cannot hold a volume whose axes are left-handed");
    }
    // Slices without a device are taken for captures of a screen, which have no place in space.
    if (picture.dimensions() == 2 && !picture.modality.empty()) {
        itk::EncapsulateMetaData(io.GetMetaDataDictionary(), dicomModality, picture.modality);
    }
    describeAxes(io, picture);
    describePixels(io, picture);
    setWholeRegion(io);
    withSampleType(picture.sampleType, [&]<typename Sample>(Sample*) {
        io.SetComponentType(itk::ImageIOBase::MapPixelType<Sample>::CType);
        io.Write(toSamples<Sample>(picture).data());
    });
}

// Of the samples, uncompressed, and a header. Noise takes a little more compressed than not.
std::size_t roomFor(const Picture& picture) {
    const std::size_t bytes =
        picture.values.size() *
        withSampleType(picture.sampleType, [](auto* sample) { return sizeof(*sample); });
    return bytes + bytes / 8 + (1 << 14);
}

}  // namespace

void requireWritable(const fs::path& file, int dimensions, PixelKind pixelKind) {
    explainFailures("write", file, [&] {
        const auto io = requireWriter(file);
        // PNG's writer keeps the first slice of a volume without a word.
        if (isFlat(*io) && dimensions > 2) throw std::runtime_error("this format holds no volumes");
        if (isFormat(*io, "JPEGImageIO") && hasOpacity(pixelKind)) {
            throw std::runtime_error("this format holds no opacity");
        }
        if (fs::is_directory(file)) throw std::runtime_error(std::strerror(EISDIR));
        const fs::path folder = file.has_parent_path() ? file.parent_path() : ".";
        if (!fs::is_directory(folder)) throw std::runtime_error(std::strerror(ENOENT));
    });
}

void writePicture(const fs::path& file, const Picture& picture) {
    explainFailures("write", file, [&] {
        writeWhole(file, roomFor(picture),
                   [&](const fs::path& beside) { writeWith(*requireWriter(beside), picture); });
    });
}

}  // namespace diffuse
