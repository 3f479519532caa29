// Prints, for each pipeline, its time for one element, that of its limit and their ratio,
// as medians over the repetitions of one run.
#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>

// The run of a limit is named after its pipeline's.
inline constexpr char limitSuffix[] = "/limit";

class RatioReporter : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context& context) override;
    void ReportRuns(const std::vector<Run>& runs) override;
    void Finalize() override;

    // Whether the pipeline's median is at most `ratio` times that of its limit.
    bool isWithin(const std::string& pipeline, double ratio) const;

private:
    std::map<std::string, double> medians_;  // nanoseconds for one element
};
