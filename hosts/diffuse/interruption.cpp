#include "interruption.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <iterator>
#include <set>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>

namespace diffuse {

namespace {

namespace fs = std::filesystem;

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

// A process that was killed while it put a pair in place has left the old header in the folder,
// the new one, and the new data if those had not yet been moved: then the old one goes back.
void restoreHeader(const fs::path& folder, const fs::path& target) {
    std::error_code ignored;
    const fs::path old = folder / asideName;
    if (fs::exists(target) || !fs::exists(old)) return;
    const bool dataMoved = std::distance(fs::directory_iterator(folder), {}) == 2;
    fs::rename(dataMoved ? folder / target.filename() : old, target, ignored);
}

void removeLeftovers(const fs::path& parent, const fs::path& target, const std::string& prefix) {
    std::error_code ignored;
    for (const fs::directory_entry& entry : fs::directory_iterator(parent, ignored)) {
        if (!entry.path().filename().string().starts_with(prefix)) continue;
        const int lock = lockFolder(entry.path());
        if (lock < 0) continue;
        restoreHeader(entry.path(), target);
        removeFolder(entry.path());
        close(lock);
    }
}

}  // namespace

void watchInterruptions() {
    sigset_t watched;
    sigfillset(&watched);
    for (const int signal : {SIGPIPE, SIGXFSZ}) std::signal(signal, SIG_IGN);
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

TemporaryFolder::TemporaryFolder(const fs::path& target) {
    const fs::path parent =
        fs::absolute(target.has_parent_path() ? target.parent_path() : ".").lexically_normal();
    // Names of files may be as long as those of folders.
    const std::string name = target.filename().string();
    const std::string prefix = ".diffuse-" + std::to_string(std::hash<std::string>{}(name)) + "-";
    removeLeftovers(parent, target, prefix);
    const std::lock_guard lock(shared().mutex);
    // Another process may take a folder for left behind before it is locked.
    for (int attempt = 0; lock_ < 0 && attempt < 10; ++attempt) {
        std::string folder = (parent / (prefix + "XXXXXX")).string();
        if (!mkdtemp(folder.data())) {
            throw std::runtime_error(std::generic_category().message(errno));
        }
        path_ = folder;
        shared().folders.insert(path_);
        lock_ = lockFolder(path_);
        if (lock_ < 0 && fs::exists(path_)) return;  // here nobody can lock it
        if (lock_ < 0) shared().folders.erase(path_);
    }
}

TemporaryFolder::~TemporaryFolder() {
    const std::lock_guard lock(shared().mutex);
    std::error_code ignored;
    fs::remove_all(path_, ignored);
    shared().folders.erase(path_);
    if (lock_ >= 0) close(lock_);
}

Uninterrupted::Uninterrupted() : lock_(shared().mutex) {}

}  // namespace diffuse
