// SPDX-License-Identifier: MIT
// Files that stand whole or not at all, and what an interruption leaves behind: nothing.
#pragma once

#include <filesystem>
#include <string>

namespace diffuse {

// A file on its way to a target. Until it is committed it has no name, so that the system removes
// it with the object or the process, however that ends. Where the file system of the target has no
// files without names, it stands in memory.
class StagedFile {
public:
    // Throws std::runtime_error if there is no file to be had.
    explicit StagedFile(std::filesystem::path target);
    ~StagedFile();
    StagedFile(const StagedFile&) = delete;
    StagedFile& operator=(const StagedFile&) = delete;

    [[nodiscard]] const std::filesystem::path& target() const { return target_; }
    // Where to write it, by opening this as a file of that name.
    [[nodiscard]] std::string path() const { return "/proc/self/fd/" + std::to_string(file_); }

    // Has it on the disk. Throws std::runtime_error if it cannot be stored.
    void store() const;

    // Puts it in place, with the owner and the permissions of the one that stood there. Killed
    // at the wrong moment it leaves one hidden file, which the next one for this target replaces.
    // Throws std::runtime_error if that fails.
    void commit() const;

private:
    std::filesystem::path target_, beside_;
    int file_ = -1;
    bool inMemory_ = false;
};

}  // namespace diffuse
