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
    if (!stream) throw std::runtime_error(std::strerror(errno));
    std::array<char, 4096> bytes{};
    const int count = gzread(stream.get(), bytes.data(), bytes.size());
    return {bytes.data(), static_cast<std::size_t>(std::max(count, 0))};
}

}  // namespace

int requireExtent(std::uint64_t samples) {
    if (samples < 1 || samples > std::numeric_limits<int>::max()) {
        throw Refusal("an axis of " + std::to_string(samples) +
                      " samples, 1 to 2147483647 are possible");
    }
    return static_cast<int>(samples);
}

KnownFormat::KnownFormat(const Format& format) {
    known().push_back(format);
}

const Format* formatOfName(const fs::path& file) {
    std::string name = file.filename().string();
    std::ranges::transform(name, name.begin(), [](unsigned char c) { return std::tolower(c); });
    for (const Format& format : known()) {
        for (const std::string& suffix : format.suffixes) {
            if (name.ends_with(suffix)) return &format;
        }
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

std::vector<fs::path> filesOf(const fs::path& file) {
    std::vector<fs::path> files = {file};
    if (fs::is_directory(file)) {
        for (const fs::directory_entry& entry : fs::directory_iterator(file)) {
            files.push_back(entry.path());
        }
    } else if (!fs::is_regular_file(file)) {
        return files;
    } else if (const Format* format = formatOf(file); format && format->companions) {
        for (const std::string& name : format->companions(file)) {
            files.push_back(file.parent_path() / name);
        }
    }
    return files;
}

}  // namespace diffuse
