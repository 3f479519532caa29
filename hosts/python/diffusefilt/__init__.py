# SPDX-License-Identifier: MIT
"""Anisotropic diffusion (Perona and Malik, 1990) of NumPy arrays by libdiffusefilt_halide.

>>> import diffusefilt, numpy
>>> noisy = numpy.random.default_rng(1).normal(100, 10, (60, 80))
>>> smooth = diffusefilt.denoise(noisy)

`denoise` takes images and volumes of any numeric type, with or without channels, and finds a
threshold by their noise; diffusefilt.dask has it for arrays that are larger than memory. What
follows is about the exact layer below, `step`, `iterate` and `step_slab`.

Arrays have the shape (rows, columns) or (planes, rows, columns) and hold float32 or float64, in
which all arithmetic is done; they are never converted. The last axis is dimension 0 of the
library. Memory is handed over as it is where the elements of the last axis are adjacent: in C
order, and with gaps or in reversed order along the other axes; memory that may only be read, such
as a memory map, serves as an image. Any other image is copied first; an `out` of that kind is
refused.

`threshold` is the gradient threshold K, in the units of the elements: differences well below it
are smoothed, differences well above it kept. It must be positive; infinity is linear diffusion.
A NaN in an image spreads to the elements that read it. An empty image gives an empty result.

`connectivity` is "minimal" (4 neighbours in 2-D, 6 in 3-D) or "maximal" (8 and 26). `conduction`,
the conductance of a difference d, is "quadratic", 1 / (1 + (d / K)^2), or "exponential",
exp(-(d / K)^2). `instruction_set` is one of INSTRUCTION_SETS or "auto", the best that this
processor can run; results differ between the sets by rounding.

TypeError: something else than an array of float32 or float64. ValueError: any other argument out
of its range. Error: what the library itself refuses, in its words. Calls release the interpreter's
lock and may run at once in any threads. Where the system refuses the library its threads, at
the first call, there is a RuntimeWarning, and all calls run on the threads that make them.

The library is looked for at import, in this order: the path in the environment variable
DIFFUSEFILT_LIBRARY; beside this module; in the library folders of the prefix that this package is
installed under; in build/release, build/bench, build/package and build/debug of the source tree
that it stands in; where the dynamic linker looks. ImportError if it is not found.
"""
from diffusefilt._axes import (CONDUCTIONS, CONNECTIVITIES, INSTRUCTION_SETS, Conduction,
                               Connectivity, InstructionSet)
from diffusefilt._denoise import (CorrelatedNoiseWarning, Estimate, Threshold, denoise, estimate,
                                  estimate_noise, estimate_threshold)
from diffusefilt._library import LIBRARY, Error, best_instruction_set
from diffusefilt._steps import Array, Progress, Region, iterate, pipeline_name, step, step_slab
from diffusefilt._version import VERSION

__all__ = ["Array", "CONDUCTIONS", "CONNECTIVITIES", "Conduction", "Connectivity",
           "CorrelatedNoiseWarning", "Error", "Estimate", "INSTRUCTION_SETS", "InstructionSet",
           "LIBRARY", "Progress", "Region", "Threshold", "best_instruction_set", "denoise",
           "estimate", "estimate_noise", "estimate_threshold", "iterate", "pipeline_name", "step",
           "step_slab"]

__version__ = VERSION
