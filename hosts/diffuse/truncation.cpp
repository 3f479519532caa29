#include "truncation.h"

#include <gdcmReader.h>
#include <itkMetaDataObject.h>
#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace diffuse {

namespace {

namespace fs = std::filesystem;

// Unpacks the file to its end, where gzip keeps length and checksum.
bool gzipIsWhole(const fs::path& file) {
    gzFile stream = gzopen(file.c_str(), "rb");
    if (!stream) return false;
    std::vector<char> block(1 << 16);
    int count = 0;
    do {
        count = gzread(stream, block.data(), static_cast<unsigned>(block.size()));
    } while (count > 0);
    const int closed = gzclose_r(stream);
    return count == 0 && closed == Z_OK;
}

// A number that the reader took from the header, as text.
std::uintmax_t headerNumber(const itk::ImageIOBase& io, const char* key) {
    std::string text;
    itk::ExposeMetaData(io.GetMetaDataDictionary(), key, text);
    return text.empty() ? 0 : static_cast<std::uintmax_t>(std::stod(text));
}

bool niftiIsWhole(fs::path file, const itk::ImageIOBase& io) {
    // Samples of a header of its own stand in the other file of the pair.
    if (file.extension() == ".hdr") file.replace_extension(".img");
    // Colours are one element of the file, the components of vectors several.
    const bool inColour = io.GetPixelType() == itk::CommonEnums::IOPixel::RGB ||
                          io.GetPixelType() == itk::CommonEnums::IOPixel::RGBA;
    const std::uintmax_t elements =
        inColour ? io.GetImageSizeInPixels() : io.GetImageSizeInComponents();
    return fs::file_size(file) >=
           headerNumber(io, "vox_offset") + elements * headerNumber(io, "bitpix") / 8;
}

std::uint32_t littleEndian(const unsigned char (&bytes)[4]) {
    return bytes[0] | bytes[1] << 8 | bytes[2] << 16 | static_cast<std::uint32_t>(bytes[3]) << 24;
}

// The header tells where the pixels begin, in four bytes, lowest first. A pixel takes one byte at
// least: the reader knows no run lengths.
bool bmpIsWhole(const fs::path& file, const itk::ImageIOBase& io) {
    unsigned char bytes[4] = {};
    std::ifstream stream(file, std::ios::binary);
    stream.seekg(10);
    stream.read(reinterpret_cast<char*>(bytes), sizeof bytes);
    const std::uintmax_t pixels = io.GetImageSizeInPixels();
    return fs::file_size(file) >= littleEndian(bytes) + pixels;
}

// Whether the marker of the end stands last, but for padding.
bool endsWith(const fs::path& file, std::string_view marker) {
    constexpr std::uintmax_t tailLength = 4096;
    std::ifstream stream(file, std::ios::binary);
    stream.seekg(-static_cast<std::streamoff>(std::min(tailLength, fs::file_size(file))),
                 std::ios::end);
    const std::string tail(std::istreambuf_iterator<char>(stream), {});
    return tail.find(marker) != std::string::npos;
}

// The length of the pixel data stands in the four bytes before them; compressed ones name none and
// end with a delimiter.
bool dicomIsWhole(const fs::path& file) {
    using namespace std::string_view_literals;
    gdcm::Reader reader;
    reader.SetFileName(file.c_str());
    const gdcm::Tag pixelData(0x7fe0, 0x0010);
    if (!reader.ReadUpToTag(pixelData, {pixelData})) return false;
    const gdcm::TransferSyntax syntax = reader.GetFile().GetHeader().GetDataSetTransferSyntax();
    if (syntax == gdcm::TransferSyntax::DeflatedExplicitVRLittleEndian) return true;
    const std::size_t start = reader.GetStreamCurrentPosition();
    unsigned char bytes[4] = {};
    std::ifstream stream(file, std::ios::binary);
    stream.seekg(static_cast<std::streamoff>(start - sizeof bytes));
    stream.read(reinterpret_cast<char*>(bytes), sizeof bytes);
    if (syntax.GetSwapCode() == gdcm::SwapCode::BigEndian) std::reverse(bytes, bytes + 4);
    const std::uint32_t length = littleEndian(bytes);
    if (length == 0xffffffff) return endsWith(file, "\xfe\xff\xdd\xe0\0\0\0\0"sv);
    return fs::file_size(file) >= start + length;
}

}  // namespace

void requireWholeFile(const fs::path& file, const itk::ImageIOBase& io) {
    const std::string reader = io.GetNameOfClass();
    bool whole = true;
    if (file.extension() == ".gz") {
        whole = gzipIsWhole(file);
    } else if (reader == "NiftiImageIO") {
        whole = niftiIsWhole(file, io);
    } else if (reader == "BMPImageIO") {
        whole = bmpIsWhole(file, io);
    } else if (reader == "JPEGImageIO") {
        whole = endsWith(file, "\xff\xd9");
    } else if (reader == "GDCMImageIO") {
        whole = dicomIsWhole(file);
    }
    if (!whole) throw std::runtime_error("the file ends too early");
}

}  // namespace diffuse
