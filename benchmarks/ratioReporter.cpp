#include "ratioReporter.h"

#include <cstdio>

bool RatioReporter::ReportContext(const Context& context) {
    PrintBasicContext(&GetErrorStream(), context);
    return true;
}

void RatioReporter::ReportRuns(const std::vector<Run>& runs) {
    for (const Run& run : runs) {
        if (run.run_type != Run::RT_Aggregate || run.aggregate_name != "median") continue;
        const auto rate = run.counters.find("items_per_second");
        if (rate != run.counters.end()) medians_[run.run_name.function_name] = 1e9 / rate->second;
    }
}

void RatioReporter::Finalize() {
    std::printf("%-48s %10s %10s %7s\n", "pipeline (ns for one element)", "pipeline", "limit",
                "ratio");
    for (const auto& [name, time] : medians_) {
        if (name.ends_with(limitSuffix)) continue;
        const auto limit = medians_.find(name + limitSuffix);
        if (limit == medians_.end()) {
            std::printf("%-48s %10.3f %10s %7s\n", name.c_str(), time, "-", "-");
        } else {
            std::printf("%-48s %10.3f %10.3f %7.2f\n", name.c_str(), time, limit->second,
                        time / limit->second);
        }
    }
}

bool RatioReporter::isWithin(const std::string& pipeline, double ratio) const {
    const auto time = medians_.find(pipeline);
    const auto limit = medians_.find(pipeline + limitSuffix);
    return time == medians_.end() || limit == medians_.end() ||
           time->second <= ratio * limit->second;
}
