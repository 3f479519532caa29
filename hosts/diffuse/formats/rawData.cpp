#include "rawData.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <fstream>
#include <new>
#include <span>
#include <stdexcept>
#include <vector>

#include "../samples.h"
#include "Format.h"

namespace diffuse {

namespace {

namespace fs = std::filesystem;

void refuseShort() {
    throw std::runtime_error("the file ends too early");
}

// A file from an offset on, unpacked if it is packed.
class Source {
public:
    explicit Source(const RawSamples& raw) : stream_(raw.file, std::ios::binary) {
        constexpr int anyHeader = MAX_WBITS + 32;
        stream_.seekg(static_cast<std::streamoff>(raw.offset));
        if (!stream_) throw std::runtime_error(std::strerror(errno));
        isPacked_ = raw.packed;
        if (isPacked_ && inflateInit2(&state_, anyHeader) != Z_OK) throw std::bad_alloc();
    }
    ~Source() { inflateEnd(&state_); }
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;

    // Fills the bytes as far as there are any; returns how many there were.
    std::size_t read(std::span<std::byte> bytes) {
        auto* to = reinterpret_cast<char*>(bytes.data());
        const auto count = static_cast<std::streamsize>(bytes.size());
        if (!isPacked_) return stream_.read(to, count).gcount();
        std::size_t filled = 0;
        while (filled < bytes.size() && !atEnd_) {
            constexpr std::size_t most = 1 << 30;
            const auto part = static_cast<uInt>(std::min(most, bytes.size() - filled));
            state_.next_out = reinterpret_cast<Bytef*>(to + filled);
            state_.avail_out = part;
            unpack();
            filled += part - state_.avail_out;
        }
        return filled;
    }

private:
    void unpack() {
        if (state_.avail_in == 0) {
            stream_.read(packed_.data(), packed_.size());
            state_.next_in = reinterpret_cast<Bytef*>(packed_.data());
            state_.avail_in = static_cast<uInt>(stream_.gcount());
            if (state_.avail_in == 0) refuseShort();
        }
        const int status = inflate(&state_, Z_NO_FLUSH);
        if (status == Z_STREAM_END) {
            // One may follow the other.
            atEnd_ = state_.avail_in == 0 && stream_.peek() == std::ifstream::traits_type::eof();
            if (!atEnd_) inflateReset(&state_);
        } else if (status != Z_OK) {
            throw std::runtime_error("its packed samples are damaged");
        }
    }

    std::ifstream stream_;
    std::array<char, 1 << 16> packed_{};
    z_stream state_{};
    bool isPacked_ = false, atEnd_ = false;
};

}  // namespace

std::uintmax_t readLines(const fs::path& file, const std::function<bool(std::string_view)>& take) {
    constexpr std::uintmax_t most = 1 << 20;
    std::ifstream stream(file, std::ios::binary);
    std::uintmax_t end = 0;
    std::string line;
    for (char byte = 0; stream.get(byte); ++end) {
        if (end == most) throw std::runtime_error("its header does not end");
        if (byte != '\n') {
            line += byte;
            continue;
        }
        if (line.ends_with('\r')) line.pop_back();
        if (!take(line)) return end + 1;
        line.clear();
    }
    if (!line.empty()) take(line);
    return end;
}

std::string trimmed(std::string_view text) {
    constexpr std::string_view white = " \t\r\n";
    const std::size_t begin = text.find_first_not_of(white);
    if (begin == std::string_view::npos) return "";
    return std::string(text.substr(begin, text.find_last_not_of(white) - begin + 1));
}

std::string requireNeighbour(const std::string& name) {
    if (name.find('/') != std::string::npos || name == "..") {
        throw Refusal("its samples stand outside its folder, in " + name);
    }
    if (name.starts_with("LIST") || name.find('%') != std::string::npos) {
        throw Refusal("its samples stand in several files");
    }
    return name;
}

void requireWhole(const RawSamples& raw) {
    if (raw.packed) return;
    const std::uintmax_t present = fs::file_size(raw.file);
    const std::uintmax_t wanted = raw.offset + raw.skipped + raw.bytes;
    if (present < wanted) refuseShort();
    if (present > wanted) throw std::runtime_error("more follows than its header tells of");
}

void readSamples(const RawSamples& raw, std::byte* samples) {
    Source source(raw);
    std::vector<std::byte> skipped(raw.skipped);
    if (source.read(skipped) < skipped.size()) refuseShort();
    if (source.read({samples, raw.bytes}) < raw.bytes) refuseShort();
    std::byte behind{};
    if (source.read({&behind, 1}) != 0) {
        throw std::runtime_error("more follows than its header tells of");
    }
    const auto unit = static_cast<std::uintmax_t>(raw.swapped);
    for (std::uintmax_t at = 0; unit > 1 && at < raw.bytes; at += unit) {
        std::reverse(samples + at, samples + at + unit);
    }
}

std::size_t sizeOf(SampleType type) {
    return withSampleType(type, [](auto* sample) { return sizeof(*sample); });
}

std::string samplesOf(const Picture& picture, bool planar) {
    std::string bytes(picture.values.size() * sizeOf(picture.sampleType), '\0');
    const std::size_t pixels = picture.values.size() / picture.channels;
    withSampleType(picture.sampleType, [&]<typename Sample>(Sample*) {
        for (int c = 0; c < picture.channels; ++c) {
            std::size_t at = planar ? c * pixels : c;
            for (const double value : picture.channel(c)) {
                const auto sample = toSample<Sample>(value);
                std::memcpy(&bytes[at * sizeof(Sample)], &sample, sizeof(Sample));
                at += planar ? 1 : picture.channels;
            }
        }
    });
    return bytes;
}

void writeTextAndSamples(const fs::path& file, const std::string& header, const fs::path& data,
                         const Picture& picture) {
    std::ofstream stream(file, std::ios::binary);
    stream << header;
    if (!data.empty()) {
        stream.close();
        if (stream) stream.open(data, std::ios::binary);
    }
    stream << samplesOf(picture);
    stream.close();
    if (!stream) throw std::runtime_error(std::strerror(errno));
}

void refuseGreyOpacity(const Picture& picture, const char* format) {
    if (picture.pixelKind == PixelKind::greyOpacity) {
        throw Refusal(std::string(format) + " holds no grey with opacity; PNG and TIFF do");
    }
}

}  // namespace diffuse
