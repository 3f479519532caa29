// SPDX-License-Identifier: MIT
// Stands in for libFuzzer, whose own code no memory sanitizer sees: random_main [COUNT]
// runs the target on random strings.
#include <cstdio>
#include <cstdlib>

#include "support/RandomNumbers.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count);

int main(int argc, char** argv) {
    const long long runs = argc > 1 ? std::atoll(argv[1]) : 100000;
    support::RandomNumbers random(20240610);
    for (long long i = 0; i < runs; ++i) {
        uint64_t string[16];
        for (uint64_t& word : string) word = random.next();
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(string), sizeof string);
    }
    std::printf("Done %lld runs\n", runs);
    return 0;
}
