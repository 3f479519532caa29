// What an interruption leaves behind: nothing.
#pragma once

#include <filesystem>
#include <mutex>

namespace diffuse {

// From now on every signal that ends a process by default, and is not ignored, ends this one only
// after the folders of all TemporaryFolder objects are gone and outside of any Uninterrupted; but
// for SIGKILL, for a fault of the process itself, and for SIGPIPE and SIGXFSZ, which are ignored: a
// write that fails is an error like any other. To be called before the process has other threads.
// Throws std::system_error if there is no thread to be had.
void watchInterruptions();

// The name that a header has in the folder while its successor is put in place.
inline constexpr char asideName[] = ".aside";

// A new folder beside a file, gone with the object or with the process. Until then it is locked:
// what a process of the same program left behind when it was killed is found by that.
class TemporaryFolder {
public:
    // Throws std::runtime_error if it cannot be made.
    explicit TemporaryFolder(const std::filesystem::path& target);
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
    int lock_ = -1;
};

// While an object lives, an interruption waits.
class Uninterrupted {
public:
    Uninterrupted();

private:
    std::unique_lock<std::mutex> lock_;
};

}  // namespace diffuse
