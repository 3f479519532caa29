// SPDX-License-Identifier: MIT
// Runs a function with a given number of threads for the parallel loop, the caller's
// included.
#pragma once

#include <tbb/global_control.h>
#include <tbb/task_arena.h>

#include <cstddef>

namespace support {

// The threads of StdThreadLoop.cpp, which takes TBB's place under the thread sanitizer.
inline int loopThreads = 4;

template <class F>
void withThreads(int threads, F function) {
#ifdef __SANITIZE_THREAD__
    const int before = loopThreads;
    loopThreads = threads;
    function();
    loopThreads = before;
#else
    const tbb::global_control limit(tbb::global_control::max_allowed_parallelism,
                                    static_cast<std::size_t>(threads));
    tbb::task_arena(threads).execute(function);
#endif
}

}  // namespace support
