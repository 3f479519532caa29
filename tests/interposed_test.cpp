// SPDX-License-Identifier: MIT
// A host that puts functions of its own in the place of the library's, the runtime's or the
// math library's: definitions of this program come first in the order of symbol lookup.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <stdexcept>

#include "diffusefilt_halide.h"
#include "support/FrameCall.h"
#include "support/PipelineTest.h"
#include "support/SmallImage.h"

namespace {

int entryCalls = 0;
std::string lastMessage;
bool expThrows = false;
bool errorThrows = false;
std::vector<double> arguments;  // of exp and floorf, in the order of their calls

// A reporter returns this instead of its own code, where it is set.
const int* reportersCode = nullptr;
std::vector<std::string> reporters;  // that were called

template <class R, class... Arguments>
R callNext(const char* name, Arguments... given) {
    return reinterpret_cast<R (*)(Arguments...)>(dlsym(RTLD_NEXT, name))(given...);
}

template <class... Arguments>
int reported(const char* name, void* userContext, Arguments... given) {
    EXPECT_EQ(userContext, nullptr);
    reporters.emplace_back(name);
    return reportersCode != nullptr ? *reportersCode : callNext<int>(name, userContext, given...);
}

}  // namespace

int diffusefilt2_minimal_quadratic_float64_none(halide_buffer_t* input, double gradTIn,
                                                halide_buffer_t* output) {
    ++entryCalls;
    return input == nullptr ? static_cast<int>(gradTIn)
                            : callNext<int>(__func__, input, gradTIn, output);
}

extern "C" {

void halide_error(void* userContext, const char* message) {
    EXPECT_EQ(userContext, nullptr);
    if (errorThrows) throw std::runtime_error("thrown by halide_error");
    lastMessage = message;
}

int halide_error_buffer_argument_is_null(void* u, const char* name) {
    return reported(__func__, u, name);
}
int halide_error_bad_type(void* u, const char* name, uint32_t found, uint32_t wanted) {
    return reported(__func__, u, name, found, wanted);
}
int halide_error_access_out_of_bounds(void* u, const char* name, int d, int first, int last,
                                      int min, int max) {
    return reported(__func__, u, name, d, first, last, min, max);
}
int halide_error_buffer_extents_negative(void* u, const char* name, int d, int extent) {
    return reported(__func__, u, name, d, extent);
}
int halide_error_constraint_violated(void* u, const char* name, int found, const char* text,
                                     int wanted) {
    return reported(__func__, u, name, found, text, wanted);
}
int halide_error_host_is_null(void* u, const char* name) {
    return reported(__func__, u, name);
}

float floorf(float x) noexcept {
    arguments.push_back(x);
    return callNext<float>("floorf", x);
}

}  // extern "C"

