#include "contenders.h"

#include <HalideRuntime.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

#include "peers.h"
#include "reference/Neighbours.h"

namespace {

using diffusefilt::Conduction;
using diffusefilt::PipelineVariant;
using support::Pipeline;

// Minus the squares of scaled differences of the noise, as the pipeline hands them to exp.
std::vector<double> argumentsOfExp() {
    std::minstd_rand random(2);
    std::uniform_real_distribution<double> noise(0, noiseOverThreshold);
    std::vector<double> arguments(4096);
    for (double& u : arguments) {
        const double t = noise(random) - noise(random);
        u = -(t * t);
    }
    return arguments;
}

// None for the exponential that float32 pipelines carry themselves.
Work limitOf(PipelineVariant variant, int64_t elements) {
    const int64_t count = elements * std::ssize(reference::neighboursOf(variant));
    if (variant.conduction == Conduction::quadratic) {
        return {[=] { peers::divideVectors(variant, count / variant.lanes()); }, double(elements)};
    }
    if (variant.elementBits() == 32) return {};
    constexpr int part = 8;  // enough: the loop reads no picture
    return {[=, u = argumentsOfExp()] { peers::callExp(u, count / part); },
            double(elements) / part};
}

void copyInParallel(const halide_buffer_t& in, const halide_buffer_t& out, int64_t bytes) {
    constexpr int64_t piece = 1 << 16;
    tbb::parallel_for(int64_t{0}, (bytes + piece - 1) / piece, [&](int64_t i) {
        std::memcpy(out.host + i * piece, in.host + i * piece,
                    size_t(std::min(piece, bytes - i * piece)));
    });
}

std::function<void()> onRuntimesPool(const std::function<void()>& call) {
    halide_set_num_threads(2);
    return [call] {
        const auto library = halide_set_custom_do_par_for(halide_default_do_par_for);
        call();
        halide_set_custom_do_par_for(library);
    };
}

template <class T>
bool agreeIn(const Pipeline& pipeline, Picture& picture) {
    const auto* const out = reinterpret_cast<const T*>(picture.output().host);
    const auto resultOf = [&](const char* kind) {
        std::memset(picture.output().host, 0, size_t(picture.bytes()));
        workOf(kind, pipeline, picture).call();
        return std::vector<T>(out, out + picture.elements());
    };
    const std::vector<T> ours = resultOf("pipeline");
    const T tolerance = T(threshold) * (sizeof(T) == sizeof(float) ? T(1e-5) : T(1e-13));
    return std::ranges::all_of(std::array{"halide", "scalar"}, [&](const char* peer) {
        return std::ranges::equal(ours, resultOf(peer),
                                  [tolerance](T a, T b) { return std::abs(a - b) <= tolerance; });
    });
}

}  // namespace

Work workOf(const std::string& kind, const Pipeline& pipeline, Picture& picture) {
    const PipelineVariant variant = pipeline.variant;
    const auto elements = double(picture.elements());
    halide_buffer_t in = picture.input();
    halide_buffer_t out = picture.output();
    const auto call = [=](peers::Step step) -> std::function<void()> {
        return [=]() mutable { step(&in, threshold, &out); };
    };
    if (kind == "pipeline") return {call(pipeline.entry), elements};
    if (kind == "pool") return {onRuntimesPool(call(pipeline.entry)), elements};
    if (kind == "halide") return {call(peers::naturalHalide(pipeline.name)), elements};
    if (kind == "scalar") {
        return {[=] { peers::scalarLoop(variant, in, threshold, out); }, elements};
    }
    if (kind == "limit") return limitOf(variant, picture.elements());
    if (kind == "copy") {
        return {[=, bytes = picture.bytes()] { copyInParallel(in, out, bytes); }, elements};
    }
    if (kind == "empty") {
        const auto nothing = [](void*, int, uint8_t*) { return 0; };
        const int tasks = in.dim[variant.dimensions - 1].extent;
        return {[=] { halide_do_par_for(nullptr, nothing, 0, tasks, nullptr); }, elements};
    }
    constexpr int steps = 3;
    if (kind == "itk") return {[=] { peers::itkSteps(in, steps); }, steps * elements};
    return {};
}

bool peersAgree(const Pipeline& pipeline) {
    const PipelineVariant variant = pipeline.variant;
    Picture picture(variant.elementType,
                    variant.dimensions == 2 ? Extents{61, 9} : Extents{31, 7, 5});
    return variant.elementBits() == 64 ? agreeIn<double>(pipeline, picture)
                                       : agreeIn<float>(pipeline, picture);
}
