// SPDX-License-Identifier: MIT
#include "confinement.h"

#include <fcntl.h>
#include <malloc.h>
#include <seccomp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fstream>

namespace diffuse {

namespace {

// Calls that open a file fail where they could change it, the others always.
void refuseSystemCalls() {
    constexpr int changing[] = {
        SCMP_SYS(creat),    SCMP_SYS(truncate), SCMP_SYS(unlink),    SCMP_SYS(unlinkat),
        SCMP_SYS(rename),   SCMP_SYS(renameat), SCMP_SYS(renameat2), SCMP_SYS(link),
        SCMP_SYS(linkat),   SCMP_SYS(symlink),  SCMP_SYS(symlinkat), SCMP_SYS(mkdir),
        SCMP_SYS(mkdirat),  SCMP_SYS(rmdir),    SCMP_SYS(mknod),     SCMP_SYS(mknodat),
        SCMP_SYS(chmod),    SCMP_SYS(fchmod),   SCMP_SYS(fchmodat),  SCMP_SYS(chown),
        SCMP_SYS(fchownat), SCMP_SYS(openat2),  SCMP_SYS(execve),    SCMP_SYS(execveat),
        SCMP_SYS(socket),   SCMP_SYS(connect),  SCMP_SYS(kill),      SCMP_SYS(ptrace),
        SCMP_SYS(mount),    SCMP_SYS(setxattr), SCMP_SYS(utimensat), SCMP_SYS(io_uring_setup)};
    scmp_filter_ctx filter = seccomp_init(SCMP_ACT_ALLOW);
    if (!filter) return;
    const auto refused = SCMP_ACT_ERRNO(EPERM);
    for (const int call : changing) seccomp_rule_add(filter, refused, call, 0);
    for (const int flag : {O_WRONLY, O_RDWR, O_CREAT, O_TRUNC}) {
        const auto value = static_cast<scmp_datum_t>(flag);
        seccomp_rule_add(filter, refused, SCMP_SYS(open), 1,
                         SCMP_A1(SCMP_CMP_MASKED_EQ, value, value));
        seccomp_rule_add(filter, refused, SCMP_SYS(openat), 1,
                         SCMP_A2(SCMP_CMP_MASKED_EQ, value, value));
    }
    seccomp_load(filter);
    seccomp_release(filter);
}

void limit(__rlimit_resource resource, rlim_t amount) {
    struct rlimit limits {};
    getrlimit(resource, &limits);
    limits.rlim_cur = std::min(amount, limits.rlim_max);
    setrlimit(resource, &limits);
}

// The memory that counts for its limit: what is private and can be written to.
std::uintmax_t ownMemory() {
    std::uintmax_t pages = 0;
    std::ifstream statistics("/proc/self/statm");
    for (int i = 0; i < 6; ++i) statistics >> pages;
    return pages * static_cast<std::uintmax_t>(sysconf(_SC_PAGESIZE));
}

}  // namespace

void confine(pid_t parent, int errors) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(1);
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    dup2(errors, STDERR_FILENO);
    dup2(errors, STDOUT_FILENO);
    close(STDIN_FILENO);
    open("/dev/null", O_RDONLY);
    close_range(STDERR_FILENO + 1, ~0U, 0);
    limit(RLIMIT_CORE, 0);
    limit(RLIMIT_FSIZE, 0);
    mallopt(M_ARENA_MAX, 1);
    refuseSystemCalls();
}

void allowMemory(std::uintmax_t bytes) {
    limit(RLIMIT_DATA, ownMemory() + bytes);
}

}  // namespace diffuse
