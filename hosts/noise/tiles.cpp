// SPDX-License-Identifier: MIT
#include "tiles.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace noise {

namespace {

// Far wider than noise is carried in 20 steps, and small enough for many of them.
constexpr int edgeOf(int dimensions) {
    return dimensions == 2 ? 32 : 16;
}
constexpr std::size_t enough = std::size_t{1} << 17;  // values of a channel

// The first positions of up to `count` tiles of this edge along an axis.
std::vector<int> positions(int extent, int edge, int count) {
    const int last = std::max(extent - edge, 0);
    count = std::min(count, (extent + edge - 1) / edge);
    std::vector<int> found;
    for (int i = 0; i < count; ++i) {
        const double centre = (i + 0.5) * extent / count;
        found.push_back(std::clamp(int(centre - edge / 2.0), 0, last));
    }
    return found;
}

using Positions = std::array<std::vector<int>, 3>;

// As few along each axis as give enough values, or all there are.
Positions positionsIn(const Extents& extents, int edge) {
    Positions found;
    const int longest = *std::max_element(extents.begin(), extents.end());
    for (int count = 1;; ++count) {
        std::size_t values = 1;
        for (int d = 0; d < 3; ++d) {
            found[d] = positions(extents[d], edge, count);
            values *= found[d].size() * std::min(extents[d], edge);
        }
        if (values >= enough || count * edge >= longest) return found;
    }
}

template <typename Element>
Tile tileAt(const halide_buffer_t& channel, const Extents& start, const Extents& extents) {
    Tile tile{channel.dimensions, extents, {}, {}};
    tile.values.reserve(sizeOf(extents));
    const auto stride = [&](int d) {
        return d < channel.dimensions ? std::ptrdiff_t{channel.dim[d].stride} : 0;
    };
    const auto* const elements = reinterpret_cast<const Element*>(channel.host);
    for (int z = 0; z < extents[2]; ++z) {
        for (int y = 0; y < extents[1]; ++y) {
            const Element* const row = elements + start[0] * stride(0) +
                                       (start[1] + y) * stride(1) + (start[2] + z) * stride(2);
            for (int x = 0; x < extents[0]; ++x) {
                tile.values.push_back(static_cast<double>(row[x * stride(0)]));
            }
        }
    }
    return tile;
}

void markWhatMoves(std::vector<Tile>::iterator begin, std::vector<Tile>::iterator end) {
    double lowest = HUGE_VAL;
    double highest = -HUGE_VAL;
    for (auto tile = begin; tile != end; ++tile) {
        for (const double value : tile->values) {
            if (!std::isfinite(value)) continue;
            lowest = std::min(lowest, value);
            highest = std::max(highest, value);
        }
    }
    for (auto tile = begin; tile != end; ++tile) {
        for (const double value : tile->values) {
            tile->moves.push_back(value > lowest && value < highest);
        }
    }
}

template <typename Element>
void appendTiles(const halide_buffer_t& channel, std::vector<Tile>& tiles) {
    const int edge = edgeOf(channel.dimensions);
    Extents whole{1, 1, 1};
    for (int d = 0; d < channel.dimensions; ++d) whole[d] = channel.dim[d].extent;
    const auto [xs, ys, zs] = positionsIn(whole, edge);
    Extents extents{};
    for (int d = 0; d < 3; ++d) extents[d] = std::min(whole[d], edge);
    const auto before = static_cast<std::ptrdiff_t>(tiles.size());
    for (const int z : zs) {
        for (const int y : ys) {
            for (const int x : xs) tiles.push_back(tileAt<Element>(channel, {x, y, z}, extents));
        }
    }
    markWhatMoves(tiles.begin() + before, tiles.end());
}

using Append = void (*)(const halide_buffer_t&, std::vector<Tile>&);

// Null for a type that is none of the elements.
template <typename... Elements>
Append appendAmong(const halide_type_t& type) {
    Append found = nullptr;
    ((found = type == halide_type_of<Elements>() ? appendTiles<Elements> : found), ...);
    return found;
}

Append appendFor(const halide_type_t& type) {
    return appendAmong<std::uint8_t, std::int8_t, std::uint16_t, std::int16_t, std::uint32_t,
                       std::int32_t, std::uint64_t, std::int64_t, float, double>(type);
}

bool haveOneShape(const halide_buffer_t& one, const halide_buffer_t& other) {
    const auto sameExtent = [](const halide_dimension_t& a, const halide_dimension_t& b) {
        return a.extent == b.extent;
    };
    return (one.dimensions == 2 || one.dimensions == 3) && one.dimensions == other.dimensions &&
           std::equal(one.dim, one.dim + one.dimensions, other.dim, sameExtent);
}

}  // namespace

std::vector<Tile> tilesOf(const halide_buffer_t* channels, int count) {
    std::vector<Tile> tiles;
    for (int c = 0; c < count; ++c) {
        const Append append = appendFor(channels[c].type);
        if (append == nullptr || !haveOneShape(channels[0], channels[c])) return {};
        append(channels[c], tiles);
    }
    return tiles;
}

}  // namespace noise
