#include "stagedFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "formats/Format.h"

namespace diffuse {

namespace {

namespace fs = std::filesystem;

[[noreturn]] void fail(int error) {
    throw std::runtime_error(std::generic_category().message(error));
}

// Takes the room for a moment and gives it back.
void requireRoom(const fs::path& folder, std::size_t bytes) {
    std::string name = (folder / "room-XXXXXX").string();
    const int file = mkstemp(name.data());
    const int error = file < 0 ? errno : posix_fallocate(file, 0, static_cast<off_t>(bytes));
    if (file >= 0) {
        close(file);
        unlink(name.c_str());
    }
    if (error != 0) fail(error);
}

// Some file systems find out only now that a file has no room.
void requireStored(const fs::path& path) {
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const int error = file < 0 || fsync(file) != 0 ? errno : 0;
    if (file >= 0) close(file);
    if (error != 0) fail(error);
}

// Whether the file is there and names the other as its data.
bool owns(const fs::path& file, const std::string& name) {
    try {
        const auto files = filesOf(file);
        return std::ranges::find(files, file.parent_path() / name) != files.end();
    } catch (const std::exception&) {
        return false;
    }
}

// Other processes that put files of several parts into this folder wait.
class FolderLock {
public:
    explicit FolderLock(const fs::path& folder)
        : number_(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
        int status = -1;
        while (number_ >= 0 && (status = flock(number_, LOCK_EX)) != 0 && errno == EINTR) continue;
        if (status == 0) return;
        const int error = errno;
        if (number_ >= 0) close(number_);
        throw std::runtime_error("its folder cannot be locked, which files of two parts need: " +
                                 std::generic_category().message(error));
    }
    ~FolderLock() { close(number_); }
    FolderLock(const FolderLock&) = delete;
    FolderLock& operator=(const FolderLock&) = delete;

private:
    int number_;
};

// Permissions and, where that is allowed, the owner.
void takeOverMode(const fs::path& from, const fs::path& to) {
    struct stat status {};
    if (stat(from.c_str(), &status) != 0) return;
    [[maybe_unused]] const int owned = chown(to.c_str(), status.st_uid, status.st_gid);
    if (chmod(to.c_str(), status.st_mode & 07777) != 0) fail(errno);
}

}  // namespace

void requireFree(const fs::path& target, const std::string& name) {
    if (!fs::exists(target.parent_path() / name)) return;
    bool isOthers = !owns(target, name);
    for (const char* suffix : {".mhd", ".nhdr", ".hdr"}) {
        const fs::path other = fs::path(target).replace_extension(suffix);
        isOthers = isOthers || (other != target && owns(other, name));
    }
    if (isOthers) {
        throw std::runtime_error("its data would replace those of another file, " +
                                 (target.parent_path() / name).string());
    }
}

StagedFile::StagedFile(fs::path target) : target_(std::move(target)), folder_(target_) {}

void StagedFile::fill(std::size_t room, const std::function<void(const fs::path&)>& write) const {
    requireRoom(folder_.path(), room);
    const fs::path beside = folder_.path() / target_.filename();
    write(beside);
    if (!fs::exists(beside)) throw std::runtime_error("nothing was written");
    for (const fs::directory_entry& entry : fs::directory_iterator(folder_.path())) {
        requireStored(entry.path());
    }
}

void StagedFile::commit() const {
    const fs::path parent = target_.has_parent_path() ? target_.parent_path() : ".";
    const fs::path beside = folder_.path() / target_.filename();
    std::vector<fs::path> parts;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder_.path())) {
        takeOverMode(parent / entry.path().filename(), entry.path());
        if (entry.path() != beside) parts.push_back(entry.path());
    }
    if (parts.empty()) {
        const Uninterrupted untilItIsMoved;
        return fs::rename(beside, target_);
    }
    const FolderLock alone(parent);
    for (const fs::path& part : parts) requireFree(target_, part.filename().string());
    const Uninterrupted untilAllAreMoved;
    const fs::path aside = folder_.path() / asideName;
    const bool existed = fs::exists(target_);
    if (existed) fs::rename(target_, aside);
    try {
        for (const fs::path& part : parts) fs::rename(part, parent / part.filename());
        fs::rename(beside, target_);
    } catch (...) {
        if (existed) fs::rename(aside, target_);
        throw;
    }
}

}  // namespace diffuse
