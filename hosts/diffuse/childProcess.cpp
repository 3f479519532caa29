// SPDX-License-Identifier: MIT
#include "childProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>
#include <new>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "confinement.h"
#include "formats/Format.h"

namespace diffuse {

namespace {

constexpr std::uint64_t mebibyte = 1 << 20;
constexpr std::uint64_t readersOwn = 192 * mebibyte;  // memory for a reader of anything

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

// Reads what the child prints until it ends; ends it where it makes no progress. Returns its last
// words, or that.
std::string follow(pid_t child, const Board& board, int errors) {
    constexpr int tick = 100;  // ms
    constexpr std::size_t enough = 1 << 16;
    std::string said;
    std::uint64_t progress = 0;
    std::array<char, 1 << 14> part{};
    // Counts its own waits: a clock would go on while both processes are stopped.
    for (std::uint64_t idle = 0; idle * tick <= (6 + board.bytes / (4 * mebibyte)) * 1000; ++idle) {
        pollfd end = {errors, POLLIN, 0};
        if (poll(&end, 1, tick) > 0) {
            const ssize_t count = read(errors, part.data(), part.size());
            if (count <= 0) return lastLine(said);
            said.append(part.data(), count);
            if (said.size() > enough) said.erase(0, enough / 2);
        }
        // A reader that gets on fills memory, its own or what it shares.
        std::uint64_t size = 0;
        std::uint64_t resident = 0;
        std::ifstream("/proc/" + std::to_string(child) + "/statm") >> size >> resident;
        if (std::exchange(progress, resident + board.bytes) != progress) idle = 0;
    }
    kill(child, SIGKILL);
    return "its reader made no progress for some time";
}

void requireOutcome(const Board& board, int status, std::string words) {
    if (board.outcome == Board::done && status == 0) return;
    if (board.outcome == Board::refused) throw std::runtime_error(board.complaint);
    if (board.outcome == Board::failed) words = board.complaint;
    if (WIFSIGNALED(status) && WTERMSIG(status) != SIGKILL) {
        words += (words.empty() ? "" : "; ") + std::string("its reader ended by signal ") +
                 std::to_string(WTERMSIG(status)) + " (" + strsignal(WTERMSIG(status)) + ")";
    }
    if (words.empty()) words = "its reader ended without a word";
    throw std::runtime_error("damaged, or not " + std::string(board.format) + ": " + words);
}

}  // namespace

void Board::begin(const std::string& name, std::uint64_t inputBytes) {
    format[name.copy(format, sizeof format - 1)] = '\0';
    bytes = inputBytes;
    allowMemory(readersOwn + 2 * inputBytes);
}

void Board::promise(std::uint64_t sampleBytes) {
    constexpr int copies = 4;  // that a reader may need besides
    if (sampleBytes > sampleRoom) throw std::bad_alloc();
    bytes += sampleBytes;
    allowMemory(readersOwn + copies * bytes);
}

void Board::tell(const std::string& text) {
    if (text.size() > headerRoom) throw std::bad_alloc();
    headerSize = text.copy(header, text.size());
}

std::shared_ptr<Board> runApart(const std::function<void(Board&)>& work) {
    const auto board = shareBoard();
    int ends[2] = {-1, -1};
    const pid_t parent = getpid();
    const pid_t child = pipe2(ends, O_CLOEXEC) == 0 ? fork() : -1;
    if (child == 0) {
        confine(parent, ends[1]);
        allowMemory(readersOwn);
        runChild(*board, work);
    }
    if (child < 0) {
        throw std::system_error(errno, std::generic_category(),
                                "cannot start a process to read in");
    }
    close(ends[1]);
    const std::string words = follow(child, *board, ends[0]);
    close(ends[0]);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
    requireOutcome(*board, status, words);
    return board;
}

}  // namespace diffuse
