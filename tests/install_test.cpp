// SPDX-License-Identifier: MIT
// hosts/example/smooth.c again, through the C++ layer: it prints the same.
#include <cstdio>
#include <cstdlib>
#include <diffusefilt_halide.hpp>
#include <vector>

namespace filter = diffusefilt_host;

int main() {
    constexpr int width = 64, height = 48;
    std::vector<double> image(width * height), scratch(image.size());
    const auto view = filter::View<double>::dense(image.data(), {width, height});
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) view(x, y) = (x < 32 ? 50 : 200) + std::rand() % 21 - 10;
    }
    const filter::Pipeline& pipeline =
        filter::findPipeline({2, filter::Connectivity::minimal, filter::Conduction::quadratic,
                              filter::ElementType::float64, filter::InstructionSet::none});
    const auto result = pipeline.iterate(
        view, 20.0, filter::View<double>::dense(scratch.data(), {width, height}), 10);
    for (int x = 28; x < 36; ++x) std::printf("%.1f ", result(x, 24));
    std::printf("\n");
}
