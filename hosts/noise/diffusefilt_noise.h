// SPDX-License-Identifier: MIT
/* How noisy pictures are, and the gradient threshold that suits this noise: one estimate for all
   hosts, whatever their language. */
#pragma once

#include <HalideRuntime.h>

#ifdef __cplusplus
extern "C" {
#endif

#define DIFFUSEFILT_NOISE_API __attribute__((visibility("default")))

/* A pipeline of the library, which brings its conduction, connectivity and instruction set along.
 */
/* NOLINTNEXTLINE(modernize-use-using): C */
typedef int (*diffusefilt_noise_step)(struct halide_buffer_t* input, double threshold,
                                      struct halide_buffer_t* output);

struct diffusefilt_noise {
    /* Of white Gaussian noise, the standard deviation in the units of the elements: the median of
       the absolute differences of fourth order along all axes, over 0.6745 (the estimator of Donoho
       and Johnstone, "Ideal spatial adaptation by wavelet shrinkage", Biometrika 81, 1994, on
       differences that more of a picture cancels in than in those of first order). 0 if nothing is
       left to look at. */
    double sigma;

    /* How far neighbouring differences of first order go together in another way than those of
       white noise do, in the flattest quarter of the picture, along the axis where that is most: 0
       for white noise, of either sign for any other. */
    double correlation;
    int is_correlated; /* whether that is more than chance: sigma is not to be trusted then */

    /* The one with the smallest risk after the steps: Stein's unbiased estimate of the squared
       error, its divergence measured by moving all elements a little to random sides (Ramani, Blu
       and Unser, "Monte-Carlo SURE", IEEE Trans. Image Process. 17, 2008). In three digits. Without
       noise, a thousandth of the range of the elements looked at, or 1 if that is 0 as well. */
    double threshold;
};

/* What is looked at are tiles all over a picture, of some 150000 elements in 2-D and 260000 in 3-D
   in each channel, whatever its size. Elements at the lowest or highest value of their channel do
   not move: noise was cut off there or there was none, as in the exact 0 around a head. Neither do
   NaN and infinity.

   `channels`: `count` records of images or of volumes of the same shape, none of it empty, taken
   together; integers of 8 to 64 bits, float32 or float64, in memory with any strides.
   `step`: a pipeline for float32 of as many dimensions; not called if `iterations` are 0, which
   leaves the threshold 0.

   Returns 0, or another number if the types, dimensions or shapes are none of those, if memory is
   lacking, or if a step fails. */
DIFFUSEFILT_NOISE_API int diffusefilt_noise_estimate(const struct halide_buffer_t* channels,
                                                     int count, diffusefilt_noise_step step,
                                                     int iterations,
                                                     struct diffusefilt_noise* found);

#ifdef __cplusplus
}
#endif
