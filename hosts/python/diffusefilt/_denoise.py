# SPDX-License-Identifier: MIT
"""One call from noisy samples to smooth ones: conversions, channels, the threshold by the noise."""
from __future__ import annotations

import math
import operator
import sys
import warnings
from typing import Any, List, Literal, NamedTuple, Optional, Tuple, Union

import numpy
import numpy.typing

from diffusefilt import _noise
from diffusefilt._axes import MINIMAL, QUADRATIC, Conduction, Connectivity, InstructionSet
from diffusefilt._samples import (arithmetic_of, require_whole, to_arithmetic,
                                  write_samples)
from diffusefilt._steps import (Array, Progress, has_record, pipeline_name, repeat, require_target,
                                require_threshold)

masked: Any = numpy.ma
Threshold = Union[float, Literal["auto"]]


def denoise(image: Any, threshold: Threshold = "auto", iterations: int = 3, *,
            connectivity: Connectivity = MINIMAL, conduction: Conduction = QUADRATIC,
            instruction_set: InstructionSet = "auto", channel_axis: Optional[int] = None,
            dtype: Optional[numpy.typing.DTypeLike] = None, out: Optional[Array] = None,
            progress: Optional[Progress] = None) -> Any:
    """Smooth noise and keep edges: diffusion of an image or a volume of any numeric type.

    The samples are those that the command line host writes for the same file, threshold, number of
    steps and type of arithmetic (its ``--type``).

    Parameters
    ----------
    image : array
        (rows, columns) or (planes, rows, columns), and the channels besides, of integers, float16,
        float32 or float64: a NumPy array, a masked array, an xarray.DataArray, a Dask array (see
        diffusefilt.dask), or what else has ``__array__``. Only read.
    threshold : float or "auto"
        Gradient threshold K > 0, in the units of `image`: differences well below it are smoothed,
        differences well above it kept. "auto" is that of estimate, with a CorrelatedNoiseWarning
        where the noise is not white.
    iterations : int
        Number of steps.
    connectivity, conduction, instruction_set
        The neighbours, the conductance of a difference and the processor's instructions: one of
        the words that the package explains.
    channel_axis : int, optional
        The axis of channels, which are filtered one by one; by default there is none.
    dtype : {"float32", "float64"}, optional
        Of the arithmetic; by default float32 for float16 and float32, otherwise float64. Results
        have the type of `image`: integers are rounded to the nearest, halves away from 0, and
        saturated.
    out : numpy.ndarray, optional
        Memory for the result, of the shape and type of `image`, apart from it.
    progress : callable, optional
        Called with (steps done, steps in all) after each step of each channel.

    Returns
    -------
    array
        What `image` was: coordinates and attributes of a DataArray are kept, a Dask array is
        filtered lazily. Of a masked array the mask is kept; masked elements stay as they are, and
        nothing flows between them and the others.

    Raises
    ------
    TypeError, ValueError
        For arguments that cannot be filtered, before anything is written.

    Notes
    -----
    The method is that of P. Perona and J. Malik, Scale-space and edge detection using anisotropic
    diffusion, IEEE Trans. Pattern Anal. Mach. Intell. 12 (1990). A NaN spreads by one element with
    each step.

    Examples
    --------
    >>> import numpy
    >>> import diffusefilt
    >>> clean = numpy.full((64, 64), 50)
    >>> clean[:, 32:] = 200
    >>> noisy = clean + numpy.random.default_rng(1).normal(0, 10, clean.shape)
    >>> smooth = diffusefilt.denoise(noisy)
    >>> [round(float(numpy.std(picture - clean))) for picture in (noisy, smooth)]
    [10, 3]
    >>> diffusefilt.denoise(noisy.astype("uint8"), 40, iterations=5)[0, 30:34]
    array([ 51,  55, 193, 198], dtype=uint8)
    """
    if type(image) is not numpy.ndarray:
        return _denoise_other(image, threshold, iterations, out, connectivity=connectivity,
                              conduction=conduction, instruction_set=instruction_set,
                              channel_axis=channel_axis, dtype=dtype, progress=progress)
    return _denoise_array(image, None, threshold, iterations, connectivity, conduction,
                          instruction_set, channel_axis, dtype, out, progress)


class Estimate(NamedTuple):
    """What `estimate` finds."""
    sigma: float  #: standard deviation of the noise, in the units of the image
    correlation: float  #: of neighbouring noise, as far as it is more than that of white noise
    is_correlated: bool  #: whether that is more than chance: sigma is not to be trusted then
    threshold: float  #: gradient threshold, in the units of the image


class CorrelatedNoiseWarning(UserWarning):
    """The noise of an image is not white, so that its estimate is not to be trusted."""


