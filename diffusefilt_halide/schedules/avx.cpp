// The pipelines of instruction set avx: AVX, which has SSE4.1, and nothing above it.
#if !defined(__AVX__) || defined(__AVX2__) || defined(__FMA__) || defined(__F16C__)
#error "built for another processor than one with AVX"
#endif

#include "schedules/pathsOfSet.h"

#define DIFFUSEFILT_PATHS_IF_none(...)
#define DIFFUSEFILT_PATHS_IF_avx(...) DIFFUSEFILT_PATHS(__VA_ARGS__)
#define DIFFUSEFILT_PATHS_IF_avx2(...)

#include "schedules/expandPaths.h"
