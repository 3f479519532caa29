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

class Values : public PipelineTest {
protected:
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

INSTANTIATE_TEST_SUITE_P(Pipelines, Values, testing::ValuesIn(pipelines()), nameOf);

}  // namespace
