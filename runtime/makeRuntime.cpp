// SPDX-License-Identifier: MIT
// Writes the one Halide runtime of the library as an object file: makeRuntime <object>.
// Its symbols come weak and with default visibility.
#include <Halide.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

namespace {

// What the reporter of a null buffer argument says, and what the library's messages have. The
// text is that reporter's alone, and takes as many bytes as before.
const std::string releaseWords(" is nullptr\0", 12);
const std::string ourWords(" is NULL\0\0\0\0", 12);

void replaceWords(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::string object(std::istreambuf_iterator<char>(file), {});
    const size_t at = object.find(releaseWords);
    if (at == std::string::npos || object.find(releaseWords, at + 1) != std::string::npos) {
        throw std::runtime_error(
            "the runtime does not hold \" is nullptr\" once: see what "
            "halide_error_buffer_argument_is_null says in this release");
    }
    object.replace(at, ourWords.size(), ourWords);
    if (!std::ofstream(path, std::ios::binary).write(object.data(), std::ssize(object)).flush()) {
        throw std::runtime_error("cannot write " + path);
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: makeRuntime <object file>\n");
        return 2;
    }
    try {
        Halide::compile_standalone_runtime(argv[1], Halide::Target("x86-64-linux-large_buffers"));
        replaceWords(argv[1]);
    } catch (const std::exception& error) {
        std::remove(argv[1]);  // lest a later build takes it
        std::fprintf(stderr, "makeRuntime: %s\n", error.what());
        return 1;
    }
    return 0;
}
