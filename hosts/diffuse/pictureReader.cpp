#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <limits>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

#include "childProcess.h"
#include "formats/Format.h"
#include "formats/rawData.h"
#include "pictureFile.h"
#include "samples.h"

namespace diffuse {

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

std::string toBytes(const Contents& contents) {
    const Picture& picture = contents.picture;
    Json axes = Json::array();
    for (const Axis& axis : picture.axes) {
        axes.push_back(
            {{"extent", axis.extent}, {"spacing", axis.spacing}, {"direction", axis.direction}});
    }
    Json notes = Json::object();
    for (const auto& [name, text] : picture.notes) {
        notes[name] = Json::binary({text.begin(), text.end()});
    }
    const Json json = {{"axes", axes},
                       {"origin", picture.origin},
                       {"type", picture.sampleType},
                       {"kind", picture.pixelKind},
                       {"channels", picture.channels},
                       {"notes", notes},
                       {"planar", contents.planar},
                       {"slope", contents.slope},
                       {"shift", contents.shift}};
    std::string bytes;
    Json::to_cbor(json, bytes);
    return bytes;
}

Contents fromBytes(const std::string& bytes) {
    const Json json = Json::from_cbor(bytes);
    Contents contents;
    Picture& picture = contents.picture;
    for (const Json& axis : json.at("axes")) {
        picture.axes.push_back({axis.at("extent"), axis.at("spacing"),
                                axis.at("direction").get<std::vector<double>>()});
    }
    json.at("origin").get_to(picture.origin);
    json.at("type").get_to(picture.sampleType);
    json.at("kind").get_to(picture.pixelKind);
    json.at("channels").get_to(picture.channels);
    for (const auto& [name, text] : json.at("notes").items()) {
        picture.notes[name] = {text.get_binary().begin(), text.get_binary().end()};
    }
    json.at("planar").get_to(contents.planar);
    json.at("slope").get_to(contents.slope);
    json.at("shift").get_to(contents.shift);
    return contents;
}

// What a header may promise. Throws Refusal, and std::bad_alloc beyond the machine's memory: beside
// the samples stand their values, and those of one channel before and after a step.
std::size_t requireSensible(const Contents& contents) {
    constexpr std::uint64_t most = std::numeric_limits<int>::max();
    const Picture& picture = contents.picture;
    if (picture.axes.size() != 2 && picture.axes.size() != 3) {
        throw Refusal("it has " + std::to_string(picture.axes.size()) +
                      " dimensions, 2 or 3 are needed");
    }
    std::uint64_t pixels = 1;
    bool isFinite = std::isfinite(contents.slope) && std::isfinite(contents.shift);
    for (const double place : picture.origin) isFinite = isFinite && std::isfinite(place);
    for (const Axis& axis : picture.axes) {
        if (axis.extent > 1 && pixels > most) {
            throw Refusal("slices of more than 2147483647 samples");
        }
        pixels *= requireExtent(axis.extent);
        isFinite = isFinite && std::isfinite(axis.spacing) && axis.spacing > 0;
        for (const double component : axis.direction)
            isFinite = isFinite && std::isfinite(component);
    }
    if (!isFinite) throw Refusal("its place, its spacing or its scale is no finite number");
    requireExtent(picture.channels);
    const double samples = static_cast<double>(pixels) * picture.channels;
    const auto size = static_cast<double>(sizeOf(picture.sampleType));
    const double needed = samples * (size + sizeof(double) * (1 + 2.0 / picture.channels));
    const double present =
        static_cast<double>(sysconf(_SC_PHYS_PAGES)) * static_cast<double>(sysconf(_SC_PAGE_SIZE));
    if (needed > present) throw Refusal("not enough memory for its samples");
    return static_cast<std::size_t>(samples * size);
}

// No packing but that of a nearly empty picture makes a file smaller than this.
void requireProportion(std::size_t promised, std::uintmax_t present) {
    constexpr std::uintmax_t free = 128 << 20;
    constexpr std::uintmax_t most = 1100;  // gzip's best is 1032 to 1
    if (promised > free + most * present) {
        throw Refusal("its header promises " + std::to_string(promised >> 20) +
                      " MiB, more than so small a file can hold");
    }
}

void readInChild(const fs::path& file, std::uintmax_t inputBytes, const ToParent& parent) {
    const Format* format = formatOf(file);
    if (!format) throw Refusal("unknown format");
    parent.name(format->name);
    const Contents contents = format->open(file);
    const std::size_t bytes = requireSensible(contents);
    requireProportion(bytes, inputBytes);
    contents.read(parent.promise(toBytes(contents), bytes));
}

std::vector<double> toValues(const Contents& contents, const Samples& bytes) {
    const Picture& picture = contents.picture;
    std::size_t pixels = 1;
    for (const Axis& axis : picture.axes) pixels *= axis.extent;
    const std::size_t channels = picture.channels;
    std::vector<double> values(pixels * channels);
    withSampleType(picture.sampleType, [&]<typename Sample>(Sample*) {
        const auto* samples = reinterpret_cast<const Sample*>(bytes.get());
        for (std::size_t c = 0; c < channels; ++c) {
            const std::size_t step = contents.planar ? 1 : channels;
            const Sample* from = samples + (contents.planar ? c * pixels : c);
            for (std::size_t i = 0; i < pixels; ++i) {
                const Sample sample = from[i * step];
                const auto value = static_cast<double>(sample);
                if constexpr (sizeof(Sample) == 8 && std::is_integral_v<Sample>) {
                    constexpr auto exact = static_cast<double>(std::uint64_t{1} << 53);
                    if (std::abs(value) > exact) {
                        throw Refusal("it has whole numbers beyond 2^53, which would be rounded");
                    }
                }
                values[c * pixels + i] = value;
            }
        }
    });
    return values;
}

Picture scaled(Contents&& contents) {
    if (contents.slope != 1 || contents.shift != 0) {
        for (double& value : contents.picture.values) {
            value = contents.slope * value + contents.shift;
        }
        contents.picture.sampleType = SampleType::float64;
    }
    return std::move(contents.picture);
}

// Of those files that are there.
std::uintmax_t bytesIn(const std::vector<fs::path>& files) {
    std::uintmax_t bytes = 0;
    for (const fs::path& file : files) {
        std::error_code ignored;
        if (fs::is_regular_file(file, ignored)) bytes += fs::file_size(file);
    }
    return bytes;
}

}  // namespace

Picture readPicture(const fs::path& file) {
    try {
        if (fs::exists(file) && !fs::is_directory(file) && !fs::is_regular_file(file)) {
            throw Refusal("neither a file nor a folder");
        }
        const std::uintmax_t bytes = bytesIn(filesOf(file));
        const FromChild answer =
            runApart(bytes, [&](const ToParent& parent) { readInChild(file, bytes, parent); });
        Contents contents = fromBytes(answer.header);
        requireSensible(contents);
        contents.picture.values = toValues(contents, answer.samples);
        return scaled(std::move(contents));
    } catch (const fs::filesystem_error& error) {
        throw std::runtime_error(file.string() + ": " + error.code().message());
    } catch (const std::bad_alloc&) {
        throw std::runtime_error(file.string() + ": not enough memory");
    } catch (const std::exception& error) {
        throw std::runtime_error(file.string() + ": " + error.what());
    }
}

}  // namespace diffuse
