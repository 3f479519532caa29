// What an interruption leaves behind: nothing.
#pragma once

#include <filesystem>
#include <mutex>

namespace diffuse {

// From now on SIGINT, SIGTERM and SIGHUP end the process, by that signal, only after the folder of
// a TemporaryFolder is gone and outside of any Uninterrupted. Those that are ignored stay ignored.
// To be called before the process has other threads.
void watchInterruptions();

// A new folder beside a file, gone with the object or with the process. One at a time.
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
};

// While an object lives, an interruption waits.
class Uninterrupted {
public:
    Uninterrupted();

private:
    std::unique_lock<std::mutex> lock_;
};

}  // namespace diffuse
