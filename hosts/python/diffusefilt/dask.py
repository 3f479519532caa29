# SPDX-License-Identifier: MIT
"""Diffusion of Dask arrays, lazily: any chunks, any scheduler, no store of its own.

What is larger than the memory of all workers, or has more steps than a chunk can give a halo for,
goes from a store to a store: filter_store, of diffusefilt.cluster.

>>> import dask.array
>>> import diffusefilt.dask
>>> volume = dask.array.random.normal(100, 10, (40, 60, 80), chunks=(20, 30, 80))
>>> smooth = diffusefilt.dask.denoise(volume, threshold=20, iterations=2)
>>> smooth
dask.array<_trim, shape=(40, 60, 80), dtype=float64, chunksize=(20, 30, 80), chunktype=numpy.ndarray>
>>> bool(smooth.std().compute() < 5)
True
"""
from __future__ import annotations

import functools
import math
import operator
from typing import TYPE_CHECKING, Any, Optional

import dask.array
import numpy
import numpy.typing
from dask.array.overlap import ensure_minimum_chunksize

from diffusefilt._axes import MINIMAL, QUADRATIC, Conduction, Connectivity, InstructionSet
from diffusefilt._denoise import Threshold, channel_position
from diffusefilt._samples import arithmetic_of, to_arithmetic, to_samples
from diffusefilt._steps import Array, iterate, pipeline_name

if TYPE_CHECKING:
    from diffusefilt.cluster import filter_store

__all__ = ["denoise", "filter_store"]


def __getattr__(name: str) -> Any:
    if name == "filter_store":  # needs more packages than arrays do
        from diffusefilt import cluster
        return cluster.filter_store
    raise AttributeError(f"module {__name__!r} has no attribute {name!r}")


def denoise(array: Any, threshold: Threshold, iterations: int = 3, *,
            connectivity: Connectivity = MINIMAL, conduction: Conduction = QUADRATIC,
            instruction_set: InstructionSet = "auto", channel_axis: Optional[int] = None,
            dtype: Optional[numpy.typing.DTypeLike] = None,
            steps_per_task: Optional[int] = None) -> Any:
    """As diffusefilt.denoise, of a Dask array, with the same bits for any chunks.

    A task takes several steps on a chunk and a halo of as many elements along every axis that is
    cut. Chunks that are smaller than their halo, or than a vector of the processor along the last
    axis, are merged.

    Parameters
    ----------
    array : dask.array.Array
        Of NumPy arrays, with chunks of known sizes.
    threshold : float
        Not "auto", which needs all elements before the first one is filtered: give it
        diffusefilt.estimate_threshold of a part that fits into memory.
    iterations, connectivity, conduction, channel_axis, dtype
        As in diffusefilt.denoise.
    instruction_set : InstructionSet
        "auto" is the best one of the processor that runs this call, not of those that compute.
    steps_per_task : int, optional
        By default as many as an eighth of the smallest chunk of an axis that is cut, at least 1.

    Returns
    -------
    dask.array.Array
        Of the shape and dtype of `array`.

    Raises
    ------
    TypeError, ValueError
        For arguments that cannot be filtered, when this is called.

    Examples
    --------
    >>> import dask.array, diffusefilt, numpy
    >>> image = numpy.random.default_rng(1).normal(100, 10, (50, 60))
    >>> lazy = denoise(dask.array.from_array(image, chunks=16), 20, iterations=5)
    >>> numpy.array_equal(lazy.compute(), diffusefilt.denoise(image, 20, iterations=5))
    True
    """
    _require_numpy_chunks(array)
    arithmetic = arithmetic_of(array.dtype, dtype)
    channels = channel_position(array, channel_axis)
    if threshold == "auto":
        raise ValueError("a threshold of 'auto' needs all elements at once, give a number, like "
                         "diffusefilt.estimate_threshold of a part of the array")
    axes = [axis for axis in range(array.ndim) if axis != channels]
    name = pipeline_name(numpy.empty((0,) * len(axes), arithmetic), threshold, connectivity,
                         conduction, instruction_set)
    iterations = operator.index(iterations)
    if iterations < 0:
        raise ValueError(f"iterations must not be negative, not {iterations}")
    if iterations == 0:
        return array
    chosen = name.rpartition("_")[2]
    block = functools.partial(_filter_block, threshold=float(threshold), connectivity=connectivity,
                              conduction=conduction, instruction_set=chosen, channels=channels)
    lanes = (16 if chosen == "none" else 32) // arithmetic.itemsize
    values = _with_long_rows(array, axes[-1], lanes)
    steps = _steps_per_task(values, axes, iterations, steps_per_task)
    if values.dtype != arithmetic:
        values = _converted(values, to_arithmetic, arithmetic)
    for begin in range(0, iterations, steps):
        values = _filter_lazily(values, axes, min(steps, iterations - begin), block)
    if values.dtype != array.dtype:
        values = _converted(values, to_samples, array.dtype)
    return values