def estimate(image: Any, iterations: int = 3, *, connectivity: Connectivity = MINIMAL,
             conduction: Conduction = QUADRATIC, instruction_set: InstructionSet = "auto",
             channel_axis: Optional[int] = None) -> Estimate:
    """Estimate the noise of an image and the gradient threshold that suits it.

    sigma is the median of the absolute differences of fourth order along all axes, divided by
    0.6745 (the estimator of D. Donoho and I. Johnstone, Ideal spatial adaptation by wavelet
    shrinkage, Biometrika 81, 1994). The threshold is the one for which the filtered image has the
    smallest risk, Stein's unbiased estimate of the squared error, its divergence measured by moving
    all elements a little to random sides (S. Ramani, T. Blu and M. Unser, Monte-Carlo SURE, IEEE
    Trans. Image Process. 17, 2008); it has three digits. Without noise it is a thousandth of the
    range of the image, or 1.

    Tiles all over the image are looked at, of some 150000 elements in 2-D and 260000 in 3-D in each
    channel. Elements at the lowest or the highest value of their channel count as cut off, NaN and
    masked ones not at all. Noise is taken for white and Gaussian; `correlation` tells by the
    flattest quarter of the tiles whether it is white.

    Parameters
    ----------
    image, iterations, connectivity, conduction, instruction_set, channel_axis
        As in denoise; a Dask array is computed as a whole.

    Returns
    -------
    Estimate
        Of all channels together.

    Examples
    --------
    >>> import numpy
    >>> noise = numpy.random.default_rng(1).normal(0, 10, (200, 200))
    >>> found = estimate(noise)
    >>> round(found.sigma), found.is_correlated
    (10, False)
    >>> estimate((noise[1:] + noise[:-1]) / 2).is_correlated
    True
    """
    data, mask = _elements_and_mask(image)
    arithmetic_of(data.dtype, None)
    return _estimate(data, mask, channel_position(data, channel_axis), iterations, connectivity,
                     conduction, instruction_set)


def estimate_noise(image: Any, *, channel_axis: Optional[int] = None) -> float:
    """The sigma of estimate, with a CorrelatedNoiseWarning where the noise is not white.

    Examples
    --------
    >>> import numpy
    >>> noise = numpy.random.default_rng(1).normal(0, 10, (200, 200))
    >>> round(estimate_noise(noise))
    10
    """
    return _warned(estimate(image, 0, channel_axis=channel_axis)).sigma


def estimate_threshold(image: Any, iterations: int = 3, *, connectivity: Connectivity = MINIMAL,
                       conduction: Conduction = QUADRATIC,
                       channel_axis: Optional[int] = None) -> float:
    """The threshold of estimate: threshold="auto" of denoise and of the command line host. With a
    CorrelatedNoiseWarning where the noise is not white.

    Examples
    --------
    >>> import numpy
    >>> noise = numpy.random.default_rng(1).normal(0, 10, (200, 200))
    >>> estimate_threshold(noise, 10) < estimate_threshold(noise, 1)
    True
    """
    iterations = max(operator.index(iterations), 1)
    return _warned(estimate(image, iterations, connectivity=connectivity, conduction=conduction,
                            channel_axis=channel_axis)).threshold


def _denoise_other(image: Any, threshold: Threshold, iterations: int, out: Optional[Array],
                   **options: Any) -> Any:
    """What is not just a numpy.ndarray, as what it was."""
    if (xarray := sys.modules.get("xarray")) and isinstance(image, xarray.DataArray):
        return image.copy(data=denoise(image.data, threshold, iterations, out=out, **options))
    if (array := sys.modules.get("dask.array")) and isinstance(image, array.Array):
        from diffusefilt import dask
        if out is not None or options.pop("progress") is not None:
            raise TypeError("a Dask array is filtered lazily, without out and progress")
        return dask.denoise(image, threshold, iterations, **options)
    data, mask = _elements_and_mask(image)
    result = _denoise_array(data, mask, threshold, iterations, out=out, **options)
    if isinstance(image, masked.MaskedArray):
        return masked.MaskedArray(result, masked.getmask(image) if mask is None else mask.copy(),
                                  fill_value=image.fill_value)
    wrap = getattr(image, "__array_wrap__", None)
    return result if wrap is None else wrap(result)


def _elements_and_mask(image: Any) -> Tuple[Array, Optional[Array]]:
    """The elements as a numpy.ndarray, and which of them are masked if any are."""
    if isinstance(image, masked.MaskedArray):
        mask = masked.getmask(image)
        if image.dtype.names is None and mask is not masked.nomask and mask.any():
            return image.data.view(numpy.ndarray), mask
        return image.data.view(numpy.ndarray), None
    if not hasattr(image, "__array__"):
        raise TypeError(f"an image must be an array, not {type(image).__name__}")
    return numpy.asarray(image), None


