// Results that can be said without evaluating the filter, by their bits, in every
// pipeline of the table and on both paths.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "support/Bits.h"
#include "support/PipelineTest.h"
#include "support/SmallImage.h"

namespace {

using namespace diffusefilt;
using namespace support;

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

class Values : public PipelineTest {
protected:
    bool inlineExponential() const {
        return narrow() && variant().conduction == Conduction::exponential;
    }

    // Widths of the in-line and of the parallel path. In line, with two lanes, no element
    // has neighbours on both sides.
    std::vector<int> widths() const { return {variant().lanes(), 3 * variant().lanes() + 1}; }

    template <class T>
    SmallImage<T> blank(int width, T value) const {
        return {width, 5, planar() ? 0 : 5, value};
    }
    int middleZ() const { return planar() ? 0 : 2; }

    template <class T>
    SmallImage<T> filtered(const SmallImage<T>& image, double gradTIn) const {
        return support::filtered(GetParam(), image, gradTIn);
    }

    template <class T>
    void expectElement(SmallImage<T> result, int x, int y, int z, T wanted) const {
        EXPECT_TRUE(sameBits(result(x, y, z), wanted))
            << showBits(result(x, y, z)) << ", wanted " << showBits(wanted) << " at (" << x << ", "
            << y << ", " << z << ") of " << result.extent[0] << " columns";
    }

    template <class T>
    static T choose(uint32_t narrowBits, uint64_t wideBits) {
        if constexpr (sizeof(T) == 8) return std::bit_cast<double>(wideBits);
        return std::bit_cast<float>(narrowBits);
    }
    template <class T>
    T rate() const {
        if (planar()) return minimal() ? T(0.25) : T(0.125);
        return minimal() ? choose<T>(0x3e2aaaab, 0x3fc5555555555555)
                         : choose<T>(0x3d1d89d9, 0x3fa3b13b13b13b14);
    }
    template <class T>
    static T corner() {
        return choose<T>(0x3eaaaaaa, 0x3fd5555555555557);
    }

