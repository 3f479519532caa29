#include <algorithm>
#include <cmath>

#include "peers.h"

namespace peers {
namespace {

// The empty statements make the compiler believe that the divisor changes and that the
// quotient is used; they cost nothing and order nothing.
template <class T, int bytes>
[[gnu::always_inline]] inline void divide(int64_t count) {
    typedef T Vector __attribute__((vector_size(bytes)));
    const Vector one = Vector{} + T(1);
    Vector divisor = one + one;
    for (int64_t i = 0; i < count; ++i) {
        asm volatile("" : "+x"(divisor));
        const Vector quotient = one / divisor;
        asm volatile("" : : "x"(quotient));
    }
}

__attribute__((target("avx"))) void divideWideDoubles(int64_t count) {
    divide<double, 32>(count);
}
__attribute__((target("avx"))) void divideWideFloats(int64_t count) {
    divide<float, 32>(count);
}

}  // namespace

void divideVectors(diffusefilt::PipelineVariant variant, int64_t count) {
    const bool isDouble = variant.elementBits() == 64;
    if (rulesOf(variant.instructionSet).vectorBytes == 32) {
        isDouble ? divideWideDoubles(count) : divideWideFloats(count);
    } else {
        isDouble ? divide<double, 16>(count) : divide<float, 16>(count);
    }
}

void callExp(const std::vector<double>& arguments, int64_t count) {
    for (int64_t left = count; left > 0; left -= int64_t(arguments.size())) {
        const double* const end = arguments.data() + std::min(left, int64_t(arguments.size()));
        for (const double* u = arguments.data(); u != end; ++u) {
            const double result = std::exp(*u);
            asm volatile("" : : "x"(result));
        }
    }
}

}  // namespace peers
