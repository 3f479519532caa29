# SPDX-License-Identifier: MIT
"""What reading, writing and a step cost here, measured on one block."""
from __future__ import annotations

import math
import time
from typing import Any, Callable

import numpy

from diffusefilt import _steps
from diffusefilt.cluster.jobs import Question
from diffusefilt.cluster.plan import Block, Costs
from diffusefilt.cluster.stores import Folder, open_array
from diffusefilt.cluster.tasks import read, write

SAMPLE = 1 << 26, 1 << 24  # bytes: of an array worth it, and of a sample, about


def sample_of(shape: tuple[int, ...], chunks: tuple[int, ...], spatial: int, itemsize: int
              ) -> Block:
    """Some chunks in the middle, longest along the last axis."""
    extents = [min(c, n) for c, n in zip(chunks, shape)]
    for axis in range(len(shape) - 1, len(shape) - spatial - 1, -1):
        fit = SAMPLE[1] // (math.prod(extents) * itemsize)
        extents[axis] = min(extents[axis] * max(fit, 1), shape[axis])
    start = tuple((n - e) // 2 // c * c for n, e, c in zip(shape, extents, chunks))
    return Block(start, tuple(min(a + e, n) for a, e, n in zip(start, extents, shape)))


def measure(question: Question, pipeline: str, spatial: int, scratch: str,
            scratch_metadata: dict[str, Any], target_metadata: dict[str, Any], sample: Block
            ) -> Costs:
    """A task. Writes into `scratch`, and leaves that to whoever removes it."""
    dtype = numpy.dtype(question.arithmetic)
    held = numpy.empty((0,) * len(sample.shape), dtype)

    def seconds(work: Callable[[], Any]) -> float:
        began = time.perf_counter()
        work()
        return (time.perf_counter() - began) / sample.size

    def load(array: Any) -> None:
        nonlocal held
        held = read(array, sample, dtype)

    folder = Folder(scratch)
    between = [open_array(folder.sub("measured"), scratch_metadata, mode) for mode in "rw"]
    after = open_array(folder.sub("measured-target"), target_metadata, "w")
    source = open_array(Folder(question.source), question.source_metadata, "fill")
    read_source = seconds(lambda: load(source))
    write_target = seconds(lambda: write(after, sample, held))
    write_scratch = seconds(lambda: write(between[1], sample, held))
    read_scratch = seconds(lambda: load(between[0]))
    volume = held[(0,) * (held.ndim - spatial)]
    result = numpy.empty_like(volume)
    origin = (0,) * spatial

    def step() -> None:
        _steps._filter(pipeline, volume, origin, volume.shape, question.threshold, result, origin)

    share = held.size / volume.size
    step()  # starts the library's threads, and the memory is touched
    return Costs(read_source, read_scratch, write_scratch, write_target, seconds(step) * share)
