#include "tiffPages.h"

#include <bit>
#include <fstream>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "Format.h"

namespace diffuse {

namespace {

namespace fs = std::filesystem;

enum Tag {
    widthTag = 256,
    heightTag = 257,
    bitsTag = 258,
    photometricTag = 262,
    orientationTag = 274,
    channelsTag = 277,
    extraTag = 338,
    formatTag = 339
};

// The first value of each element of a directory, all of short ones.
using Directory = std::map<int, std::vector<std::uint64_t>>;

class Reader {
public:
    explicit Reader(const fs::path& file) : stream_(file, std::ios::binary) {
        isBig_ = stream_.get() == 'M';
        stream_.get();
        isWide_ = number(2) == 43;
        if (isWide_) number(4);
        next_ = number(offsetSize());
    }

    // False behind the last directory. Throws if the next one is not there.
    bool read(Directory& directory) {
        directory.clear();
        if (next_ == 0) return false;
        stream_.seekg(static_cast<std::streamoff>(next_));
        const std::uint64_t entries = number(isWide_ ? 8 : 2);
        for (std::uint64_t i = 0; i < entries; ++i) readEntry(directory);
        next_ = number(offsetSize());
        return true;
    }

private:
    [[nodiscard]] int offsetSize() const { return isWide_ ? 8 : 4; }

    std::uint64_t number(int size) {
        std::uint64_t value = 0;
        for (int i = 0; i < size; ++i) {
            const int byte = stream_.get();
            if (byte < 0) throw std::runtime_error("the file ends too early");
            value |= static_cast<std::uint64_t>(byte) << 8 * (isBig_ ? size - 1 - i : i);
        }
        return value;
    }

    void readEntry(Directory& directory) {
        const int tag = static_cast<int>(number(2));
        const auto type = number(2);
        const std::uint64_t count = number(offsetSize());
        const int size = type == 3 ? 2 : type == 4 ? 4 : type == 16 ? 8 : 1;
        const std::streamoff behind = stream_.tellg() + std::streamoff{offsetSize()};
        const bool isKept = tag == widthTag || tag == heightTag || tag == bitsTag ||
                            tag == photometricTag || tag == orientationTag || tag == channelsTag ||
                            tag == extraTag || tag == formatTag;
        if (isKept && count > 0 && count < 65536) {
            if (count * size > static_cast<std::uint64_t>(offsetSize())) {
                stream_.seekg(static_cast<std::streamoff>(number(offsetSize())));
            }
            for (std::uint64_t i = 0; i < count; ++i) directory[tag].push_back(number(size));
        }
        stream_.seekg(behind);
    }

    std::ifstream stream_;
    bool isBig_ = false, isWide_ = false;
    std::uint64_t next_ = 0;
};

std::uint64_t firstOf(const Directory& directory, Tag tag, std::uint64_t otherwise) {
    const auto found = directory.find(tag);
    return found == directory.end() ? otherwise : found->second.front();
}

// Channels of the colour that the photometric interpretation names.
int coloursOf(std::uint64_t photometric) {
    switch (photometric) {
        case 0:  // white or black is zero
        case 1:
            return 1;
        case 2:  // RGB, palette, YCbCr
        case 3:
        case 6:
            return 3;
        case 5:
            throw Refusal("its pixels are inks, not colours");
        default:
            throw Refusal("its colours are of kind " + std::to_string(photometric) + " of TIFF");
    }
}

void describe(const Directory& first, TiffPages& pages) {
    const std::uint64_t photometric = firstOf(first, photometricTag, 1);
    const int colours = coloursOf(photometric);
    const int samples = static_cast<int>(firstOf(first, channelsTag, 1));
    const int extra = samples - (photometric == 3 ? 1 : colours);
    const std::uint64_t meaning = firstOf(first, extraTag, 0);
    const bool isOpacity = extra == 1 && (meaning == 1 || meaning == 2);
    pages.channels = colours + extra;
    if (extra == 0) {
        pages.kind = colours == 1 ? PixelKind::grey : PixelKind::rgb;
    } else if (isOpacity) {
        pages.kind = colours == 1 ? PixelKind::greyOpacity : PixelKind::rgba;
    } else {
        pages.kind = PixelKind::vector;
    }
}

}  // namespace

bool isTiff(std::string_view head) {
    using namespace std::string_view_literals;
    return head.starts_with("II*\0"sv) || head.starts_with("MM\0*"sv) ||
           head.starts_with("II+\0"sv) || head.starts_with("MM\0+"sv);
}

TiffPages requireTiffPages(const fs::path& file) {
    constexpr int most = 100'000;
    Reader reader(file);
    TiffPages pages;
    Directory first, page;
    while (reader.read(page)) {
        if (pages.count++ == 0) first = page;
        if (page != first) {
            throw Refusal("its page " + std::to_string(pages.count) +
                          " is of another size or kind than the first");
        }
        if (pages.count == most) throw std::runtime_error("its pages do not end");
    }
    if (pages.count == 0) throw std::runtime_error("it has no page");
    describe(first, pages);
    return pages;
}

}  // namespace diffuse
