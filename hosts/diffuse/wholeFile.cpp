#include "wholeFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <system_error>

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
    for (const fs::directory_entry& entry : fs::directory_iterator(folder.path())) {
        requireStored(entry.path());
    }
    const Uninterrupted untilAllAreMoved;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder.path())) {
        if (entry.path() != beside) {
            moveTo(entry.path(), target.parent_path() / entry.path().filename());
        }
    }
    moveTo(beside, target);
}

}  // namespace diffuse
