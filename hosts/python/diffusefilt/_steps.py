# SPDX-License-Identifier: MIT
"""The exact layer: one step, several, and one on a slab. Hosts import diffusefilt, which tells what
is common to all of it."""
from __future__ import annotations

import ctypes
import functools
import math
import operator
from typing import Any, Callable, Optional, Sequence, Tuple, Union

import numpy
import numpy.typing

from diffusefilt._axes import (CONDUCTIONS, CONNECTIVITIES, MINIMAL, QUADRATIC, Conduction,
                               Connectivity, InstructionSet)
from diffusefilt._library import (call, halide_buffer_t, halide_dimension_t, halide_type_t,
                                  require_one_of, resolve_instruction_set)

Array = numpy.typing.NDArray[Any]
Region = Union[slice, Tuple[slice, ...]]
Progress = Callable[[int, int], Any]
_Shape = Tuple[int, ...]

_LARGEST = 2**31 - 1  # of a coordinate, an extent or a stride
_ORIGIN = {n: (0,) * n for n in (2, 3)}
# By kind and size of a dtype: the codes of HalideRuntime.h for integers, unsigned and floats.
_TYPES = {(kind, size): halide_type_t(code, 8 * size, 1)
          for code, kind in enumerate("iuf") for size in (1, 2, 4, 8)}


def step(image: Array, threshold: float, connectivity: Connectivity = MINIMAL,
         conduction: Conduction = QUADRATIC, instruction_set: InstructionSet = "auto", *,
         region: Optional[Region] = None, out: Optional[Array] = None) -> Array:
    """One explicit step of diffusion.

    Parameters
    ----------
    image : numpy.ndarray
        (rows, columns) or (planes, rows, columns) of float32 or float64. Only read.
    threshold : float
        Gradient threshold K > 0, in the units of `image`.
    connectivity, conduction, instruction_set
        See the package.
    region : slice or tuple of slices, optional
        The part of `image` to compute, like ``numpy.s_[10:20, :, 64:128]``; the whole by default.
        It has the bits that it has in the whole. Where a row of `image` is longer than a vector
        (16 bytes in "none", 32 in the other sets), a row of the region must be at least a vector
        long.
    out : numpy.ndarray, optional
        Takes the result, in the shape of the region and in memory of its own; by default a new
        array in C order. Returned in either case.

    Returns
    -------
    numpy.ndarray
        Of the dtype of `image`.

    Raises
    ------
    TypeError, ValueError, Error
        See the package.

    Examples
    --------
    Differences well below the threshold are smoothed, those well above it kept:

    >>> import numpy
    >>> image = numpy.array([[0., 0., 1.], [0., 0., 1.]])
    >>> step(image, threshold=100).round(2)
    array([[0.  , 0.25, 0.75],
           [0.  , 0.25, 0.75]])
    >>> step(image, threshold=0.01).round(2)
    array([[0., 0., 1.],
           [0., 0., 1.]])
    """
    pipeline = pipeline_name(image, threshold, connectivity, conduction, instruction_set)
    mins, extents = (_ORIGIN[image.ndim], image.shape) if region is None else (
        _region_shape(region, image.shape))
    out = _target(image, extents, out)
    _filter(pipeline, image, _ORIGIN[image.ndim], image.shape, threshold, out, mins)
    return out


def iterate(image: Array, threshold: float, iterations: int,
            connectivity: Connectivity = MINIMAL, conduction: Conduction = QUADRATIC,
            instruction_set: InstructionSet = "auto", *, out: Optional[Array] = None,
            progress: Optional[Progress] = None) -> Array:
    """Several steps of diffusion. Takes memory for two arrays besides `image`, of which `out` is
    one.

    Parameters
    ----------
    image, threshold, connectivity, conduction, instruction_set, out
        As in step.
    iterations : int
        Number of steps; 0 give a copy.
    progress : callable, optional
        Called with (steps done, iterations) after each step. What it raises ends the work; `out`
        then holds nothing of use.

    Returns
    -------
    numpy.ndarray
        Of the dtype of `image`.

    Raises
    ------
    ValueError
        For iterations < 0, and as step.

    Examples
    --------
    >>> import numpy
    >>> noisy = numpy.random.default_rng(1).normal(100, 10, (40, 50))
    >>> bool(iterate(noisy, 30, 4).std() < 4)
    True
    """
    pipeline = pipeline_name(image, threshold, connectivity, conduction, instruction_set)
    iterations = operator.index(iterations)
    if iterations < 0:
        raise ValueError(f"iterations must not be negative, not {iterations}")
    out = _target(image, image.shape, out)
    if iterations == 0:
        out[...] = image
        return out
    other = numpy.empty(image.shape, image.dtype) if iterations > 1 else out
    repeat(pipeline, image, (out, other) if iterations % 2 else (other, out), threshold, iterations,
           progress)
    return out