    // The conductance of a neighbour at the distance of the threshold.
    template <class T>
    T conductanceOfOne() const {
        if (variant().conduction == Conduction::quadratic) return T(0.5);
        return choose<T>(0x3ebc5ab2, std::bit_cast<uint64_t>(std::exp(-1.0)));
    }
};

TEST_P(Values, ConstantImageStaysAndNegativeZeroTurnsPositive) {
    inElementType([&]<class T>(T) {
        for (const int width : widths()) {
            for (const double gradTIn : {0.3, -40.0, infinity}) {
                EXPECT_EQ(filtered(blank<T>(width, T(7.3)), gradTIn).elements,
                          blank<T>(width, T(7.3)).elements);
                for (const T v : filtered(blank<T>(width, T(-0.0)), gradTIn).elements) {
                    EXPECT_EQ(bitsOf(v), 0u);
                }
            }
        }
    });
}

TEST_P(Values, OneNeighbourPullsWithItsWeight) {
    inElementType([&]<class T>(T) {
        const int z = middleZ();
        const T g = conductanceOfOne<T>();
        for (const int width : widths()) {
            const int x = width / 2;
            if (width < 3) continue;
            for (int i = 0; i < (planar() ? 9 : 27); ++i) {
                const int dx = i % 3 - 1, dy = i / 3 % 3 - 1, dz = planar() ? 0 : i / 9 - 1;
                const int axes = std::abs(dx) + std::abs(dy) + std::abs(dz);
                const T weights[] = {0, 1, T(0.5), corner<T>()};
                if (axes == 0) continue;
                const T weight = minimal() && axes > 1 ? T(0) : weights[axes];
                SmallImage<T> image = blank<T>(width, T(0));
                image(x + dx, 2 + dy, z + dz) = 1;
                expectElement<T>(filtered(image, 1), x, 2, z, weight * g * rate<T>());
                expectElement<T>(filtered(image, -1), x, 2, z, weight * g * rate<T>());
                expectElement<T>(filtered(image, -infinity), x, 2, z, weight * rate<T>());
                expectElement<T>(filtered(image, 1e39), x, 2, z, weight * rate<T>());
            }
        }
    });
}

// Fluxes that vanish from below leave -0.0, for no sum starts from +0.0.
TEST_P(Values, NegativeZerosAddUp) {
    inElementType([&]<class T>(T) {
        for (const int width : widths()) {
            if (width < 3) continue;
            SmallImage<T> image = blank<T>(width, T(-1));
            image(width / 2, 2, middleZ()) = T(-0.0);
            expectElement<T>(filtered(image, 0), width / 2, 2, middleZ(), T(-0.0));
        }
    });
}

// Thresholds whose reciprocal is infinite or NaN, on an image without equal neighbours
// but those that the border repeats.
TEST_P(Values, ThresholdsWithoutReciprocal) {
    inElementType([&]<class T>(T) {
        for (const int width : widths()) {
            SmallImage<T> image = blank<T>(width, T(0));
            for (std::size_t i = 0; i < image.elements.size(); ++i) image.elements[i] = T(i + 1);
            for (const double gradTIn : {0.0, -0.0, 1e-50, 1e-39, nan}) {
                const bool infinite = gradTIn == 0 || (narrow() && gradTIn < 1);
                SmallImage<T> result = filtered(image, gradTIn);
                for (int i = 0; i < static_cast<int>(image.elements.size()); ++i) {
                    const int x = i % width, y = i / width % 5, z = i / width / 5;
                    const bool border =
                        x == 0 || x == width - 1 || y % 4 == 0 || (!planar() && z % 4 == 0);
                    const bool lost = std::isnan(gradTIn) || (infinite && border);
                    expectElement<T>(result, x, y, z,
                                     lost && !inlineExponential() ? T(nan) : image(x, y, z));
                }
            }
        }
    });
}

// Neighbours beyond the border repeat elements inside it, each with its own weight, and
// the rate stays. With an infinite threshold every conductance is 1.
TEST_P(Values, FoldedNeighboursAreCountedAgain) {
    inElementType([&]<class T>(T) {
        const T one = 1, half = T(0.5);
        for (const int width : widths()) {
            SmallImage<T> image = blank<T>(width, T(0));
            image(1, 0, 0) = 1;
            const bool tree = variant().instructionSet == InstructionSet::avx;
            const T beside = planar() ? one + half
                             : tree   ? (one + corner<T>()) + one
                                      : (one + one) + corner<T>();
            expectElement<T>(filtered(image, infinity), 0, 0, 0,
                             (minimal() ? one : beside) * rate<T>());

            // One row, or one plane.
            if (width < 3) continue;
            const int y = planar() ? 0 : 1;
            SmallImage<T> flat(width, planar() ? 1 : 3, planar() ? 0 : 1, T(0));
            flat(2, y, 0) = 1;
            expectElement<T>(filtered(flat, infinity), 1, y, 0,
                             (minimal() ? one : T(2)) * rate<T>());
            if (planar()) continue;
            const T diagonal = half + 2 * corner<T>();
            expectElement<T>(filtered(flat, infinity), 1, 0, 0,
                             (minimal() ? T(0) : diagonal) * rate<T>());
        }
    });
}

// South of 2^p and north of -2^p cancel before or after the ones to the east and west are
// lost in them, which depends on the order of the sum.
TEST_P(Values, SumKeepsItsOrder) {
    inElementType([&]<class T>(T) {
        const T large = std::ldexp(T(1), std::numeric_limits<T>::digits);
        for (const int width : widths()) {
            if (width < 3) continue;
            const bool ownOrder = width == variant().lanes() && inlineExponential();
            const bool chained = variant().instructionSet == InstructionSet::none && !ownOrder;
            for (const T south : {large, -large}) {
                SmallImage<T> image = blank<T>(width, T(0));
                const int x = width / 2, z = middleZ();
                image(x, 3, z) = south;
                image(x, 1, z) = -south;
                image(x - 1, 2, z) = image(x + 1, 2, z) = 1;
                const bool lost = chained && south > 0;
                // The diagonals are 0, so the axial part is all.
                expectElement<T>(filtered(image, infinity), x, 2, z,
                                 (lost ? T(0) : T(2)) * rate<T>());
            }
        }
    });
}

INSTANTIATE_TEST_SUITE_P(Pipelines, Values, testing::ValuesIn(pipelines()), nameOf);

}  // namespace
