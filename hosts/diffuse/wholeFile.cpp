#include "wholeFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "interruption.h"

namespace diffuse {

namespace {

namespace fs = std::filesystem;

// Takes the room for a moment and gives it back.
void requireRoom(const fs::path& folder, std::size_t bytes) {
    std::string name = (folder / "room-XXXXXX").string();
    const int file = mkstemp(name.data());
    const int error = file < 0 ? errno : posix_fallocate(file, 0, static_cast<off_t>(bytes));
    if (file >= 0) {
        close(file);
        unlink(name.c_str());
    }
    if (error != 0) throw std::runtime_error(std::generic_category().message(error));
}

// Some file systems find out only now that a file has no room.
void requireStored(const fs::path& path) {
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const int error = file < 0 || fsync(file) != 0 ? errno : 0;
    if (file >= 0) close(file);
    if (error != 0) throw std::runtime_error(std::generic_category().message(error));
}

// A companion that stands there without its target belongs to another file.
void requireFree(const fs::path& companion, const fs::path& target) {
    if (!fs::exists(target) && fs::exists(companion)) {
        throw std::runtime_error("its data would replace those of another file, " +
                                 companion.string());
    }
}

void moveTo(const fs::path& from, const fs::path& to) {
    std::error_code error;
    fs::rename(from, to, error);
    if (error) throw std::runtime_error(error.message());
}

}  // namespace

void writeWhole(const fs::path& target, std::size_t room,
                const std::function<void(const fs::path&)>& write) {
    const TemporaryFolder folder(target);
    requireRoom(folder.path(), room);
    const fs::path beside = folder.path() / target.filename();
    write(beside);
    if (!fs::exists(beside)) throw std::runtime_error("nothing was written");
    std::vector<fs::path> companions;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder.path())) {
        requireStored(entry.path());
        if (entry.path() != beside) companions.push_back(entry.path().filename());
    }
    for (const fs::path& name : companions) requireFree(target.parent_path() / name, target);
    const Uninterrupted untilAllAreMoved;
    for (const fs::path& name : companions) {
        moveTo(folder.path() / name, target.parent_path() / name);
    }
    moveTo(beside, target);
}

}  // namespace diffuse
