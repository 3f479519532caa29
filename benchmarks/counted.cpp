// SPDX-License-Identifier: MIT
// Runs calls under callgrind, and has it write what each executes into a file of its own.
//
//   counted PIPELINE/EXTENTS/FIRST+COUNT...
//
// One call each, on one thread: of a picture of these extents, COUNT columns from FIRST on.
#include <HalideRuntime.h>
#include <valgrind/callgrind.h>

#include <algorithm>
#include <cstdio>
#include <regex>
#include <sstream>

#include "Picture.h"
#include "support/Pipelines.h"
#include "support/Threads.h"

namespace {

bool count(const char* name) {
    std::cmatch parts;
    if (!std::regex_match(name, parts, std::regex(R"((\w+)/([\dx]+)/(\d+)\+(\d+))"))) return false;
    const support::Pipeline* const pipeline = support::findPipeline(parts.str(1));
    if (pipeline == nullptr) return false;
    Extents extents;
    std::istringstream shape(parts.str(2));
    for (std::string extent; std::getline(shape, extent, 'x');) {
        extents.push_back(std::stoi(extent));
    }
    if (int(extents.size()) != pipeline->variant.dimensions) return false;
    Picture picture(pipeline->variant.elementType, extents);
    halide_buffer_t in = picture.input();
    halide_buffer_t out = picture.output();
    halide_dimension_t dim[3];
    std::copy_n(out.dim, out.dimensions, dim);
    out.dim = dim;
    dim[0].min = std::stoi(parts.str(3));
    dim[0].extent = std::stoi(parts.str(4));
    support::withThreads(1, [&] {
        pipeline->entry(&in, threshold, &out);
        CALLGRIND_START_INSTRUMENTATION;
        CALLGRIND_ZERO_STATS;
        pipeline->entry(&in, threshold, &out);
        CALLGRIND_DUMP_STATS_AT(name);
        CALLGRIND_STOP_INSTRUMENTATION;
    });
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (!count(argv[i])) {
            std::fprintf(stderr, "counted: there is no %s\n", argv[i]);
            return 2;
        }
    }
    return 0;
}
