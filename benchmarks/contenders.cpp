// SPDX-License-Identifier: MIT
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

// The fastest order of the operations, found here, or the calls of exp.
Work limitOf(const Pipeline& pipeline, int64_t elements) {
    constexpr int part = 8;  // enough: the loops read no picture
    if (const auto loops = peers::limitLoops(pipeline.name); !loops.empty()) {
        const std::vector<double> times = peers::timesOf(loops);
        const auto fastest = loops[size_t(std::ranges::min_element(times) - times.begin())];
        const int64_t vectors = elements / part / pipeline.variant.lanes();
        return {[=] { peers::run(fastest, vectors); }, double(vectors * pipeline.variant.lanes())};
    }
    const int64_t count = elements * std::ssize(reference::neighboursOf(pipeline.variant));
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

int inTurn(void*, halide_task_t task, int min, int extent, uint8_t* closure) {
    for (int i = min; i < min + extent; ++i) halide_do_task(nullptr, task, i, closure);
    return 0;
}

// The picture as many small ones, each as high, or in 3-D as deep, as it is wide.
class SmallPictures {
public:
    SmallPictures(const Pipeline& pipeline, Picture& picture)
        : step_(pipeline.entry), in_(picture.input()), out_(picture.output()) {
        const int last = pipeline.variant.dimensions - 1;
        std::copy_n(in_.dim, last + 1, dim_);
        dim_[last].extent = dim_[0].extent;
        count_ = in_.dim[last].extent / dim_[0].extent;
        bytes_ = int64_t{dim_[last].extent} * dim_[last].stride * in_.type.bytes();
    }

    void filterOneByOne() const {
        for (int i = 0; i < count_; ++i) filter(i);
    }

    // Each call is a task, and its own tasks run in turn.
    void filterAtOnce() const {
        const auto library = halide_set_custom_do_par_for(inTurn);
        tbb::parallel_for(0, count_, [this](int i) { filter(i); });
        halide_set_custom_do_par_for(library);
    }

private:
    void filter(int i) const {
        halide_dimension_t dim[3] = {dim_[0], dim_[1], dim_[2]};
        halide_buffer_t in = in_, out = out_;
        in.dim = out.dim = dim;
        in.host += i * bytes_;
        out.host += i * bytes_;
        step_(&in, threshold, &out);
    }

    peers::Step step_;
    halide_buffer_t in_, out_;
    halide_dimension_t dim_[3];
    int count_;
    int64_t bytes_;
};

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
    if (kind == "each" || kind == "tasks") {
        const SmallPictures small(pipeline, picture);
        const auto filter =
            kind == "each" ? &SmallPictures::filterOneByOne : &SmallPictures::filterAtOnce;
        return {[=] { (small.*filter)(); }, elements};
    }
    if (kind == "pool") return {onRuntimesPool(call(pipeline.entry)), elements};
    if (kind == "halide") return {call(peers::naturalHalide(pipeline.name)), elements};
    if (kind == "scalar") {
        return {[=] { peers::scalarLoop(variant, in, threshold, out); }, elements};
    }
    if (kind == "limit") return limitOf(pipeline, picture.elements());
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
