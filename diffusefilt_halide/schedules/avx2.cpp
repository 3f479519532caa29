// SPDX-License-Identifier: MIT
// The pipelines of instruction set avx2: AVX2, FMA3 and BMI1.
#include "schedules/pathsOfSet.h"

#define PIPELINE_avx2(...) DIFFUSEFILT_PATHS(__VA_ARGS__, avx2)
#include "pipelines/pipelines.def"
