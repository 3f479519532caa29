// SPDX-License-Identifier: MIT
#include "stagedFile.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <limits>
#include <stdexcept>
#include <system_error>

namespace diffuse {

namespace {

namespace fs = std::filesystem;

[[noreturn]] void fail(int error) {
    throw std::runtime_error(std::generic_category().message(error));
}

// Gives the open file a name, which must be free. Returns whether that worked.
bool link(int file, const fs::path& name) {
    const std::string open = "/proc/self/fd/" + std::to_string(file);
    return linkat(AT_FDCWD, open.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0;
}

// The same for a file in memory, by a copy.
bool copy(int file, const fs::path& name) {
    struct stat status {};
    fstat(file, &status);
    const int other = open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    bool isWhole = other >= 0;
    for (off_t done = 0; isWhole && done < status.st_size;) {
        isWhole = sendfile(other, file, &done, status.st_size - done) > 0;
    }
    isWhole = isWhole && fchmod(other, status.st_mode & 07777) == 0 && fsync(other) == 0;
    if (other >= 0) close(other);
    return isWhole;
}

// Returns 0, or what went wrong. Two processes may do this for one target at once: each removes
// what stands in its way and tries again, so that either file is put in place whole.
int replace(int file, bool inMemory, const fs::path& beside, const fs::path& target) {
    for (int attempt = 0; attempt < 1000; ++attempt) {
        if (inMemory ? copy(file, beside) : link(file, beside)) {
            if (std::rename(beside.c_str(), target.c_str()) == 0) return 0;
            if (errno == ENOENT) continue;
        }
        const int error = errno;
        unlink(beside.c_str());
        if (error != EEXIST) return error;
    }
    return EEXIST;
}

}  // namespace

StagedFile::StagedFile(fs::path target) : target_(std::move(target)) {
    const fs::path folder = target_.has_parent_path() ? target_.parent_path() : ".";
    // Names of files may be as long as those of folders.
    const std::string name = target_.filename().string();
    beside_ = folder / (".diffuse-" + std::to_string(std::hash<std::string>{}(name)));
    file_ = open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0666);
    if (file_ >= 0) return;
    if (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL) fail(errno);
    inMemory_ = true;
    file_ = memfd_create("diffuse", MFD_CLOEXEC);
    const mode_t mask = umask(0);
    umask(mask);
    if (file_ < 0 || fchmod(file_, 0666 & ~mask) != 0) fail(errno);
}

StagedFile::~StagedFile() {
    close(file_);
}

void StagedFile::store() const {
    if (fsync(file_) != 0) fail(errno);
}

void StagedFile::commit() const {
    struct stat status {};
    if (stat(target_.c_str(), &status) == 0) {
        // The owner stays where that is allowed.
        [[maybe_unused]] const int owned = fchown(file_, status.st_uid, status.st_gid);
        if (fchmod(file_, status.st_mode & 07777) != 0) fail(errno);
    }
    if (!inMemory_ && link(file_, target_)) return;
    // Signals reach any thread of a process; a process of its own blocks them until it is done.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    const pid_t child = fork();
    if (child == 0) _exit(replace(file_, inMemory_, beside_, target_));
    int ended = child < 0 ? -1 : 0;
    const int error = errno;
    while (child > 0 && waitpid(child, &ended, 0) < 0 && errno == EINTR) continue;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (child < 0) fail(error);
    if (ended != 0) fail(WIFEXITED(ended) ? WEXITSTATUS(ended) : EINTR);
}

}  // namespace diffuse
