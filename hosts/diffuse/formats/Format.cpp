// SPDX-License-Identifier: MIT
#include "Format.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <limits>
#include <memory>

namespace diffuse {

namespace {

namespace fs = std::filesystem;

std::vector<Format>& known() {
    static std::vector<Format> list;
    return list;
}

std::string headOf(const fs::path& file) {
    const std::unique_ptr<gzFile_s, int (*)(gzFile)> stream(gzopen(file.c_str(), "rb"), gzclose);
    if (!stream) throw Refusal(std::strerror(errno));
    std::array<char, 4096> bytes{};
    const int count = gzread(stream.get(), bytes.data(), bytes.size());
    return {bytes.data(), static_cast<std::size_t>(std::max(count, 0))};
}

}  // namespace

KnownFormat::KnownFormat(const Format& format) {
    known().push_back(format);
}

const Format* formatOfName(const fs::path& file) {
    std::string name = file.filename().string();
    std::ranges::transform(name, name.begin(), [](unsigned char c) { return std::tolower(c); });
    const auto ends = [&](const std::string& suffix) { return name.ends_with(suffix); };
    for (const Format& format : known()) {
        if (std::ranges::any_of(format.suffixes, ends)) return &format;
    }
    return nullptr;
}

const Format* formatOf(const fs::path& file) {
    if (fs::is_directory(file)) return formatOfName(".dcm");
    const std::string head = headOf(file);
    for (const Format& format : known()) {
        if (format.recognises(head)) return &format;
    }
    return formatOfName(file);
}

int requireExtent(std::uint64_t samples) {
    if (samples < 1 || samples > std::numeric_limits<int>::max()) {
        throw Refusal("an axis of " + std::to_string(samples) +
                      " samples, 1 to 2147483647 are possible");
    }
    return static_cast<int>(samples);
}

std::uint64_t requireSize(const Picture& picture) {
    constexpr std::uint64_t most = std::numeric_limits<int>::max();
    constexpr double beyondAll = 1e18;
    if (picture.axes.size() != 2 && picture.axes.size() != 3) {
        throw Refusal(std::to_string(picture.axes.size()) + " dimensions, 2 or 3 are needed");
    }
    std::uint64_t pixels = 1;
    for (const Axis& axis : picture.axes) {
        if (axis.extent > 1 && pixels > most) {
            throw Refusal("slices of more than 2147483647 samples");
        }
        pixels *= requireExtent(axis.extent);
    }
    const std::uint64_t each = requireExtent(picture.channels) * sizeOf(picture.sampleType);
    if (static_cast<double>(pixels) * static_cast<double>(each) > beyondAll) {
        throw Refusal("not enough memory for its samples");
    }
    return pixels * each;
}

}  // namespace diffuse