def channel_position(data: Array, channel_axis: Optional[int]) -> Optional[int]:
    """The axis of channels from 0 on. ValueError for an image that cannot be filtered."""
    position = None
    if channel_axis is not None:
        position = operator.index(channel_axis)
        if not -data.ndim <= position < data.ndim:
            raise ValueError(f"channel_axis {position} is none of {data.ndim} dimensions")
        position %= data.ndim
    dimensions = data.ndim - (position is not None)
    if dimensions not in (2, 3):
        besides = "" if position is None else " besides channel_axis"
        raise ValueError(f"an image must have 2 or 3 dimensions{besides}, not {dimensions}")
    if data.size == 0:
        raise ValueError(f"an image must not be empty, as the shape {data.shape} is")
    return position


def _channels(data: Array, position: Optional[int]) -> List[Array]:
    return [data] if position is None else list(numpy.moveaxis(data, position, 0))


def _measured(data: Array, mask: Optional[Array], position: Optional[int]) -> List[Array]:
    """The channels as their noise is estimated: in their own type, masked elements not at all."""
    if mask is not None:
        data = numpy.where(mask, math.nan, data)
    elif data.dtype.char == "e":
        data = data.astype("f4")
    return _channels(data, position)


def _estimate(data: Array, mask: Optional[Array], position: Optional[int], iterations: int,
              connectivity: str, conduction: str, instruction_set: str) -> Estimate:
    channels = _measured(data, mask, position)
    pipeline = pipeline_name(numpy.empty((0,) * channels[0].ndim, "f4"), 1, connectivity,
                             conduction, instruction_set)
    found = _noise.estimate(channels, pipeline, operator.index(iterations))
    return Estimate(found.sigma, found.correlation, bool(found.is_correlated), found.threshold)


def _warned(found: Estimate) -> Estimate:
    if found.is_correlated:
        warnings.warn(f"the noise is not white, correlation {found.correlation:.2f} between "
                      "neighbours: compare thresholds", CorrelatedNoiseWarning, stacklevel=3)
    return found


def _denoise_array(data: Array, mask: Optional[Array], threshold: Threshold, iterations: int,
                   connectivity: str, conduction: str, instruction_set: str,
                   channel_axis: Optional[int], dtype: Optional[numpy.typing.DTypeLike],
                   out: Optional[Array], progress: Optional[Progress]) -> Array:
    arithmetic = arithmetic_of(data.dtype, dtype)
    position = channel_position(data, channel_axis)
    require_whole(data)
    channels = _channels(data, position)
    pipeline = pipeline_name(numpy.empty((0,) * channels[0].ndim, arithmetic),
                             1 if isinstance(threshold, str) else threshold, connectivity,
                             conduction, instruction_set)
    iterations = operator.index(iterations)
    if iterations < 0:
        raise ValueError(f"iterations must not be negative, not {iterations}")
    if out is None:
        out = numpy.empty(data.shape, data.dtype)
    else:
        require_target(data, data.shape, out)
    if isinstance(threshold, str):
        if threshold != "auto":
            raise ValueError(f"threshold must be a number or 'auto', not {threshold!r}")
        threshold = _warned(_estimate(data, mask, position, max(iterations, 1), connectivity,
                                      conduction, instruction_set)).threshold
        require_threshold(threshold, arithmetic.char)
    masks: List[Optional[Array]] = [None] * len(channels)
    if mask is not None:
        masks = [*_channels(mask, position)]
    targets = _channels(out, position)
    for index, (channel, target, hidden) in enumerate(zip(channels, targets, masks)):
        _denoise_channel(pipeline, channel, hidden, float(threshold), iterations, arithmetic, target,
                         progress and _progress_of_channel(progress, index, len(channels)))
    return out


def _progress_of_channel(progress: Progress, index: int, count: int) -> Progress:
    return lambda done, steps: progress(index * steps + done, count * steps)


def _denoise_channel(pipeline: str, samples: Array, mask: Optional[Array], threshold: float,
                     iterations: int, arithmetic: "numpy.dtype[Any]", out: Array,
                     progress: Optional[Progress]) -> None:
    """Elements go to the library where they lie if they have the type of the arithmetic."""
    if iterations == 0:
        out[...] = samples
        return
    if mask is None and samples.dtype == arithmetic and has_record(out):
        other = numpy.empty_like(out) if iterations > 1 else out
        repeat(pipeline, samples, (out, other) if iterations % 2 else (other, out), threshold,
               iterations, progress)
        return
    values = to_arithmetic(samples, arithmetic)
    if mask is not None:
        values[mask] = insulating(arithmetic, threshold)
    other = numpy.empty_like(values)
    repeat(pipeline, values, (other, values), threshold, iterations, progress)
    write_samples(other if iterations % 2 else values, out)
    if mask is not None:
        out[mask] = samples[mask]


def insulating(arithmetic: "numpy.dtype[Any]", threshold: float) -> float:
    """A value so far from all others that the conductance of the difference is exactly 0, and
    finite, so that the flux is 0 as well."""
    highest = float(numpy.finfo(arithmetic).max)
    if threshold > math.sqrt(highest) / 8:
        raise ValueError(f"threshold {threshold} is too large for an image with a mask")
    return highest / 4
