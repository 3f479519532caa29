# SPDX-License-Identifier: MIT
"""Samples of any numeric type as elements of the arithmetic, and back, as the command line host
converts them."""
from __future__ import annotations

from typing import Any, Optional

import numpy
import numpy.typing

from diffusefilt._steps import Array

_BLOCK = 1 << 16  # elements that are rounded at a time, few enough for a processor's cache


def arithmetic_of(samples: "numpy.dtype[Any]",
                  wanted: Optional[numpy.typing.DTypeLike]) -> "numpy.dtype[Any]":
    """`wanted`, or by default float32 for float16 and float32, and float64 for all other types.

    TypeError for samples that are no integers and no floats of up to 64 bits, or that have another
    byte order than this machine, and for another arithmetic."""
    if not (samples.kind in "iu" or samples.char in "efd") or not samples.isnative:
        raise TypeError("an image must be of integers, float16, float32 or float64 in this "
                        f"machine's byte order, not {samples.str} ({samples})")
    if wanted is None:
        return numpy.dtype("f4" if samples.char in "ef" else "f8")
    chosen = numpy.dtype(wanted)
    if chosen.char not in "fd" or not chosen.isnative:
        raise TypeError(f"dtype, of the arithmetic, must be float32 or float64, not {chosen}")
    return chosen


def require_whole(samples: Array) -> None:
    """ValueError for integers that float64 does not hold, which the command line host refuses."""
    if samples.dtype.itemsize == 8 and samples.dtype.kind in "iu" and samples.size:
        if samples.max() > 2**53 or samples.min() < -2**53:
            raise ValueError("an image must not hold whole numbers beyond 2^53, which would be "
                             "rounded")


def to_arithmetic(samples: Array, arithmetic: "numpy.dtype[Any]") -> Array:
    """A new array in C order. ValueError as require_whole."""
    require_whole(samples)
    return samples.astype(arithmetic, order="C")


def to_samples(values: Array, samples: "numpy.dtype[Any]") -> Array:
    """A new array, as write_samples fills it."""
    out = numpy.empty(values.shape, samples)
    write_samples(values, out)
    return out


def write_samples(values: Array, out: Array) -> None:
    """Integers are rounded to the nearest, halves away from 0, and saturated; a NaN becomes the
    lowest. Floats take the nearest value of their type."""
    if out.dtype.kind == "f":
        with numpy.errstate(over="ignore"):
            out[...] = values
        return
    rows = max(_BLOCK // max(values[0].size, 1), 1)
    for start in range(0, len(values), rows):
        _round(values[start:start + rows], out[start:start + rows])


def _round(values: Array, out: Array) -> None:
    limits = numpy.iinfo(out.dtype)
    with numpy.errstate(invalid="ignore"):
        whole = numpy.trunc(values)
        away = numpy.abs(values - whole) >= 0.5  # exact, as adding 0.5 is not
        numpy.add(whole, numpy.copysign(away, values, dtype=whole.dtype), out=whole)
    # The highest of 64 bits is no float; what reaches it is put in behind.
    above = whole >= float(limits.max)
    numpy.fmax(whole, float(limits.min), out=whole)
    whole[above] = 0
    out[...] = whole.astype(out.dtype)
    out[above] = limits.max
