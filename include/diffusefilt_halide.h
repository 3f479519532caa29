// SPDX-License-Identifier: MIT
/** @file
 * Public interface of libdiffusefilt_halide.so: one explicit step of anisotropic
 * diffusion (Perona and Malik, 1990) on a 2-D image or a 3-D volume. C99 and C++.
 *
 * Each of the 48 pipelines P of #DIFFUSEFILT_FOR_EACH_PIPELINE has three functions.
 *
 *     int P(struct halide_buffer_t *keyimForType, double gradTIn, struct halide_buffer_t *output)
 *
 * filters `keyimForType`, which is only read, into `output`. Both have the element type of
 * the pipeline, 2 or 3 dimensions by its name, a stride of 1 in dimension 0 and separate
 * memory, which stays the caller's. The other strides are free. `min` + `extent` of a
 * dimension must not pass 2^31 - 1.
 *
 * `gradTIn` is the gradient threshold K, in the units of the elements: differences well
 * below it are smoothed, differences well above it kept. It is a double in every pipeline
 * (`float32` pipelines narrow it once) and is not tested: 0, infinities and NaN run on with
 * their IEEE results.
 *
 * Coordinates are absolute. The input is read at coordinates clamped to 0 .. extent - 1 in
 * each dimension, whatever its `min` is. Where the input is wider than a vector in dimension
 * 0 (16 bytes in `none`, 32 in `avx` and `avx2`), the output must hold a whole vector.
 *
 * A buffer with null `host` and `device` 0 is filled in with the shape that the call needs,
 * and nothing is filtered; the extents of the input must be set to the image's before.
 *
 * Returns 0, the negative code of the error reported through halide_error, or the result of
 * the parallel loop. The runtime's default error handler prints and aborts: install another
 * with halide_set_error_handler to receive codes. Any number of calls may run at once on
 * separate buffers. The processor is not tested: `avx` needs AVX, `avx2` AVX2, FMA3 and BMI1.
 *
 *     int P_argv(void **args)
 *
 * is the same, with { keyimForType, &gradTIn, output } as an array of pointers.
 *
 *     const struct halide_filter_metadata_t *P_metadata(void)
 *
 * returns the constant description of the pipeline.
 *
 * The records are those of Halide's runtime. HalideRuntime.h is included where the compiler finds
 * it; it may also be included before. Elsewhere diffusefilt_halide_records.h declares what a host
 * needs, with the same binary interface.
 */
#ifndef DIFFUSEFILT_HALIDE_H
#define DIFFUSEFILT_HALIDE_H

#ifndef HALIDE_HALIDERUNTIME_H
#ifdef __has_include
#if __has_include(<HalideRuntime.h>)
#include <HalideRuntime.h>
#endif
#endif
#endif
#ifndef HALIDE_HALIDERUNTIME_H
#include <diffusefilt_halide_records.h>
#endif

/** X(name) for each of the 48 pipelines, in the library's order. */
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
