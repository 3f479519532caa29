// SPDX-License-Identifier: MIT
// The experiment behind the limits: what the orders take in which a loop can have the operations of
// a vector. Writes, for each pipeline that has such loops and whose name holds a word of the
// command line, nanoseconds for one element: the best of the orders, their median and the worst,
// and the order of the definition.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "peers.h"
#include "support/Pipelines.h"

int main(int argc, char** argv) {
    std::printf("%-46s%10s%10s%10s%12s\n", "ns for one element", "best", "median", "worst",
                "definition");
    for (const support::Pipeline& pipeline : support::pipelines()) {
        const auto loops = peers::limitLoops(pipeline.name);
        const bool chosen = argc == 1 || std::any_of(argv + 1, argv + argc, [&](const char* word) {
                                return std::strstr(pipeline.name, word) != nullptr;
                            });
        if (loops.empty() || !chosen || !support::processorRuns(pipeline.variant.instructionSet)) {
            continue;
        }
        std::vector<double> times = peers::timesOf(loops);
        for (double& time : times) time /= pipeline.variant.lanes();
        const double definition = times[0];
        std::ranges::sort(times);
        std::printf("%-46s%10.4f%10.4f%10.4f%12.4f\n", pipeline.name, times.front(),
                    times[times.size() / 2], times.back(), definition);
        std::fflush(stdout);
    }
    return 0;
}
