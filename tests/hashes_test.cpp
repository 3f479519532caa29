// The results of every pipeline on a fixed list of calls, against stored hashes: the same
// bits on any day, from any compiler. A line that does not hold is printed as found.
//
// exp of the math library is not the same in every version and on every processor, so the
// exponential float64 pipelines have a line for each that has been met.
#include <gnu/libc-version.h>
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <fstream>
#include <sstream>

#include "support/HalideBuffer.h"
#include "support/PipelineTest.h"
#include "support/RandomCall.h"

namespace {

using namespace support;
using diffusefilt::Conduction;
using diffusefilt::ElementType;

constexpr int calls = 300;

// FNV-1a of 64 bits.
class Hash {
public:
    template <class T>
    void add(T element) {
        const bool isDouble = sizeof(T) == sizeof(double);
        uint64_t bits = isDouble ? std::bit_cast<uint64_t>(double(element))
                                 : std::bit_cast<uint32_t>(float(element));
        if (std::isnan(element)) bits = isDouble ? 0x7ff8000000000000 : 0x7fc00000;
        for (size_t i = 0; i < sizeof(T); ++i, bits >>= 8) {
            state_ = (state_ ^ (bits & 0xff)) * 0x100000001b3;
        }
    }
    std::string text() const {
        std::ostringstream text;
        text << std::hex << state_;
        return text.str();
    }

private:
    uint64_t state_ = 0xcbf29ce484222325;
};

template <class T>
void addElements(const reference::View<T>& view, Hash& hash) {
    const bool is3D = view.dimensions == 3;
    for (int64_t z = 0; z < (is3D ? view.extent[2] : 1); ++z) {
        for (int64_t y = 0; y < view.extent[1]; ++y) {
            const T* row = view.host + y * view.stride[1] + (is3D ? z * view.stride[2] : 0);
            for (int64_t x = 0; x < view.extent[0]; ++x) hash.add(row[x]);
        }
    }
}

template <class T>
std::string hashOf(const Pipeline& pipeline) {
    Hash hash;
    for (int seed = 1; seed <= calls; ++seed) {
        const RandomCall call =
            makeRandomCall(seed, pipeline.variant.dimensions, pipeline.variant.lanes());
        const Span inputSpan = spanOf(call.input);
        std::vector<T> input(inputSpan.count);
        std::vector<T> output(spanOf(call.output).count);
        fillContent(call, input.data(), inputSpan.count);
        const auto from = viewOf<const T>(call.input, input.data());
        const auto to = viewOf(call.output, output.data());
        EXPECT_EQ(pipeline.entry(HalideBuffer(from), call.gradTIn, HalideBuffer(to)), 0);
        addElements(to, hash);
    }
    return hash.text();
}

// What the line of a pipeline begins with: where its results hold.
std::string placeOf(const Pipeline& pipeline) {
    std::string place = pipeline.name;
    if (pipeline.variant.conduction == Conduction::exponential &&
        pipeline.variant.elementType == ElementType::float64) {
        place += std::string(" libm-") + gnu_get_libc_version();
        place += __builtin_cpu_supports("fma") ? " fma" : " no-fma";
    }
    return place;
}

class StoredHash : public PipelineTest {};

TEST_P(StoredHash, Holds) {
    const Pipeline& pipeline = GetParam();
    const std::string found = narrow() ? hashOf<float>(pipeline) : hashOf<double>(pipeline);
    const std::string place = placeOf(pipeline) + " ";
    std::ifstream file(STORED_HASHES);
    for (std::string line; std::getline(file, line);) {
        if (!line.starts_with(place)) continue;
        EXPECT_EQ(line, place + found);
        return;
    }
    if (place != std::string(pipeline.name) + " ") {
        GTEST_SKIP() << "NOT COMPARED, no line is stored for this math library: " << place << found;
    }
    FAIL() << "no line is stored: " << place << found;
}

INSTANTIATE_TEST_SUITE_P(Pipelines, StoredHash, testing::ValuesIn(pipelines()), nameOf);

}  // namespace
