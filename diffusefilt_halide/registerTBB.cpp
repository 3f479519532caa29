// SPDX-License-Identifier: MIT
// The back end of the runtime's parallel loop: tbb::parallel_for. The library's one
// load-time initialiser installs it; pipelines go on calling halide_do_par_for and know
// nothing of it. Built hidden: the only way in is the runtime's hook.
#include <HalideRuntime.h>
#include <oneapi/tbb/parallel_for.h>

#include "arithmetic/coordinates.h"

extern "C" {

// Runs the tasks min .. min + extent - 1 and returns 0, or the status of a task that
// failed. A failure stops nothing: all other tasks run. Failures overwrite each other by
// plain stores, so that of several one is returned, whichever was stored last. Each task
// goes through halide_do_task, so that a host's task handler stays in force.
int tbb_do_par_for(void* user_context, int (*f)(void*, int, uint8_t*), int min, int extent,
                   uint8_t* state) {
    int exit_status = 0;
    const int end = diffusefilt::plus(min, extent);  // wraps, and then the range is empty
    if (min >= end || extent <= 0) return exit_status;
    tbb::parallel_for(min, end, [&user_context, &f, &state, &exit_status](int idx) {
        const int job_status = halide_do_task(user_context, f, idx, state);
        if (job_status != 0) exit_status = job_status;
    });
    return exit_status;
}

// Runs once, at load, before any pipeline can be called.
[[gnu::constructor]] void overRideWithTBB() {
    halide_set_custom_do_par_for(tbb_do_par_for);
}

}  // extern "C"
