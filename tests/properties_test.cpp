// What holds of any call, over random calls of every pipeline: it may be cut into parts and
// handed slabs without the change of a bit, it never leaves the range of its input, it keeps
// sums where it should, and no direction is preferred.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <barrier>
#include <cmath>
#include <functional>
#include <limits>
#include <numeric>
#include <thread>
#include <vector>

#include "reference/Neighbours.h"
#include "support/Bits.h"
#include "support/CallCount.h"
#include "support/PipelineTest.h"
#include "support/RandomCall.h"
#include "support/RandomNumbers.h"
#include "support/SmallImage.h"

namespace {

using namespace support;
using reference::View;

constexpr double junk = -6328.7212;

template <class T>
int64_t offsetIn(const View<T>& view, const int32_t (&steps)[3]) {
    int64_t offset = 0;
    for (int d = 0; d < view.dimensions; ++d) offset += int64_t{steps[d]} * view.stride[d];
    return offset;
}

template <class T>
int run(const Pipeline& pipeline, const View<const T>& input, double gradTIn,
        const View<T>& output) {
    return pipeline.entry(HalideBuffer(input), gradTIn, HalideBuffer(output));
}

// A random call with its input, whose output can be computed as often as one likes.
template <class T>
class StoredCall {
public:
    StoredCall(const Pipeline& pipeline, uint64_t seed)
        : call(makeRandomCall(seed, pipeline.variant.dimensions, pipeline.variant.lanes())),
          pipeline_(&pipeline),
          memory_(static_cast<size_t>(spanOf(call.input).count)) {
        fillContent(call, memory_.data(), std::ssize(memory_));
    }

    const RandomCall call;

    View<const T> input() const { return viewOf<const T>(call.input, memory_.data()); }

    // Memory for the output, gaps included, and what `fill` makes of it.
    template <class Fill>
    std::vector<T> output(Fill fill) const {
        std::vector<T> memory(static_cast<size_t>(spanOf(call.output).count), T(junk));
        fill(viewOf(call.output, memory.data()));
        return memory;
    }

    std::vector<T> whole() const {
        return output([this](const View<T>& to) {
            EXPECT_EQ(run(*pipeline_, input(), call.gradTIn, to), 0) << describe(call);
        });
    }

private:
    const Pipeline* pipeline_;
    std::vector<T> memory_;
};

// The smallest input that serves a part of the output: what the part reads, between guard
// pages, under the coordinates and extents of the whole input.
template <class T>
View<const T> slabOf(const View<const T>& whole, const View<T>& part, Placement placement,
                     GuardedBuffer& memory) {
    Shape slab = {whole.dimensions, {}, {1, 1, 1}, {}};
    int32_t steps[3] = {};
    for (int d = 0; d < whole.dimensions; ++d) {
        const auto clamped = [&](int32_t v) { return std::clamp(v, 0, whole.extent[d] - 1); };
        slab.min[d] = clamped(part.min[d] - 1);
        slab.extent[d] = clamped(part.min[d] + part.extent[d]) - slab.min[d] + 1;
        slab.stride[d] = whole.stride[d];
        steps[d] = slab.min[d] - whole.min[d];
    }
    const Span span = spanOf(slab);
    T* const lowest = memory.place<T>(static_cast<size_t>(span.count), placement);
    std::fill_n(lowest, span.count, T(junk));
    const int64_t first = offsetIn(whole, steps);
    for (int32_t k = 0; k < slab.extent[2]; ++k) {
        for (int32_t j = 0; j < slab.extent[1]; ++j) {
            for (int32_t i = 0; i < slab.extent[0]; ++i) {
                const int64_t at = offsetIn(whole, {i, j, k});
                lowest[at - span.lowest] = whole.host[first + at];
            }
        }
    }
    View<const T> view = whole;
    view.host = lowest - span.lowest - first;
    return view;
}

class Properties : public PipelineTest {
protected:
    // Computes the output by calls on random parts of it, down to the least width that the
    // path takes, from slabs of the input.
    template <class T>
    void fillInParts(const StoredCall<T>& stored, const View<T>& output, GuardedBuffer& memory) {
        if (output.host == nullptr) return;  // no element, and so no memory
        const int d = random_.between(0, output.dimensions - 1);
        const int32_t least = d == 0 && !stored.call.inLine ? variant().lanes() : 1;
        const int32_t extent = output.extent[d];
        if (extent < 2 * least || random_.chance(20)) {
            const auto placement = static_cast<Placement>(random_.between(0, placements - 1));
            const View<const T> slab = slabOf(stored.input(), output, placement, memory);
            EXPECT_EQ(run(GetParam(), slab, stored.call.gradTIn, output), 0);
            ++parts_;
            return;
        }
        View<T> lower = output;
        View<T> upper = output;
        lower.extent[d] = random_.between(least, extent - least);
        upper.extent[d] -= lower.extent[d];
        upper.min[d] += lower.extent[d];
        upper.host += int64_t{lower.extent[d]} * upper.stride[d];
        fillInParts(stored, lower, memory);
        fillInParts(stored, upper, memory);
    }

