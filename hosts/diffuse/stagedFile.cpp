#include "stagedFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>

namespace diffuse {

namespace {

namespace fs = std::filesystem;

[[noreturn]] void fail(int error) {
    throw std::runtime_error(std::generic_category().message(error));
}

// Outlives main: the watching thread may still look at it then.
struct Shared {
    std::mutex mutex;
    std::set<fs::path> folders;
};

Shared& shared() {
    static auto& instance = *new Shared;
    return instance;
}

// A writer may go on putting files into the folder until it is gone.
void removeFolder(const fs::path& folder) {
    std::error_code error;
    do {
        fs::remove_all(folder, error);
    } while (error == std::errc::directory_not_empty);
}

[[noreturn]] void endBySignal(sigset_t watched) {
    int signal = 0;
    sigwait(&watched, &signal);
    const std::lock_guard lock(shared().mutex);
    for (const fs::path& folder : shared().folders) removeFolder(folder);
    std::signal(signal, SIG_DFL);
    pthread_sigmask(SIG_UNBLOCK, &watched, nullptr);
    raise(signal);
    std::abort();
}

// The number of the folder, locked; -1 if another process has it or nobody can lock it.
int lockFolder(const fs::path& folder) {
    const int number = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    struct stat status {};
    const bool locked = number >= 0 && flock(number, LOCK_EX | LOCK_NB) == 0 &&
                        fstat(number, &status) == 0 && status.st_nlink > 0;
    if (!locked && number >= 0) close(number);
    return locked ? number : -1;
}

void removeLeftovers(const fs::path& parent, const std::string& prefix) {
    std::error_code ignored;
    for (const fs::directory_entry& entry : fs::directory_iterator(parent, ignored)) {
        if (!entry.path().filename().string().starts_with(prefix)) continue;
        const int lock = lockFolder(entry.path());
        if (lock < 0) continue;
        removeFolder(entry.path());
        close(lock);
    }
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

}  // namespace

void watchInterruptions() {
    sigset_t watched;
    sigfillset(&watched);
    // Those that end no process.
    for (const int signal :
         {SIGCHLD, SIGURG, SIGWINCH, SIGCONT, SIGSTOP, SIGTSTP, SIGTTIN, SIGTTOU}) {
        sigdelset(&watched, signal);
    }
    for (int signal = 1; signal <= SIGRTMAX; ++signal) {
        struct sigaction action {};
        if (sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN) {
            sigdelset(&watched, signal);
        }
    }
    pthread_sigmask(SIG_BLOCK, &watched, nullptr);
    shared();
    std::thread(endBySignal, watched).detach();
}

StagedFile::StagedFile(const fs::path& target) : target_(target) {
    const fs::path parent =
        fs::absolute(target.has_parent_path() ? target.parent_path() : ".").lexically_normal();
    // Names of files may be as long as those of folders.
    const std::string name = target.filename().string();
    const std::string prefix = ".diffuse-" + std::to_string(std::hash<std::string>{}(name)) + "-";
    removeLeftovers(parent, prefix);
    const std::lock_guard lock(shared().mutex);
    // Another process may take a folder for left behind before it is locked.
    for (int attempt = 0; lock_ < 0 && attempt < 10; ++attempt) {
        std::string folder = (parent / (prefix + "XXXXXX")).string();
        if (!mkdtemp(folder.data())) fail(errno);
        folder_ = folder;
        shared().folders.insert(folder_);
        lock_ = lockFolder(folder_);
        if (lock_ < 0 && fs::exists(folder_)) return;  // here nobody can lock it
        if (lock_ < 0) shared().folders.erase(folder_);
    }
}

StagedFile::~StagedFile() {
    const std::lock_guard lock(shared().mutex);
    removeFolder(folder_);
    shared().folders.erase(folder_);
    if (lock_ >= 0) close(lock_);
}

void StagedFile::fill(std::size_t room, const std::function<void(const fs::path&)>& write) const {
    requireRoom(folder_, room);
    const fs::path beside = folder_ / target_.filename();
    write(beside);
    requireStored(beside);
}

void StagedFile::commit() const {
    const fs::path beside = folder_ / target_.filename();
    struct stat status {};
    if (stat(target_.c_str(), &status) == 0) {
        // The owner stays where that is allowed.
        [[maybe_unused]] const int owned = chown(beside.c_str(), status.st_uid, status.st_gid);
        if (chmod(beside.c_str(), status.st_mode & 07777) != 0) fail(errno);
    }
    fs::rename(beside, target_);
}

}  // namespace diffuse
