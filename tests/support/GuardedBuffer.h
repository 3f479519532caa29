// Memory between two inaccessible pages: an access past the block that touches one of
// them is a fault, not a silent read.
#pragma once

#include <cstddef>

namespace support {

enum class Placement { atEnd, atBeginning, inMiddle };
constexpr int placements = 3;

class GuardedBuffer {
public:
    // Room for `capacity` bytes, rounded up to whole pages. Throws std::bad_alloc.
    explicit GuardedBuffer(std::size_t capacity);
    ~GuardedBuffer();
    GuardedBuffer(const GuardedBuffer&) = delete;
    GuardedBuffer& operator=(const GuardedBuffer&) = delete;

    // A block of `count` elements that ends or begins at an inaccessible page, or lies far
    // from both. All blocks of a buffer share its memory. Throws std::length_error above the
    // capacity.
    template <class T>
    T* place(std::size_t count, Placement placement) {
        return static_cast<T*>(placeBytes(count * sizeof(T), sizeof(T), placement));
    }

    std::size_t capacity() const { return capacity_; }

    void makeReadOnly();
    void makeWritable();

private:
    void* placeBytes(std::size_t bytes, std::size_t alignment, Placement placement);

    std::size_t capacity_;
    std::size_t pageSize_;
    std::byte* begin_;  // of the accessible pages
};

}  // namespace support
