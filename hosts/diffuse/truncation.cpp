#include "truncation.h"

#include <itkMetaDataObject.h>
#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
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
    const std::uintmax_t samples = io.GetImageSizeInComponents();
    return fs::file_size(file) >=
           headerNumber(io, "vox_offset") + samples * headerNumber(io, "bitpix") / 8;
}

// The header tells where the pixels begin, in four bytes, lowest first. A pixel takes one byte at
// least: the reader knows no run lengths.
bool bmpIsWhole(const fs::path& file, const itk::ImageIOBase& io) {
    unsigned char bytes[4] = {};
    std::ifstream stream(file, std::ios::binary);
    stream.seekg(10);
    stream.read(reinterpret_cast<char*>(bytes), sizeof bytes);
    const std::uintmax_t offset =
        bytes[0] | bytes[1] << 8 | bytes[2] << 16 | static_cast<std::uintmax_t>(bytes[3]) << 24;
    return fs::file_size(file) >= offset + io.GetImageSizeInPixels();
}

// The marker of the end stands last, but for padding.
bool jpegIsWhole(const fs::path& file) {
    constexpr std::uintmax_t tailLength = 4096;
    std::ifstream stream(file, std::ios::binary);
    stream.seekg(-static_cast<std::streamoff>(std::min(tailLength, fs::file_size(file))),
                 std::ios::end);
    const std::string tail(std::istreambuf_iterator<char>(stream), {});
    return tail.rfind("\xff\xd9") != std::string::npos;
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
        whole = jpegIsWhole(file);
    }
    if (!whole) throw std::runtime_error("the file ends too early");
}

}  // namespace diffuse
