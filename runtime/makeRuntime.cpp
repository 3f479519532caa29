// Writes the one Halide runtime of the library as an object file: makeRuntime <object>.
// Its symbols come weak and with default visibility.
#include <Halide.h>

#include <cstdio>
#include <exception>

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: makeRuntime <object file>\n");
        return 2;
    }
    try {
        Halide::compile_standalone_runtime(argv[1], Halide::Target("x86-64-linux-large_buffers"));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "makeRuntime: %s\n", error.what());
        return 1;
    }
    return 0;
}
