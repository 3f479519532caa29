// SPDX-License-Identifier: MIT
#include "standardStreams.h"

#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "formats/Format.h"

namespace diffuse {

namespace {

namespace fs = std::filesystem;

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

// Readers open it under this name from their own process.
std::string pathOf(int file) {
    return "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(file);
}

void copyAll(int from, int to, const std::string& complaint) {
    std::array<char, 1 << 16> part{};
    for (ssize_t count = 0; (count = read(from, part.data(), part.size())) != 0;) {
        if (count < 0) fail(complaint);
        for (ssize_t done = 0; done < count;) {
            const ssize_t written = write(to, part.data() + done, count - done);
            if (written < 0) fail(complaint);
            done += written;
        }
    }
}

}  // namespace

bool isStream(const fs::path& file) {
    return file == "-";
}

StandardInput::StandardInput() : file_(memfd_create("standard input", MFD_CLOEXEC)) {
    if (file_ < 0) fail("cannot keep standard input");
    copyAll(STDIN_FILENO, file_, "cannot keep standard input");
    const Format* format = formatOf(pathOf(file_));
    if (!format) throw std::runtime_error("unknown format");
    std::string name = (fs::temp_directory_path() / "diffuse-XXXXXX").string();
    if (!mkdtemp(name.data())) fail("cannot keep standard input");
    folder_ = name;
    path_ = folder_ / ("input" + format->suffixes.front());
    fs::create_symlink(pathOf(file_), path_);
}

StandardInput::~StandardInput() {
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
    close(file_);
}

fs::path outputName(const fs::path& output, const Input& input) {
    return isStream(output) ? fs::path("output" + input.suffix) : output;
}

void printPicture(const fs::path& name, const Picture& picture) {
    const int file = memfd_create("output", MFD_CLOEXEC);
    explainFailures("cannot write to standard output: ", [&] {
        formatOfName(name)->write("/proc/self/fd/" + std::to_string(file), picture);
        lseek(file, 0, SEEK_SET);
        copyAll(file, STDOUT_FILENO, "it ends too early");
    });
    close(file);
}

}  // namespace diffuse
