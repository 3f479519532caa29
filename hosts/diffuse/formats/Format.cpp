// SPDX-License-Identifier: MIT
#include "Format.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <limits>

namespace diffuse {

namespace {

namespace fs = std::filesystem;

std::vector<Format>& known() {
    static std::vector<Format> list;
    return list;
}

std::string headOf(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    if (!stream) throw Refusal(std::strerror(errno));
    std::string head(4096, '\0');
    stream.read(head.data(), static_cast<std::streamsize>(head.size()));
    head.resize(stream.gcount());
    return head;
}

}  // namespace

void explainFailures(const std::string& before, const std::function<void()>& work) {
    try {
        work();
    } catch (const std::bad_alloc&) {
        throw std::runtime_error(before + "not enough memory");
    } catch (const fs::filesystem_error& error) {
        throw std::runtime_error(before + error.code().message());
    } catch (const std::exception& error) {
        throw std::runtime_error(before + error.what());
    }
}

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
    return nullptr;
}

bool isWritten(const fs::path& file) {
    const Format* format = formatOfName(file);
    return format && format->write && file.extension() != ".mhd" && file.extension() != ".nhdr";
}

void requireHeld(const Format& format, const Picture& picture) {
    constexpr const char* kinds[] = {"greys", "greys with opacity", "colours",
                                     "colours with opacity", "vectors"};
    const auto isIn = [](const auto& list, auto entry) {
        return std::ranges::find(list, entry) != list.end();
    };
    const std::pair<bool, std::string> lost[] = {
        {!format.holdsVolumes && picture.dimensions() > 2, "volumes"},
        {picture.count > 1 && !format.holdsSeries &&
             !(format.hasPages && picture.dimensions() == 2),
         "series"},
        {!isIn(format.kinds, picture.pixelKind), kinds[static_cast<int>(picture.pixelKind)]},
        {!isIn(format.types, picture.sampleType),
         std::string("samples of ") + sampleTypeNames[static_cast<int>(picture.sampleType)]},
        {!format.holdsProfiles && picture.notes.contains(colourProfile), "colour profiles"}};
    for (const auto& [isLost, what] : lost) {
        if (isLost) throw Refusal(std::string(format.name) + " holds no " + what);
    }
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
    const std::uint64_t count = requireExtent(picture.count);
    if (static_cast<double>(pixels) * static_cast<double>(each * count) > beyondAll) {
        throw Refusal("not enough memory for its samples");
    }
    return pixels * each * count;
}

}  // namespace diffuse
