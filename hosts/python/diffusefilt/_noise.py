# SPDX-License-Identifier: MIT
"""The estimates of hosts/noise, which the command line host makes its thresholds by."""
from __future__ import annotations

import ctypes
import functools
import os
from typing import Any, Sequence

from diffusefilt import _library
from diffusefilt._library import BufferPointer, halide_buffer_t
from diffusefilt._steps import Array, readable

FILE_NAME = "libdiffusefilt_noise.so"


class Record(ctypes.Structure):
    """struct diffusefilt_noise, which explains its fields."""
    _fields_ = [("sigma", ctypes.c_double), ("correlation", ctypes.c_double),
                ("is_correlated", ctypes.c_int), ("threshold", ctypes.c_double)]


def estimate(channels: Sequence[Array], pipeline: str, iterations: int) -> Record:
    """Of channels of one shape, none of them empty, taken together; `pipeline` one for float32.
    Without iterations no threshold is looked for."""
    records, kept = zip(*(readable(c, (0,) * c.ndim, c.shape) for c in channels))
    found = Record()
    if _estimates().diffusefilt_noise_estimate(
            (halide_buffer_t * len(records))(*records), len(records),
            _library.address(pipeline), iterations, ctypes.byref(found)) != 0:
        raise MemoryError("no memory to estimate the noise")
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
    library.diffusefilt_noise_estimate.argtypes = [
        BufferPointer, ctypes.c_int, ctypes.c_void_p, ctypes.c_int, ctypes.POINTER(Record)]
    return library
