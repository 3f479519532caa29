// What preload_test has preloaded: a halide_error and one entry.
#include <HalideRuntime.h>

#include <string>

#include "diffusefilt_halide.h"

namespace {
std::string lastMessage;
int entryCalls = 0;
}  // namespace

extern "C" {

void halide_error(void*, const char* message) {
    lastMessage = message;
}

const char* preloadedLastMessage() {
    return lastMessage.c_str();
}
int preloadedEntryCalls() {
    return entryCalls;
}
}

int diffusefilt3_maximal_quadratic_float32_none(halide_buffer_t*, double gradTIn,
                                                halide_buffer_t*) {
    ++entryCalls;
    return static_cast<int>(gradTIn);
}
