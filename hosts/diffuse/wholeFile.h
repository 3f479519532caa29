// Files that stand whole or not at all.
#pragma once

#include <filesystem>
#include <functional>

namespace diffuse {

// Calls `write` with a path of the same file name in a new folder beside `target`, then renames
// what it wrote into place, `target` last. Formats that keep header and data apart thus move
// together and refer to each other by their final names. If anything fails, the folder goes,
// files that stood before stay, and the error passes on.
void writeWhole(const std::filesystem::path& target,
                const std::function<void(const std::filesystem::path& beside)>& write);

}  // namespace diffuse
