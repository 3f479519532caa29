// Files that stand whole or not at all.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "interruption.h"

namespace diffuse {

// A file on its way to a target, first in a folder of its own beside it. Formats that keep header
// and data apart move together and refer to each other by their final names.
class StagedFile {
public:
    // Throws std::runtime_error if there is no folder to be had.
    explicit StagedFile(std::filesystem::path target);

    [[nodiscard]] const std::filesystem::path& target() const { return target_; }

    // Makes sure that `room` bytes are free on the disk, since not every writer reports a full one,
    // and calls `write` with a path in the folder that has the target's name. What it writes is on
    // the disk when this returns.
    void fill(std::size_t room,
              const std::function<void(const std::filesystem::path& beside)>& write) const;

    // Puts all that was written in place, with the permissions of what stood there. While several
    // files are, the folder of the target is locked, and its old header is out of the way: whatever
    // happens then, no header stands beside data of another. Without this call, and if it throws,
    // files that stood before stay.
    void commit() const;

private:
    std::filesystem::path target_;
    TemporaryFolder folder_;
};

// Throws std::runtime_error if a file of this name beside `target` belongs to another file than it.
void requireFree(const std::filesystem::path& target, const std::string& name);

}  // namespace diffuse
