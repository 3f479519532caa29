// SPDX-License-Identifier: MIT
// Memory between two inaccessible pages: an access past the block that touches one of
// them is a fault, not a silent read.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <new>
#include <stdexcept>
#include <system_error>

namespace support {

enum class Placement { atEnd, atBeginning, inMiddle };
constexpr int placements = 3;

class GuardedBuffer {
public:
    // Room for `capacity` bytes, rounded up to whole pages. Throws std::bad_alloc.
    explicit GuardedBuffer(std::size_t capacity)
        : capacity_((capacity + pageSize_ - 1) / pageSize_ * pageSize_) {
        void* mapping =
            mmap(nullptr, capacity_ + 2 * pageSize_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (mapping == MAP_FAILED) throw std::bad_alloc();
        begin_ = static_cast<std::byte*>(mapping) + pageSize_;
        makeWritable();
    }
    ~GuardedBuffer() { munmap(begin_ - pageSize_, capacity_ + 2 * pageSize_); }
    GuardedBuffer(const GuardedBuffer&) = delete;
    GuardedBuffer& operator=(const GuardedBuffer&) = delete;

    // A block of `count` elements that ends or begins at an inaccessible page, or lies far
    // from both. All blocks of a buffer share its memory. Throws std::length_error above the
    // capacity.
    template <class T>
    T* place(std::size_t count, Placement placement) {
        const std::size_t bytes = count * sizeof(T);
        if (bytes > capacity_) throw std::length_error("block larger than the guarded buffer");
        const std::size_t room = capacity_ - bytes;
        const std::size_t offset = placement == Placement::atBeginning ? 0
                                   : placement == Placement::atEnd
                                       ? room
                                       : room / 2 / sizeof(T) * sizeof(T);
        return reinterpret_cast<T*>(begin_ + offset);
    }

    void makeReadOnly() { protect(PROT_READ); }
    void makeWritable() { protect(PROT_READ | PROT_WRITE); }

private:
    void protect(int protection) {
        if (mprotect(begin_, capacity_, protection) != 0) {
            throw std::system_error(errno, std::generic_category(), "mprotect");
        }
    }

    const std::size_t pageSize_ = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const std::size_t capacity_;
    std::byte* begin_;  // of the accessible pages
};

}  // namespace support
