// Times contenders in turn, again and again, so that all of them meet the same noise of the
// machine: the ratio of two times of one repetition is worth more than either.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "support/Threads.h"

struct Contender {
    std::string name;
    double work;  // what one call does, in elements (or rows, or calls): the unit of the figures
    std::function<void()> call;
    int threads = 1;
};

struct Effort {
    double seconds;  // no repetition begins later, unless there are fewer than `least`
    int least;
    int most;
};

struct Samples {
    Contender contender;
    int64_t calls;              // in one sample
    std::vector<double> times;  // nanoseconds for one unit of work, one for each repetition
};

inline double secondsNow() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// On several threads a first call wakes the workers and is not timed.
inline double secondsOf(const Contender& contender, int64_t calls) {
    double seconds = 0;
    support::withThreads(contender.threads, [&] {
        if (contender.threads > 1) contender.call();
        const double start = secondsNow();
        for (int64_t i = 0; i < calls; ++i) contender.call();
        seconds = secondsNow() - start;
    });
    return seconds;
}

inline std::vector<Samples> measure(const std::vector<Contender>& contenders, Effort effort) {
    constexpr double shortest = 2e-3;  // of a sample
    std::vector<Samples> all;
    for (const Contender& contender : contenders) {
        Samples samples{contender, 1, {}};
        secondsOf(contender, 1);
        double seconds = 0;
        while ((seconds = secondsOf(contender, samples.calls)) < shortest / 2) samples.calls *= 2;
        all.push_back(samples);
    }
    const double end = secondsNow() + effort.seconds;
    for (int i = 0; i < effort.most && (i < effort.least || secondsNow() < end); ++i) {
        for (Samples& samples : all) {
            const double work = samples.contender.work * double(samples.calls);
            samples.times.push_back(1e9 * secondsOf(samples.contender, samples.calls) / work);
        }
    }
    return all;
}

// One line of JSON: {"pipeline": ..., "group": ..., "ns": {contender: [one for each repetition]}}
inline void printLine(const std::string& pipeline, const std::string& group,
                      const std::vector<Samples>& all) {
    std::printf("{\"pipeline\": \"%s\", \"group\": \"%s\", \"ns\": {", pipeline.c_str(),
                group.c_str());
    for (const Samples& samples : all) {
        std::printf("%s\"%s\": [", &samples == &all.front() ? "" : ", ",
                    samples.contender.name.c_str());
        for (size_t i = 0; i < samples.times.size(); ++i) {
            std::printf("%s%.5g", i == 0 ? "" : ", ", samples.times[i]);
        }
        std::printf("]");
    }
    std::printf("}}\n");
    std::fflush(stdout);
}
