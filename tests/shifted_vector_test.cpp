// SPDX-License-Identifier: MIT
// The last vector of a row ends on the row's last element and shares elements with the one
// before it: both store the same bits there. A page that cannot be written begins where the
// earlier vector ends, and the fault of the last store shows what that vector left.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "support/Bits.h"
#include "support/PipelineTest.h"
#include "support/RandomCall.h"
#include "support/SmallImage.h"

namespace {

using namespace support;

constexpr size_t rowCapacity = 256;

std::byte* closedPage = nullptr;  // begins the second half of the memory
size_t pageSize = 0;
std::byte rowBefore[rowCapacity];  // what stood in front of it at the fault
int faults = 0;
struct sigaction previousAction;

void openPage(int signal, siginfo_t* info, void*) {
    const auto* at = static_cast<std::byte*>(info->si_addr);
    // A store across the border may be told by its first byte.
    if (at < closedPage - 32 || at >= closedPage + pageSize) {
        sigaction(signal, &previousAction, nullptr);  // meets the fault again on return
        return;
    }
    ++faults;
    std::memcpy(rowBefore, closedPage - rowCapacity, rowCapacity);
    mprotect(closedPage, pageSize, PROT_READ | PROT_WRITE);
}

class ShiftedVector : public PipelineTest {
protected:
    void SetUp() override {
        PipelineTest::SetUp();
        pageSize = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        void* memory =
            mmap(nullptr, 2 * pageSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        ASSERT_NE(memory, MAP_FAILED);
        closedPage = static_cast<std::byte*>(memory) + pageSize;
        struct sigaction action = {};
        action.sa_sigaction = openPage;
        action.sa_flags = SA_SIGINFO;
        sigaction(SIGSEGV, &action, &previousAction);
    }
    void TearDown() override {
        sigaction(SIGSEGV, &previousAction, nullptr);
        munmap(closedPage - pageSize, 2 * pageSize);
    }

    // Filters row `y` of an image, `count` elements from column `x` on, of which those from
    // `border` on lie on the closed page. Returns the row; what stood in front of the page when
    // it was first met is in rowBefore.
    template <class T>
    T* filterRow(SmallImage<T>& image, int x, int y, int count, int border) {
        T* const row = reinterpret_cast<T*>(closedPage) - border;
        const auto [width, height, depth] = image.extent;
        const reference::View<T> output = {
            {image.dimensions, {x, y, depth / 2}, {count, 1, 1}, {1, width, width * height}}, row};
        std::fill_n(row, border, T(junk));
        faults = 0;
        mprotect(closedPage, pageSize, PROT_NONE);
        EXPECT_EQ(GetParam().entry(HalideBuffer(image.view()), 40, HalideBuffer(output)), 0);
        EXPECT_EQ(faults, 1);
        return row;
    }

    // `vectors` whole vectors and `rest` elements: compares what is stored twice.
    template <class T>
    void expectSameStores(SmallImage<T>& image, int x, int y, int vectors, int rest) {
        const int whole = vectors * variant().lanes();
        const T* const row = filterRow(image, x, y, whole + rest, whole);
        const T* const before = reinterpret_cast<T*>(rowBefore + rowCapacity) - whole;
        for (int i = whole - (variant().lanes() - rest); i < whole; ++i) {
            EXPECT_NE(before[i], T(junk));
            EXPECT_TRUE(sameBits(before[i], row[i]))
                << showBits(before[i]) << ", then " << showBits(row[i]) << " at " << i;
        }
    }

    static constexpr double junk = -6328.7212;
};

TEST_P(ShiftedVector, BothStoresHaveTheSameBits) {
    inElementType([&]<class T>(T) {
        const int lanes = variant().lanes();
        RandomCall call = {};
        call.content = Content::noise;
        SmallImage<T> image(4 * lanes, 3, planar() ? 0 : 3, T(0));
        for (call.seed = 0; call.seed < 20; ++call.seed) {
            fillContent(call, image.elements.data(), std::ssize(image.elements));
            for (int rest = 1; rest < lanes; ++rest) {
                // Rows inside and at both borders, that end inside, at and beyond the input.
                for (const int y : {0, 1, 2}) {
                    expectSameStores(image, lanes, y, 1, rest);
                    expectSameStores(image, 2 * lanes - rest, y, 2, rest);
                    expectSameStores(image, -1, y, 4, rest);
                }
            }
        }
    });
}

// avx stores a vector in two halves, the upper one first; the other sets at once.
TEST_P(ShiftedVector, NoLowerHalfIsStoredFirst) {
    inElementType([&]<class T>(T) {
        const int half = variant().lanes() / 2;
        SmallImage<T> image(8 * half, 3, planar() ? 0 : 3, T(1));
        for (const int x : {-1, 0, 2 * half}) {
            filterRow(image, x, 1, 2 * half, half);
            const T* const before = reinterpret_cast<T*>(rowBefore + rowCapacity) - half;
            for (int i = 0; i < half; ++i) EXPECT_EQ(before[i], T(junk)) << x;
        }
    });
}

INSTANTIATE_TEST_SUITE_P(Pipelines, ShiftedVector, testing::ValuesIn(pipelines()), nameOf);

}  // namespace
