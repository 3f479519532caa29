#include "options.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <cmath>
#include <iostream>
#include <limits>
#include <string>

#include "manual.h"

namespace diffuse {

namespace {

namespace fs = std::filesystem;

// "z:90" is slice 90 on axis z.
SliceChoice parseSlice(const std::string& text) {
    const std::string axes = "xyz";
    SliceChoice choice;
    const char* const end = text.data() + text.size();
    if (text.size() >= 3 && text[1] == ':' && axes.find(text[0]) != std::string::npos) {
        choice.axis = static_cast<int>(axes.find(text[0]));
        const auto [stop, error] = std::from_chars(text.data() + 2, end, choice.index);
        if (error == std::errc() && stop == end && choice.index >= 0) return choice;
    }
    throw CLI::ValidationError("--slice", "expected AXIS:INDEX like z:90, not " + text);
}

// NaN and infinities are numbers for CLI11.
std::optional<double> positiveNumber(const std::string& text) {
    double value = 0;
    const bool good = CLI::detail::lexical_cast(text, value) && std::isfinite(value) && value > 0;
    return good ? std::optional(value) : std::nullopt;
}

std::string requirePositive(const std::string& text) {
    return positiveNumber(text) ? "" : "expected a finite number above 0, not " + text;
}

std::string requirePositiveOrAuto(const std::string& text) {
    return text == "auto" ? "" : requirePositive(text);
}

CLI::Validator wholeNumberFrom(int least) {
    return CLI::Range(least, std::numeric_limits<int>::max()).description("");
}

void requireSense(const Options& options) {
    if (options.output.empty() && options.preview.empty() && !options.json &&
        options.noiseSigma == 0) {
        throw UsageError("nothing to do without --output, --preview, --json or --add-noise");
    }
    for (const fs::path& written : {options.output, options.preview}) {
        if (isSameFile(options.input, written)) {
            throw UsageError(written.string() + " is the input, which stays as it is");
        }
    }
    if (isSameFile(options.output, options.preview)) {
        throw UsageError("--output and --preview name the same file");
    }
    if (options.threshold) {
        requireUsableThreshold(*options.threshold, options.pipeline.elementType);
    }
}

void addFiles(CLI::App& app, Options& options, std::string& slice) {
    app.add_option("input", options.input, helpOn("input"))->required()->type_name("INPUT");
    const auto add = [&](const char* names, auto& value, const char* type) {
        app.add_option(names, value, helpOn(names))->type_name(type)->group("Files");
    };
    add("-o,--output", options.output, "FILE");
    add("--preview", options.preview, "FILE");
    add("--slice", slice, "AXIS:INDEX");
    app.add_option_function<std::string>(
           "--nan", [&](const std::string& word) { options.spreadsNan = word == "spread"; },
           helpOn("--nan"))
        ->type_name("refuse|spread")
        ->group("Files")
        ->check(CLI::IsMember(std::vector<std::string>{"refuse", "spread"}).description(""));
}

// An axis of the pipeline, in the words of the exported names; `further` are other words, which
// leave the value as it is.
template <class Axis, class Value>
void addAxis(CLI::App& app, const char* name, Value& value,
             const std::vector<std::string>& further = {}) {
    namespace host = diffusefilt_host;
    const auto take = [&value, further](const std::string& word) {
        if (std::find(further.begin(), further.end(), word) == further.end()) {
            value = host::fromWord<Axis>(word);
        }
    };
    constexpr auto words = host::wordsOf<Axis>();
    std::vector<std::string> known = further;
    known.insert(known.end(), words.begin(), words.end());
    app.add_option_function<std::string>(name, take, helpOn(name))
        ->type_name("NAME")
        ->group("Filter")
        ->check(CLI::IsMember(known).description(""));
}

void addFilter(CLI::App& app, Options& options, std::string& threshold) {
    const auto add = [&](const char* names, auto& value, const char* type, const auto& check) {
        app.add_option(names, value, helpOn(names))->type_name(type)->group("Filter")->check(check);
    };
    namespace host = diffusefilt_host;
    PipelineChoice& pipeline = options.pipeline;
    add("-n,--iterations", options.iterations, "N", wholeNumberFrom(0));
    add("-k,--threshold", threshold, "VALUE|auto", requirePositiveOrAuto);
    addAxis<host::Connectivity>(app, "--connectivity", pipeline.connectivity);
    addAxis<host::Conduction>(app, "--conduction", pipeline.conduction);
    addAxis<host::ElementType>(app, "--type", pipeline.elementType);
    addAxis<host::InstructionSet>(app, "--instruction-set", pipeline.instructionSet, {"auto"});
    add("--threads", options.threads, "N", wholeNumberFrom(1));
}

void addReports(CLI::App& app, Options& options) {
    app.add_flag("--json", options.json, helpOn("--json"))->group("Reports");
    app.add_option("--add-noise", options.noiseSigma, helpOn("--add-noise"))
        ->type_name("SIGMA")
        ->group("Reports")
        ->check(requirePositive);
    app.add_option("--seed", options.seed, helpOn("--seed"))->type_name("N")->group("Reports");
    app.set_help_flag("-h,--help", helpOn("-h,--help"))->group("Reports");
}

}  // namespace

bool isSameFile(const fs::path& a, const fs::path& b) {
    std::error_code ignored;
    const auto name = [](const fs::path& file) { return fs::weakly_canonical(fs::absolute(file)); };
    return !a.empty() && !b.empty() && (fs::equivalent(a, b, ignored) || name(a) == name(b));
}

void requireUsableThreshold(double threshold, diffusefilt_host::ElementType elementType) {
    const bool isDouble = elementType == diffusefilt_host::ElementType::float64;
    const double element = isDouble ? threshold : static_cast<float>(threshold);
    const double reciprocal = isDouble ? 1 / element : 1 / static_cast<float>(element);
    if (std::isfinite(element) && std::isfinite(reciprocal)) return;
    throw UsageError("the threshold " + CLI::detail::to_string(threshold) + " is beyond what " +
                     wordOf(elementType) + " can divide by");
}

std::optional<Options> parseOptions(int argc, const char* const* argv) {
    Options options;
    std::string slice;
    std::string threshold = "auto";
    CLI::App app(introduction(), "diffuse");
    app.footer(closing());
    app.formatter(std::make_shared<ManualFormatter>());
    addFiles(app, options, slice);
    addFilter(app, options, threshold);
    addReports(app, options);
    try {
        app.parse(argc, argv);
        if (!slice.empty()) options.slice = parseSlice(slice);
        options.threshold = positiveNumber(threshold);
        requireSense(options);
    } catch (const CLI::CallForHelp&) {
        std::cout << app.help();
        return std::nullopt;
    } catch (const CLI::ParseError& error) {
        throw UsageError(std::string(error.what()) + " (see diffuse --help)");
    }
    return options;
}

}  // namespace diffuse
