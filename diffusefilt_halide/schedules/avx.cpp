// SPDX-License-Identifier: MIT
// The pipelines of instruction set avx: AVX, which has SSE4.1, and nothing above it.
#include "schedules/pathsOfSet.h"

#define PIPELINE_avx(...) DIFFUSEFILT_PATHS(__VA_ARGS__, avx)
#include "pipelines/pipelines.def"
