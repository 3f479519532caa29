// SPDX-License-Identifier: MIT
#include "jobs.h"

#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <map>
#include <system_error>

namespace commandline {

namespace {

struct Job {
    int number;
    int printed;  // a file in memory that is the child's standard output
};

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

[[noreturn]] void runChild(pid_t parent, const Job& job, const std::function<int(int)>& work) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent || dup2(job.printed, STDOUT_FILENO) < 0) _exit(1);
    const int status = work(job.number);
    std::cout.flush();
    std::fflush(stdout);
    _exit(status);
}

// What the child has printed.
std::string takeText(int file) {
    std::string text(lseek(file, 0, SEEK_END), '\0');
    const ssize_t count = pread(file, text.data(), text.size(), 0);
    close(file);
    text.resize(count > 0 ? count : 0);
    return text;
}

}  // namespace

Outcome runJobs(const std::vector<std::string>& names, const JobSettings& settings,
                const std::function<int(int)>& work,
                const std::function<void(const std::string&)>& complain) {
    const auto count = static_cast<int>(names.size());
    const pid_t parent = getpid();
    std::map<pid_t, Job> running;
    Outcome outcome;
    int next = 0;
    const auto mayBegin = [&] {
        return next < count && (outcome.failed == 0 || settings.keepsGoing);
    };
    while (mayBegin() || !running.empty()) {
        while (mayBegin() && static_cast<int>(running.size()) < settings.atOnce) {
            const Job job{next, memfd_create("printed", MFD_CLOEXEC)};
            if (job.printed < 0) fail("no file in memory");
            const pid_t child = fork();
            if (child == 0) runChild(parent, job, work);
            if (child < 0) fail("cannot start a process");
            running.emplace(child, job);
            ++next;
        }
        int status = 0;
        const pid_t ended = wait(&status);
        if (ended < 0 && errno == EINTR) continue;
        const auto job = running.find(ended);
        if (job == running.end()) continue;
        std::cout << takeText(job->second.printed) << std::flush;
        if (WIFSIGNALED(status)) {
            complain(names[job->second.number] + ": ended by signal " +
                     std::to_string(WTERMSIG(status)) + " (" + strsignal(WTERMSIG(status)) + ")");
        }
        ++(status == 0 ? outcome.done : outcome.failed);
        running.erase(job);
    }
    outcome.untried = count - next;
    return outcome;
}

}  // namespace commandline
