// How noisy a picture is, and the gradient threshold that suits this noise.
#pragma once

#include "picture.h"
#include "pipelineChoice.h"

namespace diffuse {

// The standard deviation of white Gaussian noise, in the units of the values, from the median
// absolute deviation of the finest diagonal Haar coefficients (Donoho and Johnstone, "Ideal spatial
// adaptation by wavelet shrinkage", Biometrika 81, 1994): edges along the axes and smooth slopes
// cancel in them, and the few that others leave do not move a median. Blocks that touch the lowest
// or highest value of their channel do not count, for noise was cut off there or there was none:
// the background of most medical volumes is exactly 0. All channels that are filtered are taken
// together. 0 if nothing is left to look at.
double noiseSigma(const Picture& picture);

// The gradient threshold for noise of standard deviation `sigma`: a multiple of it that falls with
// the number of steps n, 5.4 n^-0.9 for `quadratic` and 5.4 n^-0.62 for `exponential`, fitted to
// the thresholds of the highest PSNR on a head MRI with noise of 5 to 40 grey values and 1 to 5
// steps. Without noise, a thousandth of the range of the picture, or 1 if that is 0 as well.
double automaticThreshold(double sigma, const Picture& picture, const std::string& conduction,
                          int iterations);

}  // namespace diffuse
