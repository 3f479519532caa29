// SPDX-License-Identifier: MIT
// The results of every pipeline on a fixed list of calls, against stored hashes: the same
// bits on any day, from any compiler. A line that does not hold is printed as found.
//
// exp of the math library is not the same in every version and on every processor, so the
// exponential float64 pipelines have a line for each that has been met.
#include <gnu/libc-version.h>
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <limits>
#include <sstream>

#include "support/Bits.h"
#include "support/PipelineTest.h"
#include "support/SmallImage.h"

namespace {

using namespace support;
using diffusefilt::Conduction;
using diffusefilt::ElementType;

constexpr int calls = 300;

// FNV-1a of 64 bits.
template <class T>
std::string hashOf(const Pipeline& pipeline) {
    uint64_t hash = 0xcbf29ce484222325;
    for (int seed = 1; seed <= calls; ++seed) {
        const RandomCall call =
            makeRandomCall(seed, pipeline.variant.dimensions, pipeline.variant.lanes());
        std::vector<T> output = outputOf<T>(pipeline, call);
        const auto view = viewOf(call.output, output.data());
        reference::forEachElement(view, [&](const auto&, int64_t offset) {
            T element = view.host[offset];
            if (std::isnan(element)) element = std::numeric_limits<T>::quiet_NaN();
            for (size_t i = 0; i < sizeof(T); ++i) {
                hash = (hash ^ (bitsOf(element) >> 8 * i & 0xff)) * 0x100000001b3;
            }
        });
    }
    std::ostringstream text;
    text << std::hex << hash;
    return text.str();
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