// Under another name, as the header's declaration would not let it throw.
double interposedExp(double x) __asm__("exp");
double interposedExp(double x) {
    if (expThrows) throw std::runtime_error("thrown by exp");
    arguments.push_back(x);
    return callNext<double>("exp", x);
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

// The first fault alone is reported, without a user context, and what the reporter returns comes
// back as it is, 0 too: nothing is filtered.
TEST(Interposed, ReportersDecideTheStatus) {
    const struct {
        std::string reporter;
        std::function<void(FrameCall&)> plant;
    } faults[] = {
        {"buffer_argument_is_null", [](FrameCall& c) { c.arguments[0] = nullptr; }},
        {"buffer_argument_is_null", [](FrameCall& c) { c.arguments[1] = nullptr; }},
        {"bad_type", [](FrameCall& c) { c.buffer[1].type.bits = 8; }},
        {"bad_type", [](FrameCall& c) { c.buffer[0].type.bits = 8; }},
        {"access_out_of_bounds", [](FrameCall& c) { c.dim[1][0].extent = 1; }},
        {"access_out_of_bounds", [](FrameCall& c) { c.dim[0][1].min = 1; }},
        {"buffer_extents_negative", [](FrameCall& c) { c.dim[1][1].extent = -1; }},
        {"constraint_violated", [](FrameCall& c) { c.dim[1][0].stride = 2; }},
        {"constraint_violated", [](FrameCall& c) { c.dim[0][0].stride = 2; }},
        {"host_is_null", [](FrameCall& c) { c.buffer[1].host = nullptr, c.buffer[1].device = 1; }},
        {"host_is_null", [](FrameCall& c) { c.buffer[0].host = nullptr, c.buffer[0].device = 1; }},
    };
    for (const int code : {0, 4711, -5}) {
        for (const auto& [reporter, plant] : faults) {
            FrameCall call(pipelines().back(), 20);
            plant(call);
            reporters.clear();
            reportersCode = &code;
            EXPECT_EQ(call.run(), code) << reporter;
            reportersCode = nullptr;
            EXPECT_EQ(reporters, std::vector<std::string>{"halide_error_" + reporter});
            EXPECT_TRUE(call.outputIsUntouched()) << reporter;
        }
    }
}

// All reporters are the runtime's: none takes memory by the hook, and nothing passes them.
TEST(InterposedDeathTest, ReportersAreOfOneKind) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    FrameCall noHost(pipelines().back(), 30);
    noHost.buffer[1].host = nullptr;
    noHost.buffer[1].device = 1;
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

int runInTurn(void*, halide_task_t task, int min, int extent, uint8_t* closure) {
    for (int i = min; i < min + extent; ++i) EXPECT_EQ(task(nullptr, i, closure), 0);
    return 0;
}

// The calls of exp, or of floorf where the exponential is the library's own and the set has no
// floor: one for each lane of each neighbour, those that the boundary rule replaced and the
// lanes that are computed twice among them. Elements follow each other in the order of memory,
// and so do the lanes of a neighbour; the order of the neighbours is free.
class LibraryCalls : public PipelineTest {
protected:
    bool areMade() const {
        return variant().conduction == Conduction::exponential &&
               (!narrow() || variant().instructionSet == InstructionSet::none);
    }

    template <class T>
    void expectCalls(int width) const {
        SmallImage<T> image(width, 3, planar() ? 0 : 3, T(0));
        for (size_t i = 0; i < image.elements.size(); ++i) image.elements[i] = T(i * i % 23 % 7);
        arguments.clear();
        const halide_do_par_for_t previous = halide_set_custom_do_par_for(runInTurn);
        filtered(GetParam(), image, 1);
        halide_set_custom_do_par_for(previous);

        const int L = variant().lanes();
        const int lanes = width > L ? L : 1;
        size_t next = 0;
        for (int row = 0; row < int(image.elements.size()) / width; ++row) {
            for (int v = 0; areMade() && v < (width + lanes - 1) / lanes; ++v) {
                const int x = std::min(v * lanes, width - lanes);
                std::vector<std::vector<double>> wanted, found;
                for (const auto& offset : reference::neighboursOf(variant())) {
                    wanted.emplace_back();
                    found.emplace_back();
                    for (int lane = 0; lane < lanes; ++lane) {
                        wanted.back().push_back(
                            argument(image, x + lane, row % 3, row / 3, offset));
                        found.back().push_back(next < arguments.size() ? arguments[next++] : NAN);
                    }
                }
                std::sort(wanted.begin(), wanted.end());
                std::sort(found.begin(), found.end());
                ASSERT_EQ(found, wanted) << "row " << row << " from column " << x;
            }
        }
        EXPECT_EQ(next, arguments.size());
    }

private:
    // The square of the difference to a neighbour, negated; floorf's is scaled.
    template <class T>
    static double argument(SmallImage<T>& image, int x, int y, int z, reference::Offset offset) {
        const auto clamped = [&](int d, int v) { return std::clamp(v, 0, image.extent[d] - 1); };
        const T d =
            image(clamped(0, x + offset.dx), clamped(1, y + offset.dy), clamped(2, z + offset.dz)) -
            image(x, y, z);
        return sizeof(T) == sizeof(float) ? double(float(d * d) * -1.44269502f) : -(d * d);
    }
};

TEST_P(LibraryCalls, FollowTheElements) {
    inElementType([&]<class T>(T) {
        for (const int width : {3 * variant().lanes() + 1, variant().lanes()}) {
            expectCalls<T>(width);
        }
    });
}

INSTANTIATE_TEST_SUITE_P(Pipelines, LibraryCalls, testing::ValuesIn(pipelines()), nameOf);

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
