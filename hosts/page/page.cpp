// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "diffusefilt_page.h"
#include "embedded.h"
#include "histograms.h"
#include "image.h"
#include "sheet.h"
#include "views.h"

namespace diffusefilt_page {

namespace {

using Json = nlohmann::ordered_json;

void requireSense(const Content& content) {
    const std::size_t channels = content.before.size();
    bool makesSense = (channels == 1 || channels == 3) && content.after.size() == channels;
    for (std::size_t c = 0; makesSense && c < channels; ++c) {
        for (const Samples* samples : {&content.before[c], &content.after[c]}) {
            makesSense = makesSense && samples->dimensions() == content.before[0].dimensions();
            for (int d = 0; d < 3; ++d) {
                makesSense = makesSense && samples->shape()[d].min == 0 &&
                             samples->shape()[d].extent == content.before[0].shape()[d].extent;
            }
        }
    }
    if (!makesSense ||
        content.axes.size() != static_cast<std::size_t>(content.before[0].dimensions())) {
        throw std::invalid_argument("a page needs one channel or three, before and after, alike");
    }
}

Json toJson(const Region& region) {
    return {{"left", region.left},
            {"top", region.top},
            {"width", region.width},
            {"height", region.height}};
}

Json toJson(const Histogram& histogram) {
    return {{"lowest", histogram.range.lowest},
            {"highest", histogram.range.highest},
            {"shares", histogram.shares},
            {"below", histogram.below},
            {"above", histogram.above}};
}

Json toJson(const View& view, const Content& content) {
    const Layout& layout = view.layout;
    const auto& shape = content.before.front().shape();
    Json slices = Json::array();
    for (const Slice& slice : view.slices) {
        slices.push_back({{"index", slice.index},
                          {"before", slice.before},
                          {"after", slice.after},
                          {"removed", slice.removed}});
    }
    return {{"name", view.name},
            {"along", layout.along},
            {"across", layout.across},
            {"down", layout.down},
            {"mirrored", layout.mirrored},
            {"upsideDown", layout.upsideDown},
            {"extents", {shape[layout.across].extent, shape[layout.down].extent}},
            {"depth", layout.along < 0 ? 1 : shape[layout.along].extent},
            {"spacing", {content.axes[layout.across].spacing, content.axes[layout.down].spacing}},
            {"sides", sidesOf(layout, content.axes)},
            {"region", toJson(view.region)},
            {"reduction", view.reduction.factor},
            {"averaged", view.reduction.averaged},
            {"slices", slices}};
}

Json toJson(const Sheet& sheet, const Content& content, const Range& greys) {
    Json cells = Json::array();
    for (const Cell& cell : sheet.cells) {
        Json commands = Json::array();
        for (const auto& [purpose, line] : content.commandsFor(cell.threshold, cell.steps)) {
            commands.push_back({{"purpose", purpose}, {"line", line}});
        }
        cells.push_back(
            {{"threshold", cell.threshold},
             {"steps", cell.steps},
             {"isChosen", cell.threshold == content.threshold && cell.steps == content.steps},
             {"removed", cell.removed},
             {"picture", pictureOf(cell.plane, greys)},
             {"commands", commands}});
    }
    const Layout& layout = sheet.layout;
    return {{"region", toJson(sheet.region)},
            {"index", sheet.index},
            {"plane", layout.along < 0 ? "" : nameOf(layout, content.axes)},
            {"margin", sheet.margin},
            {"spacing", {content.axes[layout.across].spacing, content.axes[layout.down].spacing}},
            {"columns", sheetThresholds},
            {"before", pictureOf(sheet.before, greys)},
            {"cells", cells}};
}

Json toJson(const Removed& removed, double scale) {
    return {{"mean", removed.mean},
            {"rms", removed.rootMeanSquare},
            {"lowest", removed.range.lowest},
            {"highest", removed.range.highest},
            {"scale", scale},
            {"colours", differenceColours(17)},
            {"histogram", toJson(removed.histogram)}};
}

// Three times the root mean square, rounded up to one digit that is easily read.
double scaleFor(double rootMeanSquare) {
    if (!(rootMeanSquare > 0)) return 1;
    const double wanted = 3 * rootMeanSquare;
    const double unit = std::pow(10, std::floor(std::log10(wanted)));
    for (const double step : {1.0, 1.5, 2.0, 3.0, 4.0, 5.0, 6.0, 8.0}) {
        if (step * unit >= wanted) return step * unit;
    }
    return 10 * unit;
}

// Puts the texts in the places that the page names {{style}}, {{data}} and {{script}}.
std::string fillPage(const Json& data) {
    std::string json = data.dump(-1, ' ', false, Json::error_handler_t::replace);
    // Nothing in it may end the element that it stands in.
    for (std::size_t at = 0; (at = json.find('<', at)) != std::string::npos;) {
        json.replace(at, 1, "\\u003c");
    }
    std::string page = pageText;
    const std::pair<const char*, const std::string> parts[] = {
        {"{{style}}", styleText}, {"{{script}}", scriptText}, {"{{data}}", json}};
    for (const auto& [name, text] : parts)
        page.replace(page.find(name), std::string(name).size(), text);
    return page;
}

Json describe(const Content& content, const Range& greys, const Removed& removed) {
    Json facts = Json::array();
    for (const auto& [name, value] : content.facts) facts.push_back({name, value});
    Json extents = Json::array();
    for (std::size_t d = 0; d < content.axes.size(); ++d) {
        extents.push_back(content.before.front().shape()[d].extent);
    }
    return {{"title", content.title},
            {"facts", facts},
            {"remarks", content.remarks},
            {"extents", extents},
            {"inColour", content.before.size() == 3},
            {"greys", {greys.lowest, greys.highest}},
            {"pipeline", content.pipeline.name()},
            {"conduction", wordOf(content.pipeline.conduction)},
            {"threshold", content.threshold},
            {"steps", content.steps},
            {"noiseSigma", content.noiseSigma},
            {"gradients",
             {{"before", toJson(measureGradients(content.before, content.threshold,
                                                 content.pipeline.dimensions))},
              {"after", toJson(measureGradients(content.after, content.threshold,
                                                content.pipeline.dimensions))}}},
            {"removed", toJson(removed, scaleFor(removed.rootMeanSquare))}};
}

}  // namespace

std::string makePage(const Content& content) {
    constexpr double samplesInViews = 1'600'000;
    constexpr double samplesInCells = 240'000;  // each
    constexpr double shareOfViews = 0.55;
    requireSense(content);
    const Range greys = content.greys.value_or(commonGreys(content.before));
    const Removed removed = measureRemoved(content.before, content.after);
    Json data = describe(content, greys, removed);
    // Noise that does not compress takes more room than is usual.
    for (double share = 1;; share *= 0.75) {
        data["sheet"] = toJson(makeSheet(content, share * samplesInCells), content, greys);
        data["views"] = Json::array();
        const Room room{share * samplesInViews, share * shareOfViews * largestPage};
        for (const View& view : makeViews(content, greys, scaleFor(removed.rootMeanSquare), room)) {
            data["views"].push_back(toJson(view, content));
        }
        std::string page = fillPage(data);
        if (page.size() <= largestPage) return page;
    }
}

}  // namespace diffusefilt_page
