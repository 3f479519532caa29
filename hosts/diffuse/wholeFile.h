// Files that stand whole or not at all.
#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>

namespace diffuse {

// Makes sure that `room` bytes are free on the disk, since not every writer reports a full one.
// Calls `write` with a path of the same file name in a new folder beside `target`, then renames
// what it wrote into place, `target` last. Formats that keep header and data apart thus move
// together and refer to each other by their final names; data of another file are not replaced.
// If anything fails or an interruption comes, the folder goes, files that stood before stay, and
// the error passes on.
void writeWhole(const std::filesystem::path& target, std::size_t room,
                const std::function<void(const std::filesystem::path& beside)>& write);

}  // namespace diffuse