def step_slab(planes: Array, threshold: float, connectivity: Connectivity = MINIMAL,
              conduction: Conduction = QUADRATIC, instruction_set: InstructionSet = "auto", *,
              first: int, extent: int, start: int, stop: int,
              out: Optional[Array] = None) -> Array:
    """One explicit step on the planes start .. stop - 1 of a volume that is not in memory as a
    whole, or on rows of an image in 2-D. They have the bits that they have in the whole.

    Parameters
    ----------
    planes : numpy.ndarray
        The planes `first` .. first + len(planes) - 1 of the volume, each of them whole; at least
        start - 1 .. stop, as far as the volume has them.
    extent : int
        Number of planes of the volume.

    Returns
    -------
    numpy.ndarray
        The planes start .. stop - 1. All else is as in step.

    Examples
    --------
    >>> import numpy
    >>> image = numpy.random.default_rng(1).normal(0, 1, (9, 20))
    >>> slab = step_slab(image[2:7], 1, first=2, extent=9, start=3, stop=6)
    >>> numpy.array_equal(slab, step(image, 1)[3:6])
    True
    """
    pipeline = pipeline_name(planes, threshold, connectivity, conduction, instruction_set)
    first, extent, start, stop = map(operator.index, (first, extent, start, stop))
    end = first + len(planes)
    if not 0 <= start <= stop <= extent:
        raise ValueError(f"planes {start} .. {stop - 1} do not lie in a volume of {extent}")
    if first < 0 or end > extent or first > max(start - 1, 0) or end < min(stop + 1, extent):
        raise ValueError(f"planes {first} .. {end - 1} of {extent} are not those that a step on "
                         f"{start} .. {stop - 1} reads")
    rest = planes.shape[1:]
    origin = (0,) * len(rest)
    out = _target(planes, (stop - start, *rest), out)
    _filter(pipeline, planes, (first, *origin), (extent, *rest), threshold, out, (start, *origin))
    return out


def pipeline_name(image: Array, threshold: float, connectivity: str, conduction: str,
                  instruction_set: str) -> str:
    """The pipeline for an image. Checks what is common to all steps: TypeError, ValueError."""
    if not isinstance(image, numpy.ndarray) or isinstance(image, numpy.ma.MaskedArray):
        raise TypeError(f"an image must be a numpy.ndarray, not {type(image).__name__}")
    dtype = image.dtype
    if dtype.char not in "fd" or not dtype.isnative:
        raise TypeError("an image must be of float32 or float64 in this machine's byte order, not "
                        f"{dtype.str} ({dtype})")
    if image.ndim not in (2, 3):
        raise ValueError(f"an image must have 2 or 3 dimensions, not {image.ndim}")
    require_threshold(threshold, dtype.char)
    return _pipeline_name(image.ndim, dtype.char, connectivity, conduction, instruction_set)


def require_threshold(threshold: float, char: str) -> None:
    """ValueError if it has no place in the arithmetic of the type `char`, "f" or "d"."""
    narrow = ctypes.c_float if char == "f" else ctypes.c_double
    try:
        narrowed = narrow(threshold).value
    except (TypeError, OverflowError):
        raise TypeError(f"threshold must be a number, not {threshold!r}") from None
    # Without a reciprocal, equal neighbours give 0 * infinity.
    if not (narrowed > 0 and narrow(1 / narrowed).value < math.inf):
        raise ValueError(f"threshold must be positive in {numpy.dtype(char)}, not {threshold}")


@functools.lru_cache(maxsize=None)
def _pipeline_name(dimensions: int, char: str, connectivity: str, conduction: str,
                   instruction_set: str) -> str:
    require_one_of("connectivity", connectivity, CONNECTIVITIES)
    require_one_of("conduction", conduction, CONDUCTIONS)
    return (f"diffusefilt{dimensions}_{connectivity}_{conduction}_{numpy.dtype(char)}_"
            f"{resolve_instruction_set(instruction_set)}")


def _region_shape(region: Region, shape: _Shape) -> Tuple[_Shape, _Shape]:
    """Its first coordinates and its extents."""
    slices = region if isinstance(region, tuple) else (region,)
    if len(slices) > len(shape) or not all(isinstance(s, slice) for s in slices):
        raise ValueError(f"region must hold at most {len(shape)} slices, not {region!r}")
    slices += (slice(None),) * (len(shape) - len(slices))
    bounds = [s.indices(n) for s, n in zip(slices, shape)]
    if any(increment != 1 for _, _, increment in bounds):
        raise ValueError(f"the slices of a region go by 1, not as in {region!r}")
    return tuple(a for a, _, _ in bounds), tuple(max(b - a, 0) for a, b, _ in bounds)


