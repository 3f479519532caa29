// The pipelines of instruction set avx2: AVX2, FMA3 and BMI1.
#if !defined(__AVX2__) || !defined(__FMA__) || !defined(__BMI__) || defined(__AVX512F__)
#error "built for another processor than one with AVX2, FMA3 and BMI1"
#endif

#include "schedules/pathsOfSet.h"

#define DIFFUSEFILT_PATHS_IF_none(...)
#define DIFFUSEFILT_PATHS_IF_avx(...)
#define DIFFUSEFILT_PATHS_IF_avx2(...) DIFFUSEFILT_PATHS(__VA_ARGS__)

#include "schedules/expandPaths.h"
