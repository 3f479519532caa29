// A host whose own definitions are loaded before the library: preloadedFunctions.cpp
// stands in LD_PRELOAD.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <string>

#include "diffusefilt_halide.h"
#include "support/Pipelines.h"

namespace {

using namespace support;

template <class Function>
Function* preloaded(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_DEFAULT, name));
}

TEST(Preload, HalideErrorReceivesTheMessages) {
    const auto lastMessage = preloaded<const char*()>("preloadedLastMessage");
    ASSERT_NE(lastMessage, nullptr) << "nothing is preloaded";
    const Pipeline& last = pipelines().back();
    EXPECT_EQ(last.entry(nullptr, 1.0, nullptr), -12);
    EXPECT_STREQ(lastMessage(), "Buffer argument keyimForType is NULL");
    halide_dimension_t dim[3] = {{0, 4, 1}, {0, 4, 4}, {0, 4, 16}};
    halide_buffer_t buffer = {};
    buffer.device = 1;
    buffer.dim = dim;
    EXPECT_EQ(last.entry(&buffer, 1.0, &buffer), -3);
    EXPECT_EQ(std::string(lastMessage()).find("Output buffer diffusefilt3 has type float64"), 0u);
}

TEST(Preload, EntryCatchesTheArgumentVector) {
    const auto entryCalls = preloaded<int()>("preloadedEntryCalls");
    ASSERT_NE(entryCalls, nullptr) << "nothing is preloaded";
    double gradTIn = 77;
    void* args[] = {nullptr, &gradTIn, nullptr};
    EXPECT_EQ(diffusefilt3_maximal_quadratic_float32_none_argv(args), 77);
    EXPECT_EQ(entryCalls(), 1);
}

}  // namespace
