#include "report.h"

#include <cstdio>
#include <nlohmann/json.hpp>

#include "samples.h"

namespace diffuse {

namespace {

using Json = nlohmann::ordered_json;

const char* nameOf(SampleType type) {
    constexpr const char* names[] = {"uint8", "int8",   "uint16", "int16",   "uint32",
                                     "int32", "uint64", "int64",  "float32", "float64"};
    return names[static_cast<int>(type)];
}

Json fileName(const std::filesystem::path& file) {
    return file.empty() ? Json() : Json(file.string());
}

Json describeSamples(const Picture& picture) {
    Json extents = Json::array();
    Json spacing = Json::array();
    for (int d = 0; d < picture.dimensions(); ++d) {
        extents.push_back(picture.axes[d].extent);
        spacing.push_back(picture.axes[d].spacing);
    }
    return {{"extents", extents},
            {"spacing", spacing},
            {"channels", picture.channels},
            {"type", nameOf(picture.sampleType)}};
}

template <typename... Numbers>
std::string line(const char* format, Numbers... numbers) {
    char text[160];
    std::snprintf(text, sizeof text, format, numbers...);
    return text;
}

}  // namespace

std::string plainReport(const Report& report, const Options& options) {
    std::string text;
    if (!options.threshold && options.iterations > 0) {
        text += line("threshold: %.4g, for noise of sigma %.4g and %d steps\n", report.threshold,
                     report.noise.sigma, options.iterations);
    }
    if (!options.threshold && report.noise.isCorrelated) {
        text += line("noise: not white, correlation %.2f between neighbours: compare thresholds\n",
                     report.noise.correlation);
    }
    if (report.psnr) {
        text += line("PSNR before: %.2f dB\nPSNR after: %.2f dB\n", report.psnr->before,
                     report.psnr->after);
    }
    return text;
}

std::string jsonReport(const Report& report, const Options& options, const Picture& filtered) {
    Json steps = Json::array();
    for (const StepReport& step : report.steps) {
        steps.push_back({{"seconds", step.seconds},
                         {"rms_change", step.rootMeanSquareChange},
                         {"largest_change", step.largestChange}});
    }
    Json json = {{"input", fileName(options.input)},
                 {"output", fileName(options.output)},
                 {"preview", fileName(options.preview)},
                 {"samples", describeSamples(filtered)},
                 {"pipeline", report.pipeline.name()},
                 {"threshold", report.threshold},
                 {"threshold_is_auto", !options.threshold},
                 {"noise_sigma", report.noise.sigma},
                 {"noise_correlation", report.noise.correlation},
                 {"noise_is_correlated", report.noise.isCorrelated},
                 {"iterations", options.iterations},
                 {"threads", report.threads},
                 {"seconds",
                  {{"read", report.seconds.read},
                   {"filter", report.seconds.filter},
                   {"write", report.seconds.write}}},
                 {"steps", steps}};
    if (report.psnr) {
        json["psnr"] = {{"before", report.psnr->before}, {"after", report.psnr->after}};
    }
    return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace diffuse
