#include "formats.h"

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
#include <new>
#include <stdexcept>

#include "quietStderr.h"

namespace diffuse {

namespace {

namespace fs = std::filesystem;
using FileMode = itk::ImageIOFactory::IOFileModeEnum;

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
    const auto io = itk::ImageIOFactory::CreateImageIO(file.c_str(), mode);
    if (io) io->SetFileName(file.string());
    return io;
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

}  // namespace

itk::ImageIOBase::Pointer openReader(const fs::path& file) {
    return openFormat(file, FileMode::ReadMode);
}

itk::ImageIOBase::Pointer openWriter(const fs::path& file) {
    return openFormat(file, FileMode::WriteMode);
}

bool isFormat(const itk::ImageIOBase& io, const char* name) {
    return io.GetNameOfClass() == std::string(name);
}

bool isFlat(const itk::ImageIOBase& io) {
    return isFormat(io, "PNGImageIO") || isFormat(io, "JPEGImageIO") || isFormat(io, "BMPImageIO");
}

void setWholeRegion(itk::ImageIOBase& io) {
    itk::ImageIORegion region(io.GetNumberOfDimensions());
    for (unsigned i = 0; i < io.GetNumberOfDimensions(); ++i) {
        region.SetSize(i, io.GetDimensions(i));
    }
    io.SetIORegion(region);
}

void explainFailures(const std::string& what, const fs::path& file,
                     const std::function<void()>& work) {
    const auto fail = [&](const std::string& why) {
        throw std::runtime_error("cannot " + what + " " + file.string() + ": " + why);
    };
    const QuietStderr quiet;
    try {
        work();
    } catch (const itk::ExceptionObject& error) {
        fail(oneLine(error.GetDescription()));
    } catch (const std::bad_alloc&) {
        fail("not enough memory");
    } catch (const std::exception& error) {
        fail(error.what());
    }
}

}  // namespace diffuse
