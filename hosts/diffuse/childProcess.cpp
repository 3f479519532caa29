// SPDX-License-Identifier: MIT
#include "childProcess.h"

#include <fcntl.h>
#include <malloc.h>
#include <seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>
#include <new>
#include <stdexcept>
#include <system_error>

#include "formats/Format.h"

namespace diffuse {

namespace {

// As much as the machine has, or as can be had: pages exist once they are filled.
std::shared_ptr<Board> shareBoard() {
    auto size = static_cast<std::size_t>(sysconf(_SC_PHYS_PAGES)) * sysconf(_SC_PAGESIZE);
    constexpr std::size_t before = sizeof(Board) + Board::headerRoom;
    for (size += before; size > before; size /= 2) {
        void* address = mmap(nullptr, size, PROT_READ | PROT_WRITE,
                             MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (address == MAP_FAILED) continue;
        auto* board = new (address) Board;
        board->header = static_cast<char*>(address) + sizeof(Board);
        board->samples = static_cast<std::byte*>(address) + before;
        board->sampleRoom = size - before;
        return {board, [size](Board* shared) { munmap(shared, size); }};
    }
    throw std::bad_alloc();
}

// Calls that open a file fail where they could change it, the others always.
void refuseSystemCalls() {
    constexpr const char* changing[] = {
        "creat",   "truncate", "unlink",    "unlinkat",      "rename",   "renameat", "renameat2",
        "link",    "linkat",   "symlink",   "symlinkat",     "mkdir",    "mkdirat",  "rmdir",
        "mknod",   "mknodat",  "chmod",     "fchmod",        "fchmodat", "chown",    "fchownat",
        "openat2", "execve",   "execveat",  "socket",        "connect",  "kill",     "ptrace",
        "mount",   "setxattr", "utimensat", "io_uring_setup"};
    scmp_filter_ctx filter = seccomp_init(SCMP_ACT_ALLOW);
    if (!filter) return;
    const auto refuse = [&](const char* call, auto... where) {
        seccomp_rule_add(filter, SCMP_ACT_ERRNO(EPERM), seccomp_syscall_resolve_name(call),
                         sizeof...(where), where...);
    };
    for (const char* const call : changing) refuse(call);
    for (const scmp_datum_t flag : {O_WRONLY, O_RDWR, O_CREAT, O_TRUNC}) {
        refuse("open", SCMP_A1(SCMP_CMP_MASKED_EQ, flag, flag));
        refuse("openat", SCMP_A2(SCMP_CMP_MASKED_EQ, flag, flag));
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

// It ends with its parent, leaves no core, gains no privileges, keeps none of the parent's files
// and prints to `errors` only. From here on it cannot write to, make, rename or remove a file,
// start a program or open a connection; where the kernel has no filter of system calls, it still
// cannot write to a file.
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
    for (const int end : {SIGXCPU, SIGALRM}) std::signal(end, SIG_DFL);
    refuseSystemCalls();
}

// Limits what the process may still take for so many bytes of input and samples, of which it holds
// so many copies besides: memory, processor time, and ten times that by the clock.
void limitReader(std::uint64_t bytes, int copies) {
    constexpr std::uint64_t mebibyte = 1 << 20;
    const std::uint64_t seconds = 6 + bytes / (4 * mebibyte);
    limit(RLIMIT_DATA, ownMemory() + 192 * mebibyte + copies * bytes);
    limit(RLIMIT_CPU, seconds);
    alarm(static_cast<unsigned>(10 * seconds));
}

std::string lastLine(const std::string& text) {
    const std::size_t end = text.find_last_not_of(" \n\r");
    if (end == std::string::npos) return "";
    const std::size_t begin = text.find_last_of("\n\r", end) + 1;
    return text.substr(begin, end + 1 - begin);
}

[[noreturn]] void runChild(Board& board, const std::function<void(Board&)>& work) {
    const auto complain = [&](Board::Outcome outcome, const std::string& words) {
        words.copy(board.complaint, sizeof board.complaint - 1);
        board.outcome = outcome;
    };
    try {
        work(board);
        board.outcome = Board::done;
    } catch (const Refusal& refusal) {
        complain(Board::refused, refusal.what());
    } catch (const std::bad_alloc&) {
        complain(Board::failed, "it asks for more memory than it tells of");
    } catch (const std::exception& error) {
        complain(Board::failed, lastLine(error.what()));
    }
    _exit(0);
}

// What the child prints until it ends, but for what is long ago.
std::string wordsOf(int errors) {
    constexpr std::size_t enough = 1 << 16;
    std::string words;
    char part[4096];
    for (ssize_t count = 0; (count = read(errors, part, sizeof part)) > 0;) {
        words.append(part, count);
        if (words.size() > enough) words.erase(0, enough / 2);
    }
    return lastLine(words);
}

void requireOutcome(const Board& board, int status, std::string words) {
    if (board.outcome == Board::done && status == 0) return;
    if (board.outcome == Board::refused) throw std::runtime_error(board.complaint);
    if (board.outcome == Board::failed) words = board.complaint;
    const int signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    if (signal == SIGXCPU || signal == SIGALRM) {
        words = "its reader takes too long";
    } else if (signal != 0) {
        words += (words.empty() ? "" : "; ") + std::string("its reader ended by signal ") +
                 std::to_string(signal) + " (" + strsignal(signal) + ")";
    }
    if (words.empty()) words = "its reader ended without a word";
    throw std::runtime_error("damaged, or not " + std::string(board.format) + ": " + words);
}

}  // namespace

void Board::begin(const std::string& name, std::uint64_t inputBytes) {
    format[name.copy(format, sizeof format - 1)] = '\0';
    bytes = inputBytes;
    limitReader(bytes, 2);
}

void Board::promise(std::uint64_t sampleBytes) {
    if (sampleBytes > sampleRoom) throw std::bad_alloc();
    bytes += sampleBytes;
    limitReader(bytes, 4);
}

void Board::tell(const std::string& text) {
    if (text.size() > headerRoom) throw std::bad_alloc();
    headerSize = text.copy(header, text.size());
}

std::shared_ptr<Board> runApart(const std::function<void(Board&)>& work) {
    auto board = shareBoard();
    int ends[2] = {-1, -1};
    const pid_t parent = getpid();
    const pid_t child = pipe2(ends, O_CLOEXEC) == 0 ? fork() : -1;
    if (child == 0) {
        confine(parent, ends[1]);
        limitReader(0, 0);
        runChild(*board, work);
    }
    if (child < 0) {
        throw std::system_error(errno, std::generic_category(),
                                "cannot start a process to read in");
    }
    close(ends[1]);
    const std::string words = wordsOf(ends[0]);
    close(ends[0]);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
    requireOutcome(*board, status, words);
    return board;
}

}  // namespace diffuse
