// Files that stand whole or not at all, and what an interruption leaves behind: nothing.
#pragma once

#include <filesystem>
#include <functional>

namespace diffuse {

// From now on every signal that ends a process by default, and is not ignored, ends this one only
// after the folders of all StagedFile objects are gone; but for SIGKILL and for a fault of the
// process itself. To be called before the process has other threads.
// Throws std::system_error if there is no thread to be had.
void watchInterruptions();

// A file on its way to a target, first in a folder of its own beside it that goes with the object
// or with the process. Until then the folder is locked: what a process of the same program left
// there for the same target when it was killed is found by that, and removed.
class StagedFile {
public:
    // Throws std::runtime_error if there is no folder to be had.
    explicit StagedFile(const std::filesystem::path& target);
    ~StagedFile();
    StagedFile(const StagedFile&) = delete;
    StagedFile& operator=(const StagedFile&) = delete;

    [[nodiscard]] const std::filesystem::path& target() const { return target_; }

    // Makes sure that `room` bytes are free on the disk, since not every writer reports a full one,
    // and calls `write` with a path in the folder that has the target's name. What it writes is on
    // the disk when this returns.
    void fill(std::size_t room,
              const std::function<void(const std::filesystem::path& beside)>& write) const;

    // Puts the file in place, with the permissions of the one that stood there.
    void commit() const;

private:
    std::filesystem::path target_, folder_;
    int lock_ = -1;
};

}  // namespace diffuse
