// SPDX-License-Identifier: MIT
// The runtime's clean-ups in the order that the library promises. They run last to first,
// at exit, and find nothing started: the pool of threads is not ours to use. The runtime
// object brings the same four the other way round; its own array is taken out of it.
#include <HalideRuntime.h>

extern "C" {
void halide_cache_cleanup();
void halide_trace_cleanup();
void halide_thread_pool_cleanup();
}

namespace {

using Finaliser = void (*)();

// Aligned as one pointer, or the compiler would leave a gap of null pointers in front.
[[gnu::section(".fini_array"), gnu::used]] alignas(Finaliser) const Finaliser finalisers[] = {
    halide_profiler_shutdown, halide_cache_cleanup, halide_trace_cleanup,
    halide_thread_pool_cleanup};

}  // namespace
