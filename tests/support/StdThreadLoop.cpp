// SPDX-License-Identifier: MIT
// The parallel loop of the tests under the thread sanitizer: the packaged TBB is built
// without it, so that its synchronisation is not seen. The contract is that of the loop on
// TBB.
#include <HalideRuntime.h>

#include <algorithm>
#include <atomic>
#include <exception>
#include <limits>
#include <mutex>
#include <thread>
#include <vector>

#include "support/Threads.h"

namespace {

int stdThreadLoop(void* userContext, halide_task_t task, int min, int extent, uint8_t* closure) {
    if (extent <= 0 || min > std::numeric_limits<int>::max() - extent) return 0;
    std::atomic<int> next = 0;
    std::atomic<int> status = 0;
    std::exception_ptr thrown;
    std::mutex thrownMutex;
    const auto work = [&] {
        try {
            for (int i = next++; i < extent; i = next++) {
                const int result = halide_do_task(userContext, task, min + i, closure);
                if (result != 0) status = result;
            }
        } catch (...) {
            const std::lock_guard lock(thrownMutex);
            thrown = std::current_exception();
        }
    };
    std::vector<std::jthread> threads(
        static_cast<std::size_t>(std::min(support::loopThreads, extent) - 1));
    for (std::jthread& thread : threads) thread = std::jthread(work);
    work();
    threads.clear();  // joins
    if (thrown) std::rethrow_exception(thrown);
    return status;
}

const halide_do_par_for_t onTBB = halide_set_custom_do_par_for(stdThreadLoop);

}  // namespace
