// SPDX-License-Identifier: MIT
// Writes the filter as one would write it in Halide, every variant with the schedule that
// suggests itself, into one static library: makeNaturalHalide <library> <directory for objects>.
// No runtime comes with it: it runs on the library's, and so on the same parallel loop.
#include <Halide.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <vector>

#include "pipelines/names.h"

namespace {

using diffusefilt::Conduction;
using diffusefilt::Connectivity;
using diffusefilt::ElementType;
using diffusefilt::InstructionSet;
using diffusefilt::PipelineVariant;

Halide::Target targetOf(InstructionSet set) {
    using Feature = Halide::Target::Feature;
    std::vector<Feature> features{Feature::NoRuntime};
    if (set != InstructionSet::none) {
        features.insert(features.end(), {Feature::SSE41, Feature::AVX});
    }
    if (set == InstructionSet::avx2) {
        features.insert(features.end(), {Feature::AVX2, Feature::FMA});
    }
    return {Halide::Target::Linux, Halide::Target::X86, 64, features};
}

void writeFilter(PipelineVariant variant, const std::string& name, const std::string& object) {
    const bool is3D = variant.dimensions == 3;
    const Halide::Type type = Halide::Float(variant.elementBits());
    const auto constant = [type](double value) {
        return Halide::Internal::make_const(type, value);
    };
    Halide::ImageParam input(type, variant.dimensions, "input");
    Halide::Param<double> threshold("threshold");
    Halide::Var x("x"), y("y"), z("z");
    const Halide::Func image = Halide::BoundaryConditions::repeat_edge(input);
    const auto at = [&](int dx, int dy, int dz) -> Halide::Expr {
        return is3D ? image(x + dx, y + dy, z + dz) : image(x + dx, y + dy);
    };

    const Halide::Expr inverse = constant(1) / cast(type, threshold);
    const Halide::Expr centre = at(0, 0, 0);
    const auto flux = [&](int dx, int dy, int dz) -> Halide::Expr {
        const Halide::Expr d = at(dx, dy, dz) - centre;
        const Halide::Expr t = abs(d) * inverse;
        return variant.conduction == Conduction::quadratic
                   ? d * (constant(1) / (t * t + constant(1)))
                   : d * exp(-(t * t));
    };
    // Faces, edges and corners, by the number of coordinates in which they differ.
    Halide::Expr sums[4];
    const int reach = variant.connectivity == Connectivity::minimal ? 1 : variant.dimensions;
    for (int dz = is3D ? -1 : 0; dz <= (is3D ? 1 : 0); ++dz) {
        for (int dy = -1; dy <= 1; ++dy) {
            for (int dx = -1; dx <= 1; ++dx) {
                const int distance = std::abs(dx) + std::abs(dy) + std::abs(dz);
                if (distance == 0 || distance > reach) continue;
                Halide::Expr& sum = sums[distance];
                sum = sum.defined() ? sum + flux(dx, dy, dz) : flux(dx, dy, dz);
            }
        }
    }
    Halide::Expr total = sums[1];
    for (int i = 2; i <= reach; ++i) total = total + sums[i] * constant(1.0 / i);
    const double rate = reach == 1 ? 0.5 / variant.dimensions : is3D ? 1.0 / 26 : 1.0 / 8;

    Halide::Func step("step");
    if (is3D) {
        step(x, y, z) = centre + total * constant(rate);
    } else {
        step(x, y) = centre + total * constant(rate);
    }
    step.vectorize(x, variant.lanes()).parallel(is3D ? z : y);
    step.compile_to_object(object, {input, threshold}, name, targetOf(variant.instructionSet));
}

void writeLibrary(const std::string& library, const std::string& directory) {
    std::vector<std::string> objects;
    const auto add = [&](PipelineVariant variant, const std::string& pipeline) {
        objects.push_back(directory + "/" + pipeline + ".o");
        writeFilter(variant, "natural_" + pipeline, objects.back());
    };
#define PIPELINE(...) \
    add(DIFFUSEFILT_VARIANT(__VA_ARGS__), DIFFUSEFILT_TEXT(DIFFUSEFILT_NAME(__VA_ARGS__)));
#include "pipelines/pipelines.def"
    Halide::create_static_library(objects, targetOf(InstructionSet::none), library);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: makeNaturalHalide <library> <directory for objects>\n");
        return 2;
    }
    try {
        writeLibrary(argv[1], argv[2]);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "makeNaturalHalide: %s\n", error.what());
        return 1;
    }
    return 0;
}
