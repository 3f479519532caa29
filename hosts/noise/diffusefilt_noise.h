/* How noisy pictures are, and the gradient threshold that suits this noise: one estimate for all
   hosts, whatever their language. */
#pragma once

#include <HalideRuntime.h>

#ifdef __cplusplus
extern "C" {
#endif

#define DIFFUSEFILT_NOISE_API __attribute__((visibility("default")))

/* The standard deviation of white Gaussian noise, in the units of the elements, from the median
   absolute deviation of the finest diagonal Haar coefficients (Donoho and Johnstone, "Ideal spatial
   adaptation by wavelet shrinkage", Biometrika 81, 1994): edges along the axes and smooth slopes
   cancel in them, and the few that others leave do not move a median. Blocks that touch the lowest
   or highest element of their channel do not count, for noise was cut off there or there was none:
   the background of most medical volumes is exactly 0. Neither do blocks with a NaN or infinity.

   `channels`: `count` records of images or volumes, taken together; integers of 8 to 64 bits,
   float32 or float64, in memory with any strides, none of it empty.

   0 if nothing is left to look at; NaN for any other type or number of dimensions, or where memory
   is lacking. */
DIFFUSEFILT_NOISE_API double diffusefilt_noise_sigma(const struct halide_buffer_t* channels,
                                                     int count);

/* The threshold for noise of standard deviation `sigma`: a multiple of it that falls with the
   number of steps n, 5.4 n^-0.9 or, where the conductance is exp(-(d / K)^2), 5.4 n^-0.62, fitted
   to the thresholds of the highest PSNR on a head MRI with noise of 5 to 40 grey values and 1 to 5
   steps. Without noise, a thousandth of `range`, the highest less the lowest finite element, or 1
   if that is 0 as well. */
DIFFUSEFILT_NOISE_API double diffusefilt_noise_threshold(double sigma, double range,
                                                         int isExponential, int iterations);

#ifdef __cplusplus
}
#endif
