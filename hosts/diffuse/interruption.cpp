#include "interruption.h"

#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <system_error>
#include <thread>

namespace diffuse {

namespace {

namespace fs = std::filesystem;

// Outlives main: the watching thread may still look at it then.
struct Shared {
    std::mutex mutex;
    fs::path folder;  // empty: there is none
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
    if (!shared().folder.empty()) removeFolder(shared().folder);
    std::signal(signal, SIG_DFL);
    pthread_sigmask(SIG_UNBLOCK, &watched, nullptr);
    raise(signal);
    std::abort();
}

}  // namespace

void watchInterruptions() {
    sigset_t watched;
    sigemptyset(&watched);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction action {};
        sigaction(signal, nullptr, &action);
        if (action.sa_handler != SIG_IGN) sigaddset(&watched, signal);
    }
    pthread_sigmask(SIG_BLOCK, &watched, nullptr);
    shared();
    std::thread(endBySignal, watched).detach();
}

TemporaryFolder::TemporaryFolder(const fs::path& target) {
    const fs::path parent = target.has_parent_path() ? target.parent_path() : ".";
    std::string name = (fs::absolute(parent).lexically_normal() / ".diffuse-XXXXXX").string();
    const std::lock_guard lock(shared().mutex);
    if (!mkdtemp(name.data())) throw std::runtime_error(std::generic_category().message(errno));
    path_ = name;
    shared().folder = name;
}

TemporaryFolder::~TemporaryFolder() {
    const std::lock_guard lock(shared().mutex);
    std::error_code ignored;
    fs::remove_all(path_, ignored);
    shared().folder.clear();
}

Uninterrupted::Uninterrupted() : lock_(shared().mutex) {}

}  // namespace diffuse
