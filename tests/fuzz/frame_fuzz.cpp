// SPDX-License-Identifier: MIT
// The frame of every pipeline against its model, on records that libFuzzer makes up: the
// first byte of a string chooses the pipeline, FrameTrial reads the rest.
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "support/FrameTrial.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count) {
    static const auto trial = std::make_unique<support::FrameTrial>();
    if (count == 0) return 0;
    const auto& pipelines = support::pipelines();
    const support::Pipeline& pipeline = pipelines[bytes[0] % pipelines.size()];
    if (!support::processorRuns(pipeline.variant.instructionSet)) return 0;
    const char* wrong = trial->run(pipeline, bytes + 1, count - 1);
    if (wrong == nullptr) return 0;
    std::fprintf(stderr, "%s: %s\n", pipeline.name, wrong);
    std::abort();
}
