// SPDX-License-Identifier: MIT
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

#include "childProcess.h"
#include "formats/Format.h"
#include "pictureFile.h"
#include "standardStreams.h"

namespace diffuse {

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Axis, extent, spacing, direction)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Picture, axes, origin, sampleType, pixelKind, channels, count,
                                   notes)

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;
using Vector = std::vector<double>;

// Directions of length 1 that span the space, in lengths that a float holds.
void requireSensiblePlace(const Picture& picture) {
    const auto isLength = [](double x) { return x == 0 || std::isnormal(static_cast<float>(x)); };
    bool makesSense = std::ranges::all_of(picture.origin, isLength);
    Vector d[3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    for (std::size_t a = 0; a < picture.axes.size(); ++a) {
        const Axis& axis = picture.axes[a];
        makesSense = makesSense && isLength(axis.spacing) && axis.spacing > 0;
        if (axis.direction.empty()) continue;
        d[a] = axis.direction;
        d[a].resize(3);
        makesSense = makesSense && std::abs(std::hypot(d[a][0], d[a][1], d[a][2]) - 1) < 1e-3;
    }
    const double volume = d[0][0] * (d[1][1] * d[2][2] - d[1][2] * d[2][1]) +
                          d[0][1] * (d[1][2] * d[2][0] - d[1][0] * d[2][2]) +
                          d[0][2] * (d[1][0] * d[2][1] - d[1][1] * d[2][0]);
    if (!makesSense || !(std::abs(volume) > 1e-6)) {
        throw Refusal("its place in space or its spacing makes no sense");
    }
}

// Throws Refusal for more samples than the file can hold, whatever packs them but for those of a
// nearly empty picture, and for more than the machine can, beside those of a channel before and
// after a step.
void requireSensible(const Contents& contents, std::uint64_t inputBytes) {
    constexpr std::uint64_t freeBytes = 128 << 20;
    constexpr std::uint64_t proportion = 1100;  // gzip's best is 1032 to 1
    const Picture& picture = contents.picture;
    const std::uint64_t bytes = requireSize(picture);
    requireSensiblePlace(picture);
    if (!std::isfinite(contents.slope) || !std::isfinite(contents.shift)) {
        throw Refusal("the scale of its samples is no finite number");
    }
    if (bytes > freeBytes && (bytes - freeBytes) / proportion > inputBytes) {
        throw Refusal("its header promises " + std::to_string(bytes >> 20) +
                      " MiB, more than so small a file can hold");
    }
    const std::uint64_t pixels = bytes / picture.channels / sizeOf(picture.sampleType);
    const std::uint64_t present =
        std::uint64_t{1} * sysconf(_SC_PHYS_PAGES) * sysconf(_SC_PAGE_SIZE);
    if (bytes + 2 * sizeof(double) * pixels > present) {
        throw Refusal("not enough memory for its samples");
    }
}

// Throws Refusal for samples that are no finite numbers, or that float64 rounds.
void requireNumbers(const Picture& picture, bool spreadsNan) {
    withSampleType(picture.sampleType, [&]<typename Sample>(Sample*) {
        const auto* begin = reinterpret_cast<const Sample*>(picture.samples.get());
        const auto* end = begin + picture.bytes() / sizeof(Sample);
        if constexpr (std::is_floating_point_v<Sample>) {
            const auto isFinite = [](Sample sample) { return std::isfinite(sample); };
            if (!spreadsNan && !std::all_of(begin, end, isFinite)) {
                throw Refusal(
                    "it has samples that are infinite or no numbers, which would spread with every "
                    "step (--nan spread lets them)");
            }
        } else if constexpr (sizeof(Sample) == sizeof(double)) {
            constexpr auto exact = static_cast<double>(std::uint64_t{1} << 53);
            if (std::any_of(begin, end, [](Sample sample) {
                    return std::abs(static_cast<double>(sample)) > exact;
                })) {
                throw Refusal("it has whole numbers beyond 2^53, which would be rounded");
            }
        }
    });
}

std::uint64_t sizeOfFiles(const std::vector<fs::path>& files) {
    std::uint64_t size = 0;
    for (const fs::path& file : files) size += fs::is_regular_file(file) ? fs::file_size(file) : 0;
    return size;
}

// Slices of a volume become pictures of a series.
void takeForPages(Picture& picture) {
    if (picture.axes.size() != 3) return;
    picture.count = picture.axes.back().extent;
    picture.axes.pop_back();
}

void readInChild(const fs::path& file, const ReadSettings& settings, Board& board) {
    const Format* format = formatOf(file);
    if (!format) {
        if (const Format* named = formatOfName(file)) board.begin(named->name, 0);
        throw std::runtime_error("its beginning is that of no known format");
    }
    std::vector<fs::path> files = {file};
    if (fs::is_directory(file)) files.assign(fs::directory_iterator(file), {});
    board.begin(format->name, sizeOfFiles(files));
    const Contents contents = format->open(file);
    if (!contents.companion.empty()) files.push_back(contents.companion);
    requireSensible(contents, sizeOfFiles(files));
    Picture picture = contents.picture;
    if (format->hasPages && !settings.pagesAreVolume) takeForPages(picture);
    const bool isScaled = contents.slope != 1 || contents.shift != 0;
    const std::size_t growth = isScaled ? sizeof(double) / sizeOf(picture.sampleType) : 1;
    board.promise(picture.bytes() * growth);
    const std::shared_ptr<std::byte> shared(&board.samples[0], [](std::byte*) {});
    if (isScaled || settings.slice) {
        picture.makeRoom();
    } else {
        picture.samples = shared;
    }
    contents.read(picture.samples.get());
    if (settings.slice) picture = takeSlice(picture, *settings.slice);
    requireNumbers(picture, settings.spreadsNan);
    if (isScaled) {
        picture = converted(picture, SampleType::float64, contents.slope, contents.shift);
        requireNumbers(picture, settings.spreadsNan);
    }
    if (picture.samples != shared) {
        std::memcpy(board.samples, picture.samples.get(), picture.bytes());
    }
    std::vector<std::string> names(files.begin(), files.end());
    std::string header;
    const std::string suffix = format->suffixes.front();
    Json::to_cbor({{"picture", picture},
                   {"files", names},
                   {"suffix", isWritten("picture" + suffix) ? suffix : ".nrrd"},
                   {"knowsSpacing", !format->hasPages}},
                  header);
    board.tell(header);
}

}  // namespace

Input readPicture(const fs::path& file, const ReadSettings& settings) {
    Input input;
    std::optional<StandardInput> stream;
    explainFailures(file.string() + ": ", [&] {
        if (isStream(file)) stream.emplace();
        const fs::path& source = stream ? stream->path() : file;
        if (fs::exists(file) && !fs::is_directory(file) && !fs::is_regular_file(file)) {
            throw Refusal("neither a file nor a folder");
        }
        const auto board = runApart([&](Board& shared) { readInChild(source, settings, shared); });
        const Json json = Json::from_cbor(board->header, board->header + board->headerSize);
        const std::vector<std::string> names = json.at("files");
        input.files.assign(names.begin(), names.end());
        input.suffix = json.at("suffix");
        input.knowsSpacing = json.at("knowsSpacing");
        input.picture = json.at("picture");
        // What the child tells is not trusted any further than the memory that it filled.
        if (requireSize(input.picture) > board->sampleRoom) throw std::bad_alloc();
        input.picture.samples = {board, board->samples};
    });
    return input;
}

}  // namespace diffuse
