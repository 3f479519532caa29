"""The exact layer: one step, several, and one on a slab. Hosts import diffusefilt, which tells what
is common to all of it."""
from __future__ import annotations

import math
import operator
from typing import Any, Callable, Literal, Optional, Tuple, Union

import numpy

from diffusefilt._library import (HALIDE_TYPE_FLOAT, call, halide_buffer_t, halide_dimension_t,
                                  halide_type_t, require_one_of, resolve_instruction_set)

Array = numpy.ndarray
Connectivity = Literal["minimal", "maximal"]
Conduction = Literal["quadratic", "exponential"]
InstructionSet = Literal["auto", "none", "avx", "avx2"]
Region = Union[slice, Tuple[slice, ...]]
_Shape = Tuple[int, ...]

_LARGEST = 2**31 - 1  # of a coordinate, an extent or a stride


def step(image: Array, threshold: float, connectivity: Connectivity = "minimal",
         conduction: Conduction = "quadratic", instruction_set: InstructionSet = "auto", *,
         region: Optional[Region] = None, out: Optional[Array] = None) -> Array:
    """One explicit step: the filtered image, of the dtype of `image`, which is only read.

    image: (rows, columns) or (planes, rows, columns) of float32 or float64.
    threshold: gradient threshold K > 0, in the units of `image`.
    region: slices of `image` that name the part to compute, like numpy.s_[10:20, :, 64:128]; the
        whole by default. It has the bits that it has in the whole. Where a row of `image` is
        longer than a vector (16 bytes in "none", 32 in the other sets), a row of the region must
        be at least a vector long.
    out: takes the result, in the shape of the region and in memory of its own; by default a new
        array in C order. Returned in either case.

    The other arguments and the errors: see the module.
    """
    pipeline = pipeline_name(image, threshold, connectivity, conduction, instruction_set)
    mins, extents = _region_shape(region, image.shape)
    out = _target(image, extents, out)
    _filter(pipeline, image, (0,) * image.ndim, image.shape, threshold, out, mins)
    return out


def iterate(image: Array, threshold: float, iterations: int,
            connectivity: Connectivity = "minimal", conduction: Conduction = "quadratic",
            instruction_set: InstructionSet = "auto", *, out: Optional[Array] = None,
            progress: Optional[Callable[[int, int], Any]] = None) -> Array:
    """`iterations` steps; 0 give a copy. Takes memory for two arrays besides `image`, of which
    `out` is one.

    progress: called with (steps done, iterations) after each step. What it raises ends the work;
        `out` then holds nothing of use.

    Arguments, result and errors are otherwise those of step; ValueError for iterations < 0.
    """
    pipeline = pipeline_name(image, threshold, connectivity, conduction, instruction_set)
    iterations = operator.index(iterations)
    if iterations < 0:
        raise ValueError(f"iterations must not be negative, not {iterations}")
    origin = (0,) * image.ndim
    out = _target(image, image.shape, out)
    if iterations == 0:
        out[...] = image
    targets = [out, numpy.empty(image.shape, image.dtype) if iterations > 1 else None]
    source = image
    for done in range(1, iterations + 1):
        target = targets[(iterations - done) % 2]
        _filter(pipeline, source, origin, image.shape, threshold, target, origin)
        source = target
        if progress is not None:
            progress(done, iterations)
    return out


def step_slab(planes: Array, threshold: float, connectivity: Connectivity = "minimal",
              conduction: Conduction = "quadratic", instruction_set: InstructionSet = "auto", *,
              first: int, extent: int, start: int, stop: int,
              out: Optional[Array] = None) -> Array:
    """One explicit step on the planes start .. stop - 1 of a volume that is not in memory as a
    whole, or on rows of an image in 2-D. They have the bits that they have in the whole.

    planes: the planes `first` .. first + len(planes) - 1 of the volume, each of them whole; at
        least start - 1 .. stop, as far as the volume has them.
    extent: number of planes of the volume.

    Returns the planes start .. stop - 1. All else is as in step.
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
    if dtype not in (numpy.float32, numpy.float64):
        raise TypeError("an image must be of float32 or float64 in this machine's byte order, not "
                        f"{dtype.str} ({dtype})")
    if image.ndim not in (2, 3):
        raise ValueError(f"an image must have 2 or 3 dimensions, not {image.ndim}")
    require_one_of("connectivity", connectivity, ("minimal", "maximal"))
    require_one_of("conduction", conduction, ("quadratic", "exponential"))
    with numpy.errstate(all="ignore"):
        narrowed = dtype.type(threshold)
        # Without a reciprocal, equal neighbours give 0 * infinity.
        if not (narrowed > 0 and numpy.isfinite(dtype.type(1) / narrowed)):
            raise ValueError(f"threshold must be positive in {dtype}, not {threshold}")
    return (f"diffusefilt{image.ndim}_{connectivity}_{conduction}_{dtype}_"
            f"{resolve_instruction_set(instruction_set)}")


def _region_shape(region: Optional[Region], shape: _Shape) -> tuple[_Shape, _Shape]:
    """Its first coordinates and its extents."""
    slices = () if region is None else region if isinstance(region, tuple) else (region,)
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
    if not isinstance(out, numpy.ndarray) or out.dtype != image.dtype:
        raise TypeError(f"out must be an array of {image.dtype}, as the image is")
    if out.shape != shape:
        raise ValueError(f"out must have the shape {shape}, not {out.shape}")
    if not out.flags.writeable:
        raise ValueError("out must be writeable")
    if numpy.shares_memory(image, out):
        raise ValueError("out must not share memory with the image")
    return out


def _filter(pipeline: str, image: Array, image_mins: _Shape, image_extents: _Shape,
            threshold: float, out: Array, out_mins: _Shape) -> None:
    """One call; coordinates from the slowest axis on, as in NumPy."""
    if out.size == 0:
        return
    if max(*map(operator.add, image_mins, image_extents), math.prod(image.shape[1:])) > _LARGEST:
        raise ValueError(f"an extent or a plane of the shape {image_extents} exceeds 32 bits")
    written = _record(out, out_mins, out.shape)
    if written is None:
        raise ValueError("out must have adjacent elements along the last axis and strides of "
                         "whole elements that fit 32 bits")
    read = _record(image, image_mins, image_extents)
    if read is None:
        image = image.copy(order="C")  # the name keeps it for the time of the call
        read = _record(image, image_mins, image_extents)
    call(pipeline, read, float(threshold), written)


def _record(array: Array, mins: _Shape, extents: _Shape) -> Optional[halide_buffer_t]:
    """`array` as memory that begins at the coordinates `mins` of an image of these extents; None
    if a pipeline cannot walk through it."""
    size = array.itemsize
    # NumPy says nothing of use about the stride of an axis with one element.
    strides = [s if n > 1 else size for s, n in zip(array.strides, array.shape)]
    if (not array.flags.aligned or strides[-1] != size
            or any(s % size or abs(s) // size > _LARGEST for s in strides)):
        return None
    shape = [halide_dimension_t(m, e, s // size, 0) for m, e, s in zip(mins, extents, strides)]
    return halide_buffer_t(host=array.ctypes.data, dimensions=array.ndim,
                           type=halide_type_t(HALIDE_TYPE_FLOAT, 8 * size, 1),
                           dim=(halide_dimension_t * array.ndim)(*reversed(shape)))
