#include "childProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "confinement.h"
#include "formats/Format.h"

namespace diffuse {

namespace {

constexpr std::uintmax_t mebibyte = 1 << 20;
constexpr std::uintmax_t readersOwn = 192 * mebibyte;  // memory for a reader of anything

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error(what + ": " + std::generic_category().message(errno));
}

class Descriptor {
public:
    explicit Descriptor(int number) : number_(number) {}
    ~Descriptor() { close(); }
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor& operator=(Descriptor&&) = delete;

    [[nodiscard]] int number() const { return number_; }
    void close() {
        if (number_ >= 0) ::close(std::exchange(number_, -1));
    }

private:
    int number_;
};

struct Pipe {
    Descriptor reader, writer;
};

Pipe makePipe() {
    int ends[2] = {-1, -1};
    if (pipe2(ends, O_CLOEXEC) != 0) fail("cannot start a process to read in");
    return {Descriptor(ends[0]), Descriptor(ends[1])};
}

// A message is its kind, its length and its text.
enum class Kind : char { name, promise, refusal, failure, done };

void send(int pipe, Kind kind, const std::string& text) {
    const std::uint64_t length = text.size();
    std::string message(1, static_cast<char>(kind));
    message.append(reinterpret_cast<const char*>(&length), sizeof length);
    message += text;
    for (std::size_t sent = 0; sent < message.size();) {
        const ssize_t count = write(pipe, message.data() + sent, message.size() - sent);
        if (count < 0) _exit(1);
        sent += count;
    }
}

// Takes a whole message from the front of the bytes; false if there is none yet.
bool takeMessage(std::string& bytes, Kind& kind, std::string& text) {
    std::uint64_t length = 0;
    constexpr std::size_t head = 1 + sizeof length;
    if (bytes.size() < head) return false;
    std::memcpy(&length, bytes.data() + 1, sizeof length);
    if (bytes.size() - head < length) return false;
    kind = static_cast<Kind>(bytes[0]);
    text = bytes.substr(head, length);
    bytes.erase(0, head + length);
    return true;
}

// The last line that is not empty.
std::string lastLine(const std::string& text) {
    const std::size_t end = text.find_last_not_of(" \n\r");
    if (end == std::string::npos) return "";
    const std::size_t begin = text.find_last_of("\n\r", end);
    return text.substr(begin + 1, end - begin);
}

[[noreturn]] void runChild(int words, int memory,
                           const std::function<void(const ToParent&)>& work) {
    try {
        work(ToParent(words, memory));
        send(words, Kind::done, "");
    } catch (const Refusal& refusal) {
        send(words, Kind::refusal, refusal.what());
    } catch (const std::bad_alloc&) {
        send(words, Kind::failure, "it asks for more memory than it tells of");
    } catch (const std::exception& error) {
        send(words, Kind::failure, lastLine(error.what()));
    }
    _exit(0);
}

// Follows a child until it ends.
class Watch {
public:
    Watch(pid_t child, std::uintmax_t inputBytes, int memory)
        : child_(child), bytes_(inputBytes), memory_(memory) {}

    void follow(Pipe& words, Pipe& errors) {
        std::string pending;
        pollfd ends[] = {{words.reader.number(), POLLIN, 0}, {errors.reader.number(), POLLIN, 0}};
        while (ends[0].fd >= 0) {
            const int ready = poll(ends, 2, tick);
            if (ready < 0 && errno != EINTR) fail("cannot wait for a process");
            if (ready <= 0) requireProgress();
            for (pollfd& end : ends) {
                if (end.fd < 0 || end.revents == 0) continue;
                std::string& text = &end == ends ? pending : said_;
                if (!append(end.fd, text)) end.fd = -1;
            }
            constexpr std::size_t enough = 1 << 16;
            if (said_.size() > enough) said_.erase(0, said_.size() - enough / 2);
            Kind kind{};
            for (std::string text; takeMessage(pending, kind, text);) take(kind, text);
        }
        append(errors.reader.number(), said_);
    }

