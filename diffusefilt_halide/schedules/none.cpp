// The pipelines of instruction set none: baseline x86-64, whatever the command line of
// the build says.
#if defined(__SSE3__) || defined(__SSE4_1__) || defined(__AVX__) || defined(__FMA__)
#error "built for a processor above the baseline"
#endif

#include "schedules/pathsOfSet.h"

#define DIFFUSEFILT_PATHS_IF_none(...) DIFFUSEFILT_PATHS(__VA_ARGS__)
#define DIFFUSEFILT_PATHS_IF_avx(...)
#define DIFFUSEFILT_PATHS_IF_avx2(...)

#include "schedules/expandPaths.h"
