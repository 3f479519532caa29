// SPDX-License-Identifier: MIT
#include "options.h"

#include <commandline/describe.h>
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <iostream>
#include <map>
#include <string>

#include "formats/Format.h"
#include "manual.h"
#include "optionTable.h"
#include "standardStreams.h"

namespace diffuse {

namespace {

namespace fs = std::filesystem;
namespace host = diffusefilt_host;

void requireSense(const Options& options, bool isDry) {
    if (options.output.empty() && options.preview.empty() && options.page.empty() &&
        !options.json && options.noiseSigma == 0 && !isDry) {
        throw UsageError(
            "nothing to do without --output, --output-dir, --suffix, --report, --preview, --json "
            "or "
            "--add-noise");
    }
    if (options.json && isStream(options.output)) {
        throw UsageError("standard output takes either the result or the report of --json");
    }
    const fs::path written[] = {options.output, options.preview, options.page};
    for (const fs::path& file : written) {
        if (isSameFile(options.input, file) && !isStream(file)) {
            throw UsageError(file.string() + " is the input, which stays as it is");
        }
        if (std::ranges::count_if(
                written, [&](const fs::path& other) { return isSameFile(other, file); }) > 1) {
            throw UsageError("two options name the same file, " + file.string());
        }
    }
    if (options.threshold) {
        requireUsableThreshold(*options.threshold, options.pipeline.elementType);
    }
}

// The input's name in the folder of the results, in a format that is written.
fs::path outputFor(const fs::path& input, const fs::path& folder, const std::string& suffix) {
    const bool isFolder = fs::is_directory(input);
    const fs::path whole = isFolder ? fs::canonical(input) : input;
    const std::string name = whole.filename().string();
    std::string extension = isFolder ? "" : whole.extension().string();
    if (name.ends_with(".nii" + extension)) extension = ".nii" + extension;
    const std::string stem = name.substr(0, name.size() - extension.size());
    if (!isWritten(name)) extension = ".nrrd";
    return (folder.empty() ? whole.parent_path() : folder) / (stem + suffix + extension);
}

std::string describe(const CLI::App& app, const std::string& reader) {
    return reader == "bash"  ? commandline::bashCompletion(app)
           : reader == "zsh" ? commandline::zshCompletion(app)
                             : commandline::manualOptions(app);
}

// One after the other in the order of the table, with what was given to them.
std::vector<std::string> decidingWords(const CLI::App& app) {
    std::vector<std::string> words;
    for (const CLI::Option* option : app.get_options()) {
        const std::string group = option->get_group();
        if (option->count() == 0 || (group != "Input" && group != "Filter" && group != "Trial") ||
            option->check_name("-n") || option->check_name("-k") ||
            option->check_name("--threads")) {
            continue;
        }
        words.push_back(option->get_name());
        if (option->get_type_size() > 0) words.push_back(option->results().front());
    }
    return words;
}

// Every input with the options of the first file.
void planFiles(const CommandLine& line, Plan& plan) {
    const Options common = plan.files.front();
    const bool areMany = line.inputs.size() > 1;
    const bool areNamed = !plan.folder.empty() || !line.suffix.empty();
    if (areMany && !(common.output.empty() && common.preview.empty() && common.page.empty())) {
        throw UsageError(
            "--output, --preview and --report take one input; --output-dir takes many");
    }
    if (areNamed && !common.output.empty()) {
        throw UsageError("either --output names the result, or --output-dir and --suffix do");
    }
    if (line.inputs.empty()) throw UsageError("no input is given (see diffuse --help)");
    plan.files.clear();
    std::map<fs::path, fs::path> inputs;  // by their outputs
    for (const std::string& input : line.inputs) {
        Options& options = plan.files.emplace_back(common);
        options.input = input;
        options.isOneOfMany = areMany;
        if (areMany && isStream(input)) throw UsageError("standard input is the only input");
        if (areNamed && isStream(input))
            throw UsageError("standard input has no name for a result");
        if (areNamed) options.output = outputFor(input, plan.folder, line.suffix);
        requireSense(options, plan.isDry);
        if (options.output.empty()) continue;
        const auto [place, isNew] = inputs.emplace(options.output.lexically_normal(), input);
        if (!isNew) {
            throw UsageError(place->second.string() + " and " + input + " would both become " +
                             options.output.string());
        }
    }
}

}  // namespace

bool isSameFile(const fs::path& a, const fs::path& b) {
    std::error_code ignored;
    const auto name = [](const fs::path& file) { return fs::weakly_canonical(fs::absolute(file)); };
    return !a.empty() && !b.empty() && (fs::equivalent(a, b, ignored) || name(a) == name(b));
}

host::Axes pipelineOf(const Options& options, int dimensions) {
    host::Axes axes = options.pipeline;
    axes.dimensions = dimensions;
    if (axes.instructionSet <= host::bestInstructionSet()) return axes;
    throw std::runtime_error("this processor or its operating system cannot run the " +
                             std::string(wordOf(axes.instructionSet)) +
                             " pipelines, --instruction-set auto finds those that it can");
}

void requireUsableThreshold(double threshold, host::ElementType elementType) {
    const bool isDouble = elementType == host::ElementType::float64;
    const double element = isDouble ? threshold : static_cast<float>(threshold);
    const double reciprocal = isDouble ? 1 / element : 1 / static_cast<float>(element);
    if (std::isfinite(element) && std::isfinite(reciprocal)) return;
    throw UsageError("the threshold " + CLI::detail::to_string(threshold) + " is beyond what " +
                     wordOf(elementType) + " can divide by");
}

std::optional<Plan> parseOptions(int argc, const char* const* argv) {
    Plan plan{{Options()}, {}};
    CommandLine line;
    CLI::App app(introduction(), "diffuse");
    app.footer(closing());
    app.formatter(std::make_shared<ManualFormatter>());
    addOptions(app, plan, line);
    try {
        app.parse(argc, argv);
        if (!line.described.empty()) {
            std::cout << describe(app, line.described);
            return std::nullopt;
        }
        plan.files.front().words = decidingWords(app);
        planFiles(line, plan);
        return plan;
    } catch (const CLI::CallForHelp&) {
        std::cout << app.help();
    } catch (const CLI::CallForVersion& version) {
        std::cout << version.what() << '\n';
    } catch (const CLI::ParseError& error) {
        throw UsageError(std::string(error.what()) + " (see diffuse --help)");
    }
    return std::nullopt;
}

}  // namespace diffuse
