// A host that puts functions of its own in the place of the library's or the math
// library's: definitions of this program come first in the order of symbol lookup.
#include <gtest/gtest.h>

#include "diffusefilt_halide.h"
#include "support/FrameCall.h"

namespace {
int entryCalls = 0;
}

int diffusefilt2_minimal_quadratic_float64_none(halide_buffer_t*, double gradTIn,
                                                halide_buffer_t*) {
    ++entryCalls;
    return static_cast<int>(gradTIn);
}

namespace {

TEST(Interposed, EntryCatchesTheArgumentVector) {
    double gradTIn = 77;
    void* args[] = {nullptr, &gradTIn, nullptr};
    EXPECT_EQ(diffusefilt2_minimal_quadratic_float64_none_argv(args), 77);
    EXPECT_EQ(entryCalls, 1);
}

}  // namespace
