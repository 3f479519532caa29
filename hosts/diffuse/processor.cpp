#include "processor.h"

#include <stdexcept>

namespace diffuse {

namespace {

// For avx, avx2 and fma the compiler's test asks the operating system too: CPUID leaf 1 must show
// OSXSAVE, and XGETBV bits 1 and 2 of XCR0 (the SSE and the AVX state are saved). BMI1 works on
// general registers and needs no such state.
bool canRunAvx() {
    return __builtin_cpu_supports("avx");
}

bool canRunAvx2() {
    return canRunAvx() && __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma") &&
           __builtin_cpu_supports("bmi");
}

}  // namespace

std::string chooseInstructionSet(const std::string& wanted) {
    if (wanted == "auto") return canRunAvx2() ? "avx2" : canRunAvx() ? "avx" : "none";
    if ((wanted == "avx" && !canRunAvx()) || (wanted == "avx2" && !canRunAvx2())) {
        throw std::runtime_error("this processor or its operating system cannot run the " + wanted +
                                 " pipelines, --instruction-set auto finds those that it can");
    }
    return wanted;
}

}  // namespace diffuse
