/* Public interface of libdiffusefilt_halide.so: one explicit step of anisotropic
 * diffusion (Perona and Malik, 1990) on a 2-D image or a 3-D volume. C99 and C++.
 *
 * Every pipeline P has three functions:
 *
 *   int P(keyimForType, gradTIn, output)
 *       Filters `keyimForType` (input, only read) into `output`. Both have the element
 *       type of the pipeline, a stride of 1 in dimension 0 and separate memory, which
 *       stays the caller's. `gradTIn` is the gradient threshold K, in the units of the
 *       elements: differences well below it are smoothed, differences well above it
 *       kept. It is a double in every pipeline and is not tested: 0, infinities and NaN
 *       run on with their IEEE results.
 *       Coordinates are absolute. The input is read at coordinates clamped to
 *       0 .. extent - 1 in each dimension, whatever its min is. Where the input's
 *       dimension 0 is wider than one vector, the output's must hold a whole vector.
 *       A buffer with null host and device 0 is filled in with the shape the call
 *       needs, and nothing is filtered.
 *       Returns 0, or the negative code of the error reported through halide_error,
 *       or the result of the parallel loop. The default error handler prints and
 *       aborts: install one with halide_set_error_handler to receive codes.
 *       Any number of calls may run at once on separate buffers.
 *
 *   int P_argv(args)
 *       The same with { &keyimForType, &gradTIn, &output } as an array of pointers.
 *
 *   const struct halide_filter_metadata_t *P_metadata(void)
 *       The constant description of the pipeline.
 *
 * HalideRuntime.h holds the records; it may be included before or after this header.
 */
#ifndef DIFFUSEFILT_HALIDE_H
#define DIFFUSEFILT_HALIDE_H

/* X(name) for each of the 48 pipelines, in the library's order. */
#define DIFFUSEFILT_FOR_EACH_PIPELINE(X)             \
    X(diffusefilt2_maximal_exponential_float32_avx)  \
    X(diffusefilt2_maximal_exponential_float32_avx2) \
    X(diffusefilt2_maximal_exponential_float32_none) \
    X(diffusefilt2_maximal_exponential_float64_avx)  \
    X(diffusefilt2_maximal_exponential_float64_avx2) \
    X(diffusefilt2_maximal_exponential_float64_none) \
    X(diffusefilt2_maximal_quadratic_float32_avx)    \
    X(diffusefilt2_maximal_quadratic_float32_avx2)   \
    X(diffusefilt2_maximal_quadratic_float32_none)   \
    X(diffusefilt2_maximal_quadratic_float64_avx)    \
    X(diffusefilt2_maximal_quadratic_float64_avx2)   \
    X(diffusefilt2_maximal_quadratic_float64_none)   \
    X(diffusefilt2_minimal_exponential_float32_avx)  \
    X(diffusefilt2_minimal_exponential_float32_avx2) \
    X(diffusefilt2_minimal_exponential_float32_none) \
    X(diffusefilt2_minimal_exponential_float64_avx)  \
    X(diffusefilt2_minimal_exponential_float64_avx2) \
    X(diffusefilt2_minimal_exponential_float64_none) \
    X(diffusefilt2_minimal_quadratic_float32_avx)    \
    X(diffusefilt2_minimal_quadratic_float32_avx2)   \
    X(diffusefilt2_minimal_quadratic_float32_none)   \
    X(diffusefilt2_minimal_quadratic_float64_avx)    \
    X(diffusefilt2_minimal_quadratic_float64_avx2)   \
    X(diffusefilt2_minimal_quadratic_float64_none)   \
    X(diffusefilt3_maximal_exponential_float32_avx)  \
    X(diffusefilt3_maximal_exponential_float32_avx2) \
    X(diffusefilt3_maximal_exponential_float32_none) \
    X(diffusefilt3_maximal_exponential_float64_avx)  \
    X(diffusefilt3_maximal_exponential_float64_avx2) \
    X(diffusefilt3_maximal_exponential_float64_none) \
    X(diffusefilt3_maximal_quadratic_float32_avx)    \
    X(diffusefilt3_maximal_quadratic_float32_avx2)   \
    X(diffusefilt3_maximal_quadratic_float32_none)   \
    X(diffusefilt3_maximal_quadratic_float64_avx)    \
    X(diffusefilt3_maximal_quadratic_float64_avx2)   \
    X(diffusefilt3_maximal_quadratic_float64_none)   \
    X(diffusefilt3_minimal_exponential_float32_avx)  \
    X(diffusefilt3_minimal_exponential_float32_avx2) \
    X(diffusefilt3_minimal_exponential_float32_none) \
    X(diffusefilt3_minimal_exponential_float64_avx)  \
    X(diffusefilt3_minimal_exponential_float64_avx2) \
    X(diffusefilt3_minimal_exponential_float64_none) \
    X(diffusefilt3_minimal_quadratic_float32_avx)    \
    X(diffusefilt3_minimal_quadratic_float32_avx2)   \
    X(diffusefilt3_minimal_quadratic_float32_none)   \
    X(diffusefilt3_minimal_quadratic_float64_avx)    \
    X(diffusefilt3_minimal_quadratic_float64_avx2)   \
    X(diffusefilt3_minimal_quadratic_float64_none)

#ifdef __cplusplus
extern "C" {
#endif

struct halide_buffer_t;
struct halide_filter_metadata_t;

#define DIFFUSEFILT_DECLARE_PIPELINE(name)                         \
    int name(struct halide_buffer_t* keyimForType, double gradTIn, \
             struct halide_buffer_t* output);                      \
    int name##_argv(void** args);                                  \
    const struct halide_filter_metadata_t* name##_metadata(void);

DIFFUSEFILT_FOR_EACH_PIPELINE(DIFFUSEFILT_DECLARE_PIPELINE)

#undef DIFFUSEFILT_DECLARE_PIPELINE

#ifdef __cplusplus
}
#endif

#endif
