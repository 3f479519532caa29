// SPDX-License-Identifier: MIT
// The one memcpy of the library, bound to the oldest version of the symbol, so that the
// library loads on any C library that has it. The linker redirects every other reference
// of the library to memcpy here; the users all stand in the Halide runtime.
#include <cstddef>

// The versioned name is not the one that the linker redirects.
extern "C" void* memcpyOfGlibc225(void* dest, const void* src, std::size_t n);
__asm__(".symver memcpyOfGlibc225, memcpy@GLIBC_2.2.5");

extern "C" [[gnu::visibility("default")]] void* __wrap_memcpy(void* dest, const void* src,
                                                              std::size_t n) {
    return memcpyOfGlibc225(dest, src, n);
}
