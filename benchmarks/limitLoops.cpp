// SPDX-License-Identifier: MIT
#include <time.h>

#include <algorithm>
#include <cmath>

#include "peers.h"
#include "pipelines/names.h"

// Tables of makeLimitLoops.py.
#define LIMIT_LOOPS(name) LIMIT_LOOPS_OF(name)
#define LIMIT_LOOPS_OF(name) limitLoops_##name
#define PIPELINE(...) \
    extern "C" const peers::LimitLoop LIMIT_LOOPS(DIFFUSEFILT_NAME(__VA_ARGS__))[LIMIT_ORDERS];
#include "pipelines/pipelines.def"

namespace peers {

std::span<const LimitLoop> limitLoops(std::string_view pipeline) {
    static const struct {
        std::string_view pipeline;
        const LimitLoop* loops;
    } all[] = {
#define PIPELINE(...) \
    {DIFFUSEFILT_TEXT(DIFFUSEFILT_NAME(__VA_ARGS__)), LIMIT_LOOPS(DIFFUSEFILT_NAME(__VA_ARGS__))},
#include "pipelines/pipelines.def"
    };
    for (const auto& row : all) {
        if (row.pipeline == pipeline && row.loops[0] != nullptr) return {row.loops, LIMIT_ORDERS};
    }
    return {};
}

void run(LimitLoop loop, int64_t vectors) {
    loop(std::max(vectors, int64_t{1}), static_cast<float (*)(float)>(std::floor));
}

std::vector<double> timesOf(std::span<const LimitLoop> loops) {
    constexpr int repetitions = 15;
    constexpr int64_t vectors = 2000;
    std::vector<double> least(loops.size(), HUGE_VAL);
    for (int i = 0; i < repetitions; ++i) {
        for (size_t k = 0; k < loops.size(); ++k) {
            timespec begin, end;
            clock_gettime(CLOCK_MONOTONIC, &begin);
            run(loops[k], vectors);
            clock_gettime(CLOCK_MONOTONIC, &end);
            const double ns =
                1e9 * double(end.tv_sec - begin.tv_sec) + double(end.tv_nsec - begin.tv_nsec);
            least[k] = std::min(least[k], ns / vectors);
        }
    }
    return least;
}

void callExp(const std::vector<double>& arguments, int64_t count) {
    for (int64_t left = count; left > 0; left -= int64_t(arguments.size())) {
        const double* const end = arguments.data() + std::min(left, int64_t(arguments.size()));
#pragma GCC unroll 8
        for (const double* u = arguments.data(); u != end; ++u) {
            const double result = std::exp(*u);
            asm volatile("" : : "x"(result));
        }
    }
}

}  // namespace peers
