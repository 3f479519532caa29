// Other people's decoders, in a process of their own that may crash, hang or ask for too much.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>

namespace diffuse {

// What the work in the child tells its parent.
class ToParent {
public:
    explicit ToParent(int words, int memory) : words_(words), memory_(memory) {}

    // The name of the format that the child takes the file for.
    void name(const std::string& format) const;
    // What the headers tell, and the memory that is shared for so many bytes of samples. From here
    // on the child may use as much memory of its own as that many bytes ask for.
    [[nodiscard]] std::byte* promise(const std::string& header, std::size_t bytes) const;

private:
    int words_, memory_;
};

// Shared memory that the child has filled.
using Samples = std::shared_ptr<const std::byte[]>;

struct FromChild {
    std::string header;
    Samples samples;
};

// Runs `work` in a forked child that has no threads but its own, cannot write to a file or start a
// program, and leaves no core. Its memory is limited by `inputBytes` and then by its promise; so is
// the time in which it makes no progress.
// Throws std::runtime_error with one line if the work throws, the child dies or meets a limit: what
// a Refusal says; otherwise "damaged, or not FORMAT:" and the last words of the reader.
FromChild runApart(std::uintmax_t inputBytes, const std::function<void(const ToParent&)>& work);

}  // namespace diffuse