    // An image of finite elements far from overflow, and a threshold near its differences.
    template <class T>
    SmallImage<T> randomImage() {
        SmallImage<T> image(random_.between(1, 3 * variant().lanes() + 5), random_.between(1, 7),
                            planar() ? 0 : random_.between(1, 5), T(0));
        RandomCall call = {};
        call.seed = random_.next();
        call.content = static_cast<Content>(random_.between(0, 4));
        fillContent(call, image.elements.data(), std::ssize(image.elements));
        gradTIn_ = std::ldexp(0.5 + random_.unit(), random_.between(-3, 9));
        return image;
    }

    template <class T>
    SmallImage<T> filtered(const SmallImage<T>& image) const {
        return support::filtered(GetParam(), image, gradTIn_);
    }

    // A bound of the rounding of one element: the sum of the fluxes, which are no more than
    // the range each, takes an error of half an epsilon of itself with each term, and so do
    // the rounding of each flux and of the result. The weights times the rate sum up to no
    // more than 1.
    template <class T>
    T rounding(const SmallImage<T>& image) const {
        const auto [lowest, highest] =
            std::minmax_element(image.elements.begin(), image.elements.end());
        const T largest = std::max(std::abs(*lowest), std::abs(*highest));
        return std::numeric_limits<T>::epsilon() *
               (largest + T(neighbours()) * (*highest - *lowest));
    }

