"""The estimates of hosts/noise, which the command line host makes its thresholds by."""
from __future__ import annotations

import ctypes
import functools
import math
import os
from typing import Any, Sequence

from diffusefilt import _library
from diffusefilt._axes import EXPONENTIAL
from diffusefilt._library import BufferPointer, halide_buffer_t
from diffusefilt._steps import Array, readable

FILE_NAME = "libdiffusefilt_noise.so"


def sigma(channels: Sequence[Array]) -> float:
    """Of channels of 2 or 3 dimensions, none of them empty, taken together."""
    records, kept = zip(*(readable(c, (0,) * c.ndim, c.shape) for c in channels))
    found: float = _estimates().diffusefilt_noise_sigma(
        (halide_buffer_t * len(records))(*records), len(records))
    if math.isnan(found):
        raise MemoryError("no memory to estimate the noise")
    return found


def threshold(noise: float, values: float, conduction: str, iterations: int) -> float:
    """For noise of this standard deviation in values of this range."""
    found: float = _estimates().diffusefilt_noise_threshold(
        noise, values, conduction == EXPONENTIAL, iterations)
    return found


@functools.lru_cache(maxsize=None)
def _estimates() -> Any:
    folder = os.path.dirname(_library.LIBRARY)
    places = [os.path.join(folder, FILE_NAME)] if folder else []
    places += map(str, _library.candidates(FILE_NAME))
    try:
        library = ctypes.CDLL(next((p for p in places if os.path.isfile(p)), FILE_NAME))
    except OSError as error:
        raise ImportError(f"diffusefilt cannot load its estimate of noise: {error}") from None
    library.diffusefilt_noise_sigma.argtypes = [BufferPointer, ctypes.c_int]
    library.diffusefilt_noise_sigma.restype = ctypes.c_double
    library.diffusefilt_noise_threshold.argtypes = [
        ctypes.c_double, ctypes.c_double, ctypes.c_int, ctypes.c_int]
    library.diffusefilt_noise_threshold.restype = ctypes.c_double
    return library