def _require_numpy_chunks(array: Any) -> None:
    if not isinstance(array, dask.array.Array):
        raise TypeError(f"a dask.array.Array is filtered lazily, not {type(array).__name__}")
    if type(array._meta) is not numpy.ndarray:
        raise TypeError("chunks must be of the type numpy.ndarray, not "
                        f"{type(array._meta).__name__}")
    if any(math.isnan(extent) for extent in array.shape):
        raise ValueError("the sizes of all chunks must be known, as after compute_chunk_sizes()")


def _converted(values: Any, convert: Any, dtype: "numpy.dtype[Any]") -> Any:
    return values.map_blocks(convert, dtype, dtype=dtype, meta=_meta(dtype, values.ndim))


def _meta(dtype: "numpy.dtype[Any]", dimensions: int) -> Array:
    return numpy.empty((0,) * dimensions, dtype)


def _with_long_rows(array: Any, axis: int, lanes: int) -> Any:
    """Rows that are no longer than a vector are filtered in another order of sums: no row of a
    chunk may be one unless the whole array's are."""
    if array.shape[axis] <= lanes:
        return array.rechunk({axis: -1})
    return array.rechunk({axis: ensure_minimum_chunksize(lanes + 1, array.chunks[axis])})


def _steps_per_task(array: Any, axes: list[int], iterations: int, wanted: Optional[int]) -> int:
    if wanted is None:
        cut = [min(array.chunks[axis]) for axis in axes if array.numblocks[axis] > 1]
        return max(min(cut, default=8 * iterations) // 8, 1)
    wanted = operator.index(wanted)
    if wanted < 1:
        raise ValueError(f"steps_per_task must be at least 1, not {wanted}")
    return wanted


def _filter_lazily(values: Any, axes: list[int], steps: int, block: Any) -> Any:
    wide = {axis: -1 if values.shape[axis] < steps else
            ensure_minimum_chunksize(steps, values.chunks[axis]) for axis in axes}
    values = values.rechunk(wide)
    depth = {axis: steps if axis in axes and values.numblocks[axis] > 1 else 0
             for axis in range(values.ndim)}
    return dask.array.map_overlap(block, values, depth=depth, boundary="none", steps=steps,
                                  dtype=values.dtype, meta=_meta(values.dtype, values.ndim))


def _filter_block(values: Array, *, steps: int, threshold: float, connectivity: Connectivity,
                  conduction: Conduction, instruction_set: InstructionSet,
                  channels: Optional[int]) -> Array:
    if channels is None:
        return iterate(values, threshold, steps, connectivity, conduction, instruction_set)
    filtered = [iterate(channel, threshold, steps, connectivity, conduction, instruction_set)
                for channel in numpy.moveaxis(values, channels, 0)]
    return numpy.stack(filtered, axis=channels)