    RandomNumbers random_{20240607};
    double gradTIn_ = 1;
    int64_t parts_ = 0;
};

TEST_P(Properties, PartsFromSlabsHaveTheBitsOfTheWhole) {
    GuardedBuffer memory(size_t{1} << 20);
    inElementType([&]<class T>(T) {
        for (int64_t i = callCount(500, 10000); i > 0; --i) {
            const StoredCall<T> stored(GetParam(), random_.next());
            const std::vector<T> inParts =
                stored.output([&](const View<T>& to) { fillInParts(stored, to, memory); });
            const std::vector<T> whole = stored.whole();
            ASSERT_TRUE(std::equal(whole.begin(), whole.end(), inParts.begin(), sameBits<T>))
                << describe(stored.call);
        }
    });
    RecordProperty("parts, from slabs, with the bits of the whole call", std::to_string(parts_));
}

TEST_P(Properties, NoElementLeavesTheRangeOfItsNeighbourhood) {
    const reference::Offset* offsets =
        planar() ? reference::planeOffsets : reference::volumeOffsets;
    const int64_t images = callCount(500, 10000);
    inElementType([&]<class T>(T) {
        for (int64_t n = 0; n < images; ++n) {
            SmallImage<T> image = randomImage<T>();
            SmallImage<T> result = filtered(image);
            const T slack = rounding(image);
            const auto [width, height, depth] = image.extent;
            for (int i = 0; i < static_cast<int>(image.elements.size()); ++i) {
                const int x = i % width, y = i / width % height, z = i / width / height;
                T lowest = image(x, y, z);
                T highest = lowest;
                for (int k = 0; k < neighbours(); ++k) {
                    const auto [dx, dy, dz] = offsets[k];
                    const T v =
                        image(std::clamp(x + dx, 0, width - 1), std::clamp(y + dy, 0, height - 1),
                              std::clamp(z + dz, 0, depth - 1));
                    lowest = std::min(lowest, v);
                    highest = std::max(highest, v);
                }
                ASSERT_GE(result(x, y, z), lowest - slack) << gradTIn_;
                ASSERT_LE(result(x, y, z), highest + slack) << gradTIn_;
            }
        }
    });
    RecordProperty("images within the range of each neighbourhood", std::to_string(images));
}

// What flows out of an element flows into its neighbour; that holds of `maximal` too, as the
// elements that stand in beyond the border do so for each other.
TEST_P(Properties, TheSumOfTheImageIsKept) {
    const int64_t images = callCount(500, 10000);
    inElementType([&]<class T>(T) {
        for (int64_t n = 0; n < images; ++n) {
            const SmallImage<T> image = randomImage<T>();
            const SmallImage<T> result = filtered(image);
            long double change = 0;
            for (size_t i = 0; i < image.elements.size(); ++i) {
                change += static_cast<long double>(result.elements[i]) - image.elements[i];
            }
            ASSERT_LE(std::abs(change), std::ssize(image.elements) * rounding(image)) << gradTIn_;
        }
    });
    RecordProperty("images that keep their sum", std::to_string(images));
}

// Axes exchanged and reversed at random: only the order of the sums differs.
TEST_P(Properties, NoDirectionIsPreferred) {
    const int64_t images = callCount(500, 10000);
    inElementType([&]<class T>(T) {
        for (int64_t n = 0; n < images; ++n) {
            SmallImage<T> image = randomImage<T>();
            int axis[3] = {0, 1, 2};
            for (int d = planar() ? 1 : 2; d > 0; --d)
                std::swap(axis[d], axis[random_.between(0, d)]);
            const int mirrored = random_.between(0, 7);
            const auto turned = [&](int i) {
                const int at[3] = {i % image.extent[0], i / image.extent[0] % image.extent[1],
                                   i / image.extent[0] / image.extent[1]};
                std::array<int, 3> to = {};
                for (int d = 0; d < 3; ++d) {
                    const int v = at[axis[d]];
                    to[d] = (mirrored >> d & 1) != 0 ? image.extent[axis[d]] - 1 - v : v;
                }
                return to;
            };
            SmallImage<T> other = image;
            for (int d = 0; d < 3; ++d) other.extent[d] = image.extent[axis[d]];
            const int count = static_cast<int>(image.elements.size());
            const auto elementOf = [](SmallImage<T>& of, std::array<int, 3> at) -> T& {
                return of(at[0], at[1], at[2]);
            };
            for (int i = 0; i < count; ++i) elementOf(other, turned(i)) = image.elements[i];
            const SmallImage<T> result = filtered(image);
            SmallImage<T> otherResult = filtered(other);
            for (int i = 0; i < count; ++i) {
                ASSERT_NEAR(result.elements[i], elementOf(otherResult, turned(i)), rounding(image))
                    << gradTIn_ << ", " << mirrored;
            }
        }
    });
    RecordProperty("mirrored and transposed images", std::to_string(images));
}

INSTANTIATE_TEST_SUITE_P(Pipelines, Properties, testing::ValuesIn(pipelines()), nameOf);

// 64 threads of the host call all pipelines at once, directly and from tasks of their own.
TEST(Together, ManyHostThreadsAndNestedCallsGiveTheSameBits) {
    constexpr int hostThreads = 64;
    const int64_t rounds = callCount(100, 5000);
    static std::vector<std::function<bool()>> works;
    const auto add = [&]<class T>(T, const Pipeline& pipeline, uint64_t seed) {
        const StoredCall<T> stored(pipeline, seed);
        works.push_back([stored, expected = stored.whole()] {
            const std::vector<T> found = stored.whole();
            return std::equal(found.begin(), found.end(), expected.begin(), sameBits<T>);
        });
    };
    RandomNumbers random(20240608);
    for (const Pipeline& pipeline : pipelines()) {
        if (!processorRuns(pipeline.variant.instructionSet)) continue;
        for (int i = 0; i < 4; ++i) {
            pipeline.variant.elementBits() == 32 ? add(float{}, pipeline, random.next())
                                                 : add(double{}, pipeline, random.next());
        }
    }
    const auto task = [](void*, int number, uint8_t*) {
        return works[static_cast<size_t>(number) % works.size()]() ? 0 : -1;
    };
    std::atomic<int> faults = 0;
    std::barrier start(hostThreads);
    std::vector<std::jthread> threads;
    for (int i = 0; i < hostThreads; ++i) {
        threads.emplace_back([&, i] {
            start.arrive_and_wait();
            for (int n = 0; n < rounds; ++n) {
                const int number = 7 * i + 3 * n;
                const bool nested = n % 2 == 1;
                faults += (nested ? halide_do_par_for(nullptr, task, number, 3, nullptr)
                                  : task(nullptr, number, nullptr)) != 0;
            }
        });
    }
    threads.clear();  // joins
    works.clear();
    EXPECT_EQ(faults, 0);
    RecordProperty("calls from 64 host threads at once", std::to_string(hostThreads * rounds * 2));
}

}  // namespace
