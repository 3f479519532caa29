// SPDX-License-Identifier: MIT
// Work in parts, and the memory for it.
#pragma once

#include <HalideRuntime.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <new>

namespace diffuse {

// Calls `work(begin, end)` for all parts of `count` things, each of `size` but the last, on the
// threads that the library's own loop runs on. `work` throws nothing.
template <typename Work>
void inParts(std::size_t count, std::size_t size, const Work& work) {
    struct Closure {
        std::size_t count, size;
        const Work& work;
    } closure{count, size, work};
    // NOLINTNEXTLINE(readability-non-const-parameter): the type of a task
    const auto task = [](void*, int part, std::uint8_t* bytes) {
        const auto& all = *reinterpret_cast<const Closure*>(bytes);
        const std::size_t begin = part * all.size;
        all.work(begin, std::min(begin + all.size, all.count));
        return 0;
    };
    halide_do_par_for(nullptr, task, 0, static_cast<int>((count + size - 1) / size),
                      reinterpret_cast<std::uint8_t*>(&closure));
}

// Memory that is not set, in large pages where the system has them. Throws std::bad_alloc.
template <typename Element>
std::unique_ptr<Element, void (*)(void*)> roomFor(std::size_t count) {
    constexpr std::size_t page = 2 << 20;
    const std::size_t bytes = (count * sizeof(Element) + page - 1) / page * page;
    void* const room = std::aligned_alloc(page, bytes);
    if (!room) throw std::bad_alloc();
    if (bytes > 2 * page) madvise(room, bytes, MADV_HUGEPAGE);
    return {static_cast<Element*>(room), std::free};
}

}  // namespace diffuse
