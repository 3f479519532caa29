#include "GuardedBuffer.h"

#include <sys/mman.h>
#include <unistd.h>

#include <new>
#include <stdexcept>
#include <system_error>

namespace support {
namespace {

void protect(void* begin, std::size_t bytes, int protection) {
    if (mprotect(begin, bytes, protection) != 0) {
        throw std::system_error(errno, std::generic_category(), "mprotect");
    }
}

}  // namespace

GuardedBuffer::GuardedBuffer(std::size_t capacity)
    : pageSize_(static_cast<std::size_t>(sysconf(_SC_PAGESIZE))) {
    capacity_ = (capacity + pageSize_ - 1) / pageSize_ * pageSize_;
    void* mapping =
        mmap(nullptr, capacity_ + 2 * pageSize_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapping == MAP_FAILED) throw std::bad_alloc();
    begin_ = static_cast<std::byte*>(mapping) + pageSize_;
    makeWritable();
}

GuardedBuffer::~GuardedBuffer() {
    munmap(begin_ - pageSize_, capacity_ + 2 * pageSize_);
}

void GuardedBuffer::makeReadOnly() {
    protect(begin_, capacity_, PROT_READ);
}

void GuardedBuffer::makeWritable() {
    protect(begin_, capacity_, PROT_READ | PROT_WRITE);
}

void* GuardedBuffer::placeBytes(std::size_t bytes, std::size_t alignment, Placement placement) {
    if (bytes > capacity_) throw std::length_error("block larger than the guarded buffer");
    const std::size_t room = capacity_ - bytes;
    if (placement == Placement::atBeginning) return begin_;
    return begin_ + (placement == Placement::atEnd ? room : room / 2 / alignment * alignment);
}

}  // namespace support
