// SPDX-License-Identifier: MIT
// Other people's decoders, in a process of their own that may crash, hang or ask for too much.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace diffuse {

// What parent and child share.
struct Board {
    static constexpr std::size_t headerRoom = std::size_t{64} << 20;

    enum Outcome { none, done, refused, failed };
    Outcome outcome = none;
    std::uint64_t bytes = 0;       // of the input and, once they are promised, of the samples
    std::uint64_t headerSize = 0;  // of what stands at the beginning of `header`
    std::uint64_t sampleRoom = 0;
    char format[64] = "of a known format", complaint[4096] = "";
    char* header = nullptr;
    std::byte* samples = nullptr;

    // For the child: the name of the format that it takes the input for, and the bytes of that.
    void begin(const std::string& name, std::uint64_t inputBytes);
    // For the child: the bytes of all samples. From here on it may use as much memory of its own as
    // they ask for. Throws std::bad_alloc if there is no room.
    void promise(std::uint64_t sampleBytes);
    // For the child: what the samples are. Throws std::bad_alloc if there is no room.
    void tell(const std::string& text);
};

// Runs `work` in a forked child that has no threads but its own, cannot write to a file or start a
// program, and leaves no core. Its memory and time are limited by its input and its promise.
// Returns what it left. Throws std::runtime_error with one line if the work throws, the child dies
// or meets a limit: what a Refusal says; otherwise "damaged, or not FORMAT:" and the last words of
// the reader.
std::shared_ptr<Board> runApart(const std::function<void(Board&)>& work);

}  // namespace diffuse
