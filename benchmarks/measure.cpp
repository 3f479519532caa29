// SPDX-License-Identifier: MIT
// Times contenders in turn, again and again, so that all of them meet the same noise of the
// machine: the ratio of two times of one repetition is worth more than either.
//
//   measure PIPELINE SECONDS CONTENDER...
//   measure    writes the names of the pipelines that this processor runs
//
// A contender is KIND/EXTENTS[+PADDING][/THREADS], such as pipeline/2048x2048+16/2: the kind as
// in contenders.h, the rows PADDING elements further apart than they are wide, one thread
// unless told (two for the pool). Writes, as JSON, the nanoseconds for one element of each
// repetition of each contender; 5 to 31 repetitions, none after SECONDS but the first 5.
#include <time.h>

#include <cstdio>
#include <map>
#include <regex>
#include <sstream>

#include "contenders.h"
#include "support/Threads.h"

namespace {

struct Contender {
    std::string name;
    Work work;
    int threads;
    int64_t calls = 1;               // in one sample
    std::vector<double> times = {};  // nanoseconds for one element, one for each repetition
};

double secondsOn(clockid_t clock) {
    timespec now;
    clock_gettime(clock, &now);
    return double(now.tv_sec) + 1e-9 * double(now.tv_nsec);
}

// One thread is timed by what it had of a processor, which other programs hardly lengthen;
// several by the time that passes, and a first call, not timed, wakes the workers.
double secondsOf(const Contender& contender) {
    const bool isParallel = contender.threads > 1;
    const clockid_t clock = isParallel ? CLOCK_MONOTONIC : CLOCK_THREAD_CPUTIME_ID;
    double seconds = 0;
    support::withThreads(contender.threads, [&] {
        if (isParallel) contender.work.call();
        const double start = secondsOn(clock);
        for (int64_t i = 0; i < contender.calls; ++i) contender.work.call();
        seconds = secondsOn(clock) - start;
    });
    return seconds;
}

void time(std::vector<Contender>& contenders, double seconds) {
    constexpr int least = 5;
    constexpr int most = 31;
    constexpr double shortestSample = 1e-3;
    constexpr double settling = 0.3;  // until each of several threads has a processor of its own
    for (Contender& contender : contenders) {
        const double start = secondsOn(CLOCK_MONOTONIC);
        do {
            secondsOf(contender);
        } while (contender.threads > 1 && secondsOn(CLOCK_MONOTONIC) - start < settling);
        while (secondsOf(contender) < shortestSample) contender.calls *= 2;
    }
    const double end = secondsOn(CLOCK_MONOTONIC) + seconds;
    for (int i = 0; i < most && (i < least || secondsOn(CLOCK_MONOTONIC) < end); ++i) {
        for (Contender& contender : contenders) {
            const double elements = contender.work.elements * double(contender.calls);
            contender.times.push_back(1e9 * secondsOf(contender) / elements);
        }
    }
}

void print(const std::vector<Contender>& contenders) {
    const char* separator = "{";
    for (const Contender& contender : contenders) {
        std::printf("%s\"%s\": ", separator, contender.name.c_str());
        separator = "[";
        for (const double time : contender.times) {
            std::printf("%s%.5g", separator, time);
            separator = ", ";
        }
        std::printf("]");
    }
    std::printf("}\n");
}

// Contenders of one shape share a picture.
using Pictures = std::map<std::string, Picture>;

Contender contenderOf(const std::string& name, const support::Pipeline& pipeline,
                      Pictures& pictures) {
    std::smatch parts;
    if (!std::regex_match(name, parts, std::regex(R"((\w+)/([\dx]+)(\+\d+)?(/\d+)?)"))) return {};
    const auto number = [](const std::string& text) {
        return text.empty() ? 0 : std::stoi(text.substr(1));
    };
    Extents extents;
    std::istringstream shape(parts.str(2));
    for (std::string extent; std::getline(shape, extent, 'x');) {
        extents.push_back(std::stoi(extent));
    }
    if (int(extents.size()) != pipeline.variant.dimensions) return {};
    Picture& picture = pictures
                           .try_emplace(parts.str(2) + parts.str(3), pipeline.variant.elementType,
                                        extents, number(parts.str(3)))
                           .first->second;
    return {name, workOf(parts.str(1), pipeline, picture), std::max(1, number(parts.str(4)))};
}

int fail(const char* what, const char* which) {
    std::fprintf(stderr, "measure: %s %s\n", what, which);
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 1) {
        for (const support::Pipeline& pipeline : support::pipelines()) {
            if (support::processorRuns(pipeline.variant.instructionSet)) std::puts(pipeline.name);
        }
        return 0;
    }
    if (argc < 4) return fail("usage:", "measure [PIPELINE SECONDS CONTENDER...]");
    const support::Pipeline* const pipeline = support::findPipeline(argv[1]);
    if (pipeline == nullptr) return fail("the library has no", argv[1]);
    if (!peersAgree(*pipeline)) return fail("a peer computes something else than", argv[1]);
    Pictures pictures;
    std::vector<Contender> contenders;
    for (int i = 3; i < argc; ++i) {
        contenders.push_back(contenderOf(argv[i], *pipeline, pictures));
        if (!contenders.back().work.call) return fail("there is no", argv[i]);
    }
    time(contenders, std::atof(argv[2]));
    print(contenders);
    return 0;
}
