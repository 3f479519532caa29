// SPDX-License-Identifier: MIT
#include "report.h"

#include <cstdio>
#include <nlohmann/json.hpp>

namespace diffuse {

namespace {

using Json = nlohmann::ordered_json;

Json fileName(const std::string& file) {
    return file.empty() ? Json() : Json(file);
}

template <typename... Numbers>
std::string line(const char* format, Numbers... numbers) {
    char text[160];
    std::snprintf(text, sizeof text, format, numbers...);
    return text;
}

std::string filtering(const Report& report) {
    return line("threshold %.4g%s, %d %s", report.threshold,
                report.thresholdIsAuto ? " (auto)" : "", report.iterations,
                report.iterations == 1 ? "step" : "steps");
}

}  // namespace

std::string plainReport(const Report& report) {
    std::string text;
    if (report.thresholdIsAuto && report.iterations > 0) {
        text += line("threshold: %.4g, for noise of sigma %.4g and %d step%s\n", report.threshold,
                     report.noise.sigma, report.iterations, report.iterations == 1 ? "" : "s");
    }
    if (report.thresholdIsAuto && report.noise.isCorrelated) {
        text += line("noise: not white, correlation %.2f between neighbours: compare thresholds\n",
                     report.noise.correlation);
    }
    if (report.psnr) {
        text += line("PSNR before: %.2f dB\nPSNR after: %.2f dB\n", report.psnr->before,
                     report.psnr->after);
    }
    return text;
}

std::string shortReport(const Report& report) {
    return report.input + (report.output.empty() ? "" : " -> " + report.output) + ": " +
           filtering(report) + line(", %.2f s\n", report.seconds.filter);
}

std::string verboseReport(const Report& report, const Picture& result) {
    std::string text = report.input + ": ";
    for (int d = 0; d < result.dimensions(); ++d) {
        text += (d == 0 ? "" : " x ") + std::to_string(result.axes[d].extent);
    }
    text += std::string(" samples of ") + sampleTypeNames[static_cast<int>(result.sampleType)] +
            line(", %d %s, %d in series, read in %.2f s\n", result.channels,
                 result.channels == 1 ? "channel" : "channels", result.count, report.seconds.read);
    text += report.pipeline + ": " + filtering(report) +
            line(", filtered in %.2f s by %d %s\n", report.seconds.filter, report.threads,
                 report.threads == 1 ? "thread" : "threads");
    for (const std::string& name : {report.output, report.preview, report.page}) {
        if (!name.empty()) text.append("writes ").append(name).append("\n");
    }
    return text;
}

std::string jsonReport(const Report& report, const Picture& result) {
    Json extents = Json::array();
    Json spacing = Json::array();
    for (int d = 0; d < result.dimensions(); ++d) {
        extents.push_back(result.axes[d].extent);
        spacing.push_back(result.axes[d].spacing);
    }
    Json steps = Json::array();
    for (const StepReport& step : report.steps) {
        steps.push_back({{"seconds", step.seconds},
                         {"rms_change", step.rootMeanSquareChange},
                         {"largest_change", step.largestChange}});
    }
    Json json = {{"input", fileName(report.input)},
                 {"output", fileName(report.output)},
                 {"preview", fileName(report.preview)},
                 {"page", fileName(report.page)},
                 {"samples",
                  {{"extents", extents},
                   {"spacing", spacing},
                   {"pictures", result.count},
                   {"channels", result.channels},
                   {"type", sampleTypeNames[static_cast<int>(result.sampleType)]}}},
                 {"pipeline", report.pipeline},
                 {"threshold", report.threshold},
                 {"threshold_is_auto", report.thresholdIsAuto},
                 {"noise_sigma", report.noise.sigma},
                 {"noise_correlation", report.noise.correlation},
                 {"noise_is_correlated", report.noise.isCorrelated},
                 {"iterations", report.iterations},
                 {"threads", report.threads},
                 {"seconds",
                  {{"read", report.seconds.read},
                   {"filter", report.seconds.filter},
                   {"write", report.seconds.write}}},
                 {"steps", steps},
                 {"remarks", report.remarks}};
    if (report.psnr) {
        json["psnr"] = {{"before", report.psnr->before}, {"after", report.psnr->after}};
    }
    return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace diffuse
