// Every pipeline on one thread, beside its limit, in one run. Fails if the reference
// pipeline takes more than 1.25 times its limit.
//
// The picture is noise of the size of the threshold: 512 x 512, or 64 x 64 x 64.
#include <HalideRuntime.h>
#include <benchmark/benchmark.h>

#include <cstdio>
#include <random>

#include "limitLoops.h"
#include "ratioReporter.h"
#include "support/Pipelines.h"
#include "support/Threads.h"

namespace {

using diffusefilt::Conduction;
using diffusefilt::Connectivity;
using diffusefilt::ElementType;
using diffusefilt::PipelineVariant;
using support::Pipeline;

constexpr int64_t elements = 512 * 512;
constexpr double threshold = 20;

int neighboursOf(PipelineVariant variant) {
    const bool maximal = variant.connectivity == Connectivity::maximal;
    return variant.dimensions == 3 ? (maximal ? 26 : 6) : (maximal ? 8 : 4);
}

template <class T>
void runPipeline(benchmark::State& state, const Pipeline& pipeline) {
    std::mt19937 random(1);
    std::vector<T> input(elements);
    for (T& element : input) element = T(random() % 100);
    std::vector<T> output(elements);
    const bool is3D = pipeline.variant.dimensions == 3;
    halide_dimension_t dim[3] = {{0, 512, 1}, {0, 512, 512}, {}};
    if (is3D) {
        for (int d = 0; d < 3; ++d) dim[d] = {0, 64, d == 0 ? 1 : d == 1 ? 64 : 64 * 64};
    }
    halide_buffer_t in = {};
    in.host = reinterpret_cast<uint8_t*>(input.data());
    in.type = halide_type_of<T>();
    in.dimensions = pipeline.variant.dimensions;
    in.dim = dim;
    halide_buffer_t out = in;
    out.host = reinterpret_cast<uint8_t*>(output.data());
    support::withThreads(1, [&] {
        for (auto _ : state) {
            if (pipeline.entry(&in, threshold, &out) != 0) state.SkipWithError("refused");
            benchmark::ClobberMemory();
        }
    });
    state.SetItemsProcessed(state.iterations() * elements);
}

void runDivisions(benchmark::State& state, PipelineVariant variant) {
    for (auto _ : state) {
        limits::divideVectors(variant, elements / variant.lanes() * neighboursOf(variant));
    }
    state.SetItemsProcessed(state.iterations() * elements);
}

// Arguments as the pipeline's: minus the square of differences of the picture.
void runExp(benchmark::State& state, PipelineVariant variant) {
    std::mt19937 random(2);
    std::vector<double> arguments(4096);
    for (double& u : arguments) {
        const double t = (double(random() % 100) - double(random() % 100)) / threshold;
        u = -(t * t);
    }
    for (auto _ : state) limits::callExp(arguments, elements * neighboursOf(variant));
    state.SetItemsProcessed(state.iterations() * elements);
}

void registerPipeline(const Pipeline& pipeline) {
    if (!support::processorRuns(pipeline.variant.instructionSet)) return;
    const std::string name = pipeline.name;
    const std::string limit = name + limitSuffix;
    const PipelineVariant variant = pipeline.variant;
    const bool isDouble = variant.elementType == ElementType::float64;
    benchmark::RegisterBenchmark(name.c_str(), [&pipeline, isDouble](benchmark::State& state) {
        isDouble ? runPipeline<double>(state, pipeline) : runPipeline<float>(state, pipeline);
    });
    if (variant.conduction == Conduction::quadratic) {
        benchmark::RegisterBenchmark(
            limit.c_str(), [variant](benchmark::State& state) { runDivisions(state, variant); });
    } else if (isDouble) {
        benchmark::RegisterBenchmark(
            limit.c_str(), [variant](benchmark::State& state) { runExp(state, variant); });
    }
}

}  // namespace

int main(int argc, char** argv) {
    for (const Pipeline& pipeline : support::pipelines()) registerPipeline(pipeline);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    constexpr char reference[] = "diffusefilt2_minimal_quadratic_float64_none";
    if (!reporter.isWithin(reference, 1.25)) {
        std::printf("%s is slower than 1.25 times its limit\n", reference);
        return 1;
    }
    return 0;
}
