// A host that puts functions of its own in the place of the library's, the runtime's or the
// math library's: definitions of this program come first in the order of symbol lookup.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <mutex>
#include <stdexcept>

#include "diffusefilt_halide.h"
#include "support/FrameCall.h"

namespace {

int entryCalls = 0;
std::string lastMessage;

std::mutex argumentsMutex;
std::vector<double> expArguments;
int floorCalls = 0;
bool expThrows = false;
bool errorThrows = false;

template <class T>
T callNext(const char* name, T argument) {
    using Function = T (*)(T);
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name))(argument);
}

}  // namespace

int diffusefilt2_minimal_quadratic_float64_none(halide_buffer_t*, double gradTIn,
                                                halide_buffer_t*) {
    ++entryCalls;
    return static_cast<int>(gradTIn);
}

extern "C" void halide_error(void*, const char* message) {
    if (errorThrows) throw std::runtime_error("thrown by halide_error");
    lastMessage = message;
}

// Under another name, as the header's declaration would not let it throw.
double interposedExp(double x) __asm__("exp");
double interposedExp(double x) {
    if (expThrows) throw std::runtime_error("thrown by exp");
    const std::lock_guard lock(argumentsMutex);
    expArguments.push_back(x);
    return callNext("exp", x);
}

extern "C" float floorf(float x) noexcept {
    const std::lock_guard lock(argumentsMutex);
    ++floorCalls;
    return callNext("floorf", x);
}

namespace {

using namespace support;
using diffusefilt::Conduction;
using diffusefilt::InstructionSet;

TEST(Interposed, EntryCatchesTheArgumentVector) {
    double gradTIn = 77;
    void* args[] = {nullptr, &gradTIn, nullptr};
    EXPECT_EQ(diffusefilt2_minimal_quadratic_float64_none_argv(args), 77);
    EXPECT_EQ(entryCalls, 1);
}

TEST(Interposed, ErrorReceivesTheMessages) {
    EXPECT_EQ(pipelines().back().entry(nullptr, 1.0, nullptr), -12);
    EXPECT_EQ(lastMessage, "Buffer argument keyimForType is NULL");
}

// All reporters are the runtime's: none takes memory by the hook, and nothing passes them.
TEST(InterposedDeathTest, ReportersAreOfOneKind) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    FrameCall noHost(pipelines().back(), 30);
    noHost.output.host = nullptr;
    noHost.output.device = 1;
    const struct {
        std::function<int()> call;
        std::string message;
    } faults[] = {{[] { return pipelines().back().entry(nullptr, 1.0, nullptr); },
                   "Buffer argument keyimForType is NULL"},
                  {[&] { return noHost.run(); },
                   "The host pointer of Output buffer diffusefilt3 is null, but the pipeline will "
                   "access it on the host."}};
    const auto malloc = halide_set_custom_malloc([](void*, size_t) -> void* { return nullptr; });
    for (const auto& [call, message] : faults) {
        EXPECT_LT(call(), 0);
        EXPECT_EQ(lastMessage, message);
        errorThrows = true;
        EXPECT_DEATH(call(), "terminate called");
        errorThrows = false;
    }
    halide_set_custom_malloc(malloc);
}

class LibraryCalls : public PipelineTest {
protected:
    // Every element of the vectors that are computed, those of a shifted one twice, for
    // each of the neighbours, also those that the boundary rule replaced.
    void expectCalls(int width, int outputWidth, int elementsOfRow) const {
        FrameCall call(GetParam(), width);
        call.outputDim[0].extent = outputWidth;
        expArguments.clear();
        floorCalls = 0;
        call.run();
        const bool exponential = variant().conduction == Conduction::exponential;
        const bool none = variant().instructionSet == InstructionSet::none;
        const int calls = elementsOfRow * (planar() ? 4 : 4 * 3) * neighbours();
        EXPECT_EQ(expArguments.size(), size_t(exponential && !narrow() ? calls : 0));
        EXPECT_EQ(floorCalls, exponential && narrow() && none ? calls : 0);
    }
};

TEST_P(LibraryCalls, OneForEachLaneOfEachNeighbour) {
    const int L = variant().lanes();
    expectCalls(3 * L + 1, 3 * L + 1, 4 * L);
    expectCalls(L, 3, 3);  // in line
}

INSTANTIATE_TEST_SUITE_P(Pipelines, LibraryCalls, testing::ValuesIn(pipelines()), nameOf);

// For the row 0 1 4 and two lanes: each neighbour of a vector asks for its lanes in
// rising order, with the argument -(d^2).
TEST(ExpCalls, LanesRise) {
    const Pipeline* pipeline = findPipeline("diffusefilt2_minimal_exponential_float64_none");
    ASSERT_NE(pipeline, nullptr);
    FrameCall call(*pipeline, 3);
    call.inputDim[1].extent = call.outputDim[1].extent = 1;
    const double row[] = {0, 1, 4};
    std::copy_n(row, 3, reinterpret_cast<double*>(call.inputMemory.data()));
    call.gradTIn = 1;
    expArguments.clear();
    EXPECT_EQ(call.run(), 0);
    std::map<std::pair<double, double>, int> lanes;
    for (size_t i = 0; i + 1 < expArguments.size(); i += 2) {
        ++lanes[{expArguments[i], expArguments[i + 1]}];
    }
    const std::map<std::pair<double, double>, int> expected = {
        {{0, -1}, 1}, {{-1, -9}, 2}, {{-9, 0}, 1}, {{0, 0}, 4}};  // west, both, east, the rest
    EXPECT_EQ(lanes, expected);
}

// A task cannot fail: what is thrown below a parallel body ends the process, before it
// could reach the host.
TEST(ExpCallsDeathTest, NothingPassesAParallelBody) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    FrameCall call(*findPipeline("diffusefilt2_minimal_exponential_float64_none"), 30);
    expThrows = true;
    EXPECT_DEATH(call.run(), "terminate called");
    expThrows = false;
}

}  // namespace
