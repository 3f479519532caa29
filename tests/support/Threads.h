// Runs a function with a given number of threads for TBB, the caller's included.
#pragma once

#include <tbb/global_control.h>
#include <tbb/task_arena.h>

#include <cstddef>

namespace support {

template <class F>
void withThreads(int threads, F function) {
    const tbb::global_control limit(tbb::global_control::max_allowed_parallelism,
                                    static_cast<std::size_t>(threads));
    tbb::task_arena(threads).execute(function);
}

}  // namespace support