def _target(image: Array, shape: _Shape, out: Optional[Array]) -> Array:
    if out is None:
        return numpy.empty(shape, image.dtype)
    require_target(image, shape, out)
    return out


def require_target(image: Array, shape: _Shape, out: Array) -> None:
    """TypeError or ValueError if `out` cannot take a result of this shape, whatever its strides."""
    if (not isinstance(out, numpy.ndarray) or isinstance(out, numpy.ma.MaskedArray)
            or out.dtype != image.dtype):
        raise TypeError(f"out must be a numpy.ndarray of {image.dtype}, as the image is")
    if out.shape != shape:
        raise ValueError(f"out must have the shape {shape}, not {out.shape}")
    if not out.flags.writeable:
        raise ValueError("out must be writeable")
    if not out.flags.forc and _may_overlap_itself(out):
        raise ValueError("out must not overlap itself")
    if numpy.shares_memory(image, out):
        raise ValueError("out must not share memory with the image")


def _may_overlap_itself(array: Array) -> bool:
    """False for every array that slices, reversals and transpositions make of one that does not."""
    reach = array.itemsize
    for stride, extent in sorted((abs(s), n) for s, n in zip(array.strides, array.shape) if n > 1):
        if stride < reach:
            return True
        reach += stride * (extent - 1)
    return False


def repeat(pipeline: str, image: Array, targets: Sequence[Array], threshold: float,
           iterations: int, progress: Optional[Progress]) -> None:
    """Steps from `image` to the first target, on to the second, back to the first and so on. The
    second may be `image`, if that may be written."""
    origin, shape = _ORIGIN[image.ndim], image.shape
    records = [_written(target, origin) for target in targets[:iterations]] if image.size else []
    source, kept = readable(image, origin, shape) if image.size else (None, image)
    for done in range(1, iterations + 1):
        if source is not None:
            target = records[(done - 1) % 2]
            call(pipeline, source, threshold, target)
            source = target
        if progress is not None:
            progress(done, iterations)


def _filter(pipeline: str, image: Array, image_mins: _Shape, image_extents: _Shape,
            threshold: float, out: Array, out_mins: _Shape) -> None:
    """One call; coordinates from the slowest axis on, as in NumPy."""
    if out.size != 0:
        read, kept = readable(image, image_mins, image_extents)
        call(pipeline, read, threshold, _written(out, out_mins))


def readable(image: Array, mins: _Shape, extents: _Shape) -> Tuple[halide_buffer_t, Array]:
    """The record, and the array that its memory belongs to, for the time of the call."""
    if max(*extents, math.prod(image.shape[1:])) > _LARGEST:
        raise ValueError(f"an extent or a plane of the shape {extents} exceeds 32 bits")
    made = record(image, mins, extents)
    if made is not None:
        return made, image
    image = image.copy(order="C")
    made = record(image, mins, extents)
    assert made is not None
    return made, image


def _written(out: Array, mins: _Shape) -> halide_buffer_t:
    made = record(out, mins, out.shape)
    if made is None:
        raise ValueError("out must have adjacent elements along the last axis and strides of "
                         "whole elements that fit 32 bits")
    return made


def record(array: Array, mins: _Shape, extents: _Shape) -> Optional[halide_buffer_t]:
    """`array` as memory that begins at the coordinates `mins` of an image of these extents; None
    if a pipeline cannot walk through it."""
    dimensions = _dimensions(mins, extents, array.shape, array.strides, array.itemsize)
    if dimensions is None or not array.flags.aligned:
        return None
    return halide_buffer_t(0, None, array.__array_interface__["data"][0], 0,
                           _TYPES[array.dtype.kind, array.itemsize], array.ndim, dimensions)


def has_record(array: Array) -> bool:
    """Whether a pipeline can walk through it."""
    origin, shape = _ORIGIN[array.ndim], array.shape
    return bool(array.flags.aligned) and (
        _dimensions(origin, shape, shape, array.strides, array.itemsize) is not None)


@functools.lru_cache(maxsize=64)
def _dimensions(mins: _Shape, extents: _Shape, shape: _Shape, strides: _Shape,
                size: int) -> Optional[Any]:
    """As record has them, for any number of records: the library only reads them."""
    # NumPy says nothing of use about the stride of an axis with one element.
    strides = tuple(s if n > 1 else size for s, n in zip(strides, shape))
    if strides[-1] != size or any(s % size or abs(s) // size > _LARGEST for s in strides):
        return None
    made = [halide_dimension_t(m, e, s // size, 0) for m, e, s in zip(mins, extents, strides)]
    return (halide_dimension_t * len(made))(*reversed(made))
