// SPDX-License-Identifier: MIT
// Loading and unloading by path: load_test <library>. A program of its own, which links
// neither the library nor TBB, so that a memory checker sees all that loading leaves.
#include <HalideRuntime.h>
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

constexpr int rounds = 1000;
constexpr char pipeline[] = "diffusefilt2_minimal_quadratic_float64_none";

void* loaded(const char* path) {
    void* library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        std::fprintf(stderr, "%s\n", dlerror());
        std::exit(1);
    }
    return library;
}

// One call with many tasks on a constant image, which must stay as it is.
bool filters(void* library) {
    using Entry = int (*)(halide_buffer_t*, double, halide_buffer_t*);
    const auto entry = reinterpret_cast<Entry>(dlsym(library, pipeline));
    std::vector<double> input(64 * 64, 3.0);
    std::vector<double> output(64 * 64);
    halide_dimension_t dim[2] = {{0, 64, 1}, {0, 64, 64}};
    halide_buffer_t buffers[2] = {};
    for (halide_buffer_t& buffer : buffers) {
        buffer.type = {halide_type_float, 64};
        buffer.dimensions = 2;
        buffer.dim = dim;
    }
    buffers[0].host = reinterpret_cast<uint8_t*>(input.data());
    buffers[1].host = reinterpret_cast<uint8_t*>(output.data());
    return entry(&buffers[0], 2.0, &buffers[1]) == 0 && input == output;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    for (int i = 0; i < rounds; ++i) dlclose(loaded(argv[1]));
    for (int i = 0; i < rounds; ++i) {
        void* library = loaded(argv[1]);
        if (!filters(library)) {
            std::fprintf(stderr, "round %d: a constant image changed\n", i);
            return 1;
        }
        dlclose(library);
    }
    std::puts("loaded, called and closed");
    return 0;
}
