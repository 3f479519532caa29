// SPDX-License-Identifier: MIT
#include "finest.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace noise {

namespace {

constexpr double nothing = std::numeric_limits<double>::quiet_NaN();

// Sums or differences of neighbouring values of a tile, NaN where one of them does not move. Each
// lies where the first of its values was, in rows and planes as long as the tile's.
class Combined {
public:
    explicit Combined(const Tile& tile)
        : extents_(tile.extents),
          strides_{1, extents_[0], extents_[0] * extents_[1]},
          values_(tile.values) {
        for (std::size_t i = 0; i < values_.size(); ++i) {
            if (!tile.moves[i]) values_[i] = nothing;
        }
    }

    // `order` times the neighbour along each axis that is long enough, with this sign. White noise
    // keeps its standard deviation.
    Combined& combine(int order, int sign) {
        for (int d = 0; d < 3; ++d) {
            double squares = 1;  // of the binomial coefficients, summed
            for (int n = 1; n <= order && extents_[d] > 1; ++n) {
                squares *= (4.0 * n - 2) / n;
                --extents_[d];
                forEach(1, [&](int at) { values_[at] += sign * values_[at + strides_[d]]; });
            }
            forEach(1, [&](int at) { values_[at] /= std::sqrt(squares); });
        }
        return *this;
    }

    template <typename Visitor>
    void forEach(int step, const Visitor& visit) const {
        for (int z = 0; z < extents_[2]; z += step) {
            for (int y = 0; y < extents_[1]; y += step) {
                for (int x = 0; x < extents_[0]; x += step) {
                    visit(z * strides_[2] + y * strides_[1] + x);
                }
            }
        }
    }

    // Calls `visit` with all neighbours along an axis.
    template <typename Visitor>
    void forEachPair(int axis, const Visitor& visit) {
        --extents_[axis];
        forEach(1, [&](int at) { visit(values_[at], values_[at + strides_[axis]]); });
        ++extents_[axis];
    }

    double operator[](int at) const { return values_[at]; }

private:
    Extents extents_;
    std::array<int, 3> strides_;
    std::vector<double> values_;
};

// The median of values above or at 0 that may be rounded: those equal to it are taken as spread
// evenly between the middles to their neighbours.
double groupedMedian(std::vector<double>& values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    const double median = *middle;
    double below = 0;
    double equal = 0;
    double lower = -median;
    double upper = *std::max_element(middle, values.end());
    for (const double value : values) {
        below += value < median;
        equal += value == median;
        if (value < median) lower = std::max(lower, value);
        if (value > median) upper = std::min(upper, value);
    }
    const double begin = (lower + median) / 2;
    const double end = (median + upper) / 2;
    return begin + (end - begin) * (static_cast<double>(values.size()) / 2 - below) / equal;
}

// Of neighbouring differences along an axis.
struct Products {
    double count = 0, squares = 0, products = 0;

    void add(double one, double other) {
        count += 1;
        squares += (one * one + other * other) / 2;
        products += one * other;
    }
    Products& operator+=(const Products& more) {
        count += more.count;
        squares += more.squares;
        products += more.products;
        return *this;
    }
};

// A part of a tile in which all values move.
struct Block {
    double roughness;  // how its coarser structure varies, of which differences know nothing
    std::array<Products, 3> along;

    explicit Block(const Tile& part) {
        const Combined sums = Combined(part).combine(1, 1);
        double count = 0;
        double sum = 0;
        double squares = 0;
        sums.forEach(2, [&](int at) {
            count += 1;
            sum += sums[at];
            squares += sums[at] * sums[at];
        });
        roughness = squares / count - std::pow(sum / count, 2);
        Combined differences = Combined(part).combine(1, -1);
        for (int d = 0; d < 3; ++d) {
            differences.forEachPair(d, [&](double a, double b) { along[d].add(a, b); });
        }
    }
};

Tile partOf(const Tile& tile, const Extents& start, const Extents& extents) {
    Tile part{tile.dimensions, extents, {}, {}};
    for (int z = start[2]; z < start[2] + extents[2]; ++z) {
        for (int y = start[1]; y < start[1] + extents[1]; ++y) {
            const int row = (z * tile.extents[1] + y) * tile.extents[0] + start[0];
            for (int i = row; i < row + extents[0]; ++i) {
                part.values.push_back(tile.values[i]);
                part.moves.push_back(tile.moves[i]);
            }
        }
    }
    return part;
}

void appendBlocks(const Tile& tile, std::vector<Block>& blocks) {
    Extents edge{};
    for (int d = 0; d < 3; ++d) edge[d] = std::min(tile.extents[d], 8);
    for (int z = 0; z + edge[2] <= tile.extents[2]; z += edge[2]) {
        for (int y = 0; y + edge[1] <= tile.extents[1]; y += edge[1]) {
            for (int x = 0; x + edge[0] <= tile.extents[0]; x += edge[0]) {
                const Tile part = partOf(tile, {x, y, z}, edge);
                if (std::ranges::find(part.moves, false) == part.moves.end()) {
                    blocks.emplace_back(part);
                }
            }
        }
    }
}

}  // namespace

double sigmaOf(const std::vector<Tile>& tiles) {
    constexpr double medianOfNormal = 0.674489750196082;  // of |x| for a standard normal x
    // Both only where the wide ones find nothing cut off: narrow ones beside it are those of small
    // noise.
    std::vector<double> wide;
    std::vector<double> narrow;
    std::vector<double> anywhere;
    for (const Tile& tile : tiles) {
        const Combined ofFourth = Combined(tile).combine(4, -1);
        const Combined ofFirst = Combined(tile).combine(1, -1);
        ofFourth.forEach(1, [&](int at) {
            if (!std::isfinite(ofFourth[at])) return;
            wide.push_back(std::abs(ofFourth[at]));
            narrow.push_back(std::abs(ofFirst[at]));
        });
        ofFirst.forEach(1, [&](int at) {
            if (std::isfinite(ofFirst[at])) anywhere.push_back(std::abs(ofFirst[at]));
        });
    }
    if (anywhere.empty()) return 0;
    if (wide.empty()) return groupedMedian(anywhere) / medianOfNormal;
    // What is no noise only adds to a median. Fine texture adds less to that of the wide ones,
    // where more of it cancels; sharp edges less to that of the narrow ones, which they reach less
    // often.
    return std::min(groupedMedian(wide), groupedMedian(narrow)) / medianOfNormal;
}

Correlation correlationOf(const std::vector<Tile>& tiles) {
    std::vector<Block> blocks;
    for (const Tile& tile : tiles) appendBlocks(tile, blocks);
    const auto end = blocks.begin() + static_cast<std::ptrdiff_t>((blocks.size() + 3) / 4);
    std::ranges::nth_element(blocks, end, {}, &Block::roughness);
    Correlation largest;
    for (int d = 0; d < 3; ++d) {
        Products all;
        for (auto block = blocks.begin(); block != end; ++block) all += block->along[d];
        if (!(all.squares > 0)) continue;
        // Neighbouring differences share a value: of white noise, -1/2.
        const double excess = all.products / all.squares + 0.5;
        if (std::abs(excess) <= std::abs(largest.value)) continue;
        largest = {excess, std::abs(excess) > std::max(0.1, 3 / std::sqrt(all.count))};
    }
    return largest;
}

}  // namespace noise
