// Every pipeline beside its limit and its peers: speed REGEX SECONDS. Writes one line of JSON
// for each pipeline that matches, nanoseconds for one element, after about SECONDS of it.
//
// Pictures of 2048 x 2048 and volumes of 192 x 192 x 128. Ends with status 1 if a peer
// computes something else than the pipeline.
#include <HalideRuntime.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <regex>

#include "Picture.h"
#include "measure.h"
#include "peers.h"
#include "support/Pipelines.h"

namespace {

using diffusefilt::Conduction;
using diffusefilt::Connectivity;
using diffusefilt::ElementType;
using diffusefilt::InstructionSet;
using diffusefilt::PipelineVariant;
using support::Pipeline;

int neighboursOf(PipelineVariant variant) {
    const bool maximal = variant.connectivity == Connectivity::maximal;
    return variant.dimensions == 3 ? (maximal ? 26 : 6) : (maximal ? 8 : 4);
}

// Minus the squares of scaled differences of the noise, as the pipeline hands them to exp.
std::vector<double> argumentsOfExp() {
    std::minstd_rand random(2);
    std::uniform_real_distribution<double> noise(0, 3);
    std::vector<double> arguments(4096);
    for (double& u : arguments) {
        const double t = noise(random) - noise(random);
        u = -(t * t);
    }
    return arguments;
}

// None for the exponential that float32 pipelines carry themselves.
void addLimit(PipelineVariant variant, double elements, std::vector<Contender>& contenders) {
    const auto count = int64_t(elements) * neighboursOf(variant);
    if (variant.conduction == Conduction::quadratic) {
        contenders.push_back(
            {"limit", elements, [=] { peers::divideVectors(variant, count / variant.lanes()); }});
    } else if (variant.elementType == ElementType::float64) {
        constexpr int part = 8;  // enough: the loop reads no picture
        contenders.push_back({"limit", elements / part,
                              [=, u = argumentsOfExp()] { peers::callExp(u, count / part); }});
    }
}

// What two threads cannot be faster than where memory is the limit.
void copyInParallel(const halide_buffer_t& in, const halide_buffer_t& out, int64_t bytes) {
    constexpr int64_t piece = 1 << 16;
    tbb::parallel_for(int64_t{0}, (bytes + piece - 1) / piece, [&](int64_t i) {
        std::memcpy(out.host + i * piece, in.host + i * piece,
                    size_t(std::min(piece, bytes - i * piece)));
    });
}

void time(const Pipeline& pipeline, double seconds) {
    const PipelineVariant variant = pipeline.variant;
    Picture picture(variant.elementType,
                    variant.dimensions == 2 ? Extents{2048, 2048} : Extents{192, 192, 128});
    halide_buffer_t in = picture.input();
    halide_buffer_t out = picture.output();
    const auto elements = double(picture.elements());
    const auto run = [&] { pipeline.entry(&in, threshold, &out); };
    const auto natural = [&, step = peers::naturalHalide(pipeline.name)] {
        step(&in, threshold, &out);
    };
    const auto copy = [&] { copyInParallel(in, out, picture.bytes()); };

    std::vector<Contender> contenders;
    contenders.push_back({"pipeline", elements, run});
    addLimit(variant, elements, contenders);
    contenders.push_back({"halide", elements, natural});
    contenders.push_back(
        {"scalar", elements, [&] { peers::scalarLoop(variant, in, threshold, out); }});
    contenders.push_back({"pipeline, 2 threads", elements, run, 2});
    contenders.push_back({"halide, 2 threads", elements, natural, 2});
    contenders.push_back({"copy, 2 threads", elements, copy, 2});
    constexpr int steps = 3;
    if (variant.connectivity == Connectivity::minimal &&
        variant.conduction == Conduction::exponential &&
        variant.instructionSet == InstructionSet::avx2 && peers::itkSteps(in, 1)) {
        contenders.push_back({"itk", steps * elements, [&] { peers::itkSteps(in, steps); }});
    }
    printLine(pipeline.name, "speed", measure(contenders, {seconds, 5, 31}));
}

// Whether the peers compute the same as the pipeline, up to rounding.
template <class T>
bool agreeIn(const Pipeline& pipeline, Picture& picture) {
    halide_buffer_t in = picture.input();
    halide_buffer_t out = picture.output();
    const auto* const result = reinterpret_cast<const T*>(out.host);
    const auto resultOf = [&](auto step) {
        std::memset(out.host, 0, size_t(picture.bytes()));
        step();
        return std::vector<T>(result, result + picture.elements());
    };
    const auto ours = resultOf([&] { pipeline.entry(&in, threshold, &out); });
    const auto halides =
        resultOf([&] { peers::naturalHalide(pipeline.name)(&in, threshold, &out); });
    const auto scalars = resultOf([&] { peers::scalarLoop(pipeline.variant, in, threshold, out); });
    const T tolerance = T(threshold) * (sizeof(T) == sizeof(float) ? T(1e-5) : T(1e-13));
    const auto near = [tolerance](T a, T b) { return std::abs(a - b) <= tolerance; };
    return std::equal(ours.begin(), ours.end(), halides.begin(), near) &&
           std::equal(ours.begin(), ours.end(), scalars.begin(), near);
}

bool peersAgree(const Pipeline& pipeline) {
    const PipelineVariant variant = pipeline.variant;
    Picture picture(variant.elementType,
                    variant.dimensions == 2 ? Extents{61, 9} : Extents{31, 7, 5});
    return variant.elementBits() == 64 ? agreeIn<double>(pipeline, picture)
                                       : agreeIn<float>(pipeline, picture);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: speed REGEX SECONDS\n");
        return 2;
    }
    const std::regex wanted(argv[1]);
    for (const Pipeline& pipeline : support::pipelines()) {
        if (!support::processorRuns(pipeline.variant.instructionSet) ||
            !std::regex_search(pipeline.name, wanted)) {
            continue;
        }
        if (!peersAgree(pipeline)) {
            std::fprintf(stderr, "speed: a peer of %s computes something else\n", pipeline.name);
            return 1;
        }
        time(pipeline, std::atof(argv[2]));
    }
    return 0;
}