    // Ends the child if it has not ended. Throws unless it did all of its work.
    FromChild outcome() {
        int status = 0;
        while (waitpid(child_, &status, 0) < 0 && errno == EINTR) continue;
        const std::string who = "damaged, or not " + format_ + ": ";
        if (isRefused_) throw std::runtime_error(complaint_);
        if (complaint_.empty() && isDone_) return {header_, samples()};
        std::string why = complaint_.empty() ? lastLine(said_) : complaint_;
        if (isSlow_) why = "its reader made no progress for some time";
        if (WIFSIGNALED(status) && !isSlow_) {
            why += (why.empty() ? "" : "; ") + std::string("its reader ended by signal ") +
                   std::to_string(WTERMSIG(status)) + " (" + strsignal(WTERMSIG(status)) + ")";
        }
        throw std::runtime_error(who + (why.empty() ? "its reader ended without a word" : why));
    }

private:
    static constexpr int tick = 100;  // ms

    static bool append(int pipe, std::string& text) {
        std::array<char, 1 << 14> bytes{};
        const ssize_t count = read(pipe, bytes.data(), bytes.size());
        if (count > 0) text.append(bytes.data(), count);
        return count > 0;
    }

    void take(Kind kind, const std::string& text) {
        if (kind == Kind::name) format_ = text;
        if (kind == Kind::done) isDone_ = true;
        if (kind == Kind::refusal) isRefused_ = true;
        if (kind == Kind::refusal || kind == Kind::failure) complaint_ = text;
        if (kind == Kind::promise) {
            header_ = text.substr(sizeof promised_);
            std::memcpy(&promised_, text.data(), sizeof promised_);
            bytes_ += promised_;
        }
        idle_ = 0;
    }

    // Counts its own waits: a clock would go on while both processes are stopped.
    void requireProgress() {
        struct stat status {};
        fstat(memory_, &status);
        idle_ = status.st_blocks == blocks_ ? idle_ + 1 : 0;
        blocks_ = status.st_blocks;
        const std::uintmax_t seconds = 6 + bytes_ / (4 * mebibyte);
        if (static_cast<std::uintmax_t>(idle_) * tick < seconds * 1000) return;
        isSlow_ = true;
        kill(child_, SIGKILL);
    }

    [[nodiscard]] Samples samples() const {
        void* address = mmap(nullptr, promised_, PROT_READ, MAP_SHARED, memory_, 0);
        if (address == MAP_FAILED) throw std::bad_alloc();
        const auto unmap = [size = promised_](const std::byte* bytes) {
            munmap(const_cast<std::byte*>(bytes), size);
        };
        return {static_cast<const std::byte*>(address), unmap};
    }

    pid_t child_;
    std::uintmax_t bytes_;
    int memory_;
    std::string format_ = "of a known format", header_, complaint_, said_;
    std::uint64_t promised_ = 0;
    bool isDone_ = false, isRefused_ = false, isSlow_ = false;
    int idle_ = 0;
    blkcnt_t blocks_ = 0;
};

}  // namespace

void ToParent::name(const std::string& format) const {
    send(words_, Kind::name, format);
}

std::byte* ToParent::promise(const std::string& header, std::size_t bytes) const {
    constexpr int copies = 4;  // that a reader may need besides
    allowMemory(readersOwn + copies * bytes);
    const std::uint64_t size = bytes;
    send(words_, Kind::promise,
         std::string(reinterpret_cast<const char*>(&size), sizeof size) + header);
    void* address = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, memory_, 0);
    if (address == MAP_FAILED) throw std::bad_alloc();
    return static_cast<std::byte*>(address);
}

FromChild runApart(std::uintmax_t inputBytes, const std::function<void(const ToParent&)>& work) {
    Pipe words = makePipe();
    Pipe errors = makePipe();
    const Descriptor memory(memfd_create("samples", MFD_CLOEXEC));
    // Sparse: no more of it exists than is filled.
    constexpr off_t beyondAll = off_t{1} << 46;
    if (memory.number() < 0 || ftruncate(memory.number(), beyondAll) != 0) {
        fail("cannot share memory with a process");
    }
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child < 0) fail("cannot start a process to read in");
    if (child == 0) {
        const auto [toParent, shared] =
            confine(parent, errors.writer.number(), words.writer.number(), memory.number());
        allowMemory(readersOwn + 2 * inputBytes);
        runChild(toParent, shared, work);
    }
    words.writer.close();
    errors.writer.close();
    Watch watch(child, inputBytes, memory.number());
    watch.follow(words, errors);
    return watch.outcome();
}

}  // namespace diffuse
