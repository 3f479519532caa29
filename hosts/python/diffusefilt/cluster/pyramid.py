# SPDX-License-Identifier: MIT
"""The coarser arrays of an OME-Zarr group: each element is the mean of those of the next finer
array that it stands for."""
from __future__ import annotations

import math

import numpy
import zarr

from diffusefilt._samples import to_samples
from diffusefilt._steps import Array
from diffusefilt.cluster.jobs import is_there, load_once
from diffusefilt.cluster.plan import Block, Index, Plan, Shape
from diffusefilt.cluster.stores import traffic
from diffusefilt.cluster.report import Tally
from diffusefilt.cluster.tasks import counted_task, read, write

SIDE = 1 << 22  # elements of a block, about


def blocks_of(shape: Shape, chunks: Shape) -> Plan:
    """Of a coarser array: whole chunks, several where they are small."""
    block = [min(c, n) for c, n in zip(chunks, shape)]
    for axis in range(len(shape) - 1, -1, -1):
        block[axis] = min(block[axis] * max(SIDE // math.prod(block), 1), shape[axis])
    return Plan(shape, 0, tuple(block), (), (), 1)


def run_coarser(target: str, digest: str, saved: str, level: int, index: Index) -> Tally:
    """A task: a block of a level, unless all its chunks exist."""
    with counted_task(saved) as clock:
        job = load_once(target, digest, saved)
        finer, coarser = job.level(level - 1), job.level(level)
        block = blocks_of(coarser.shape, coarser.chunks).at(index)
        if not is_there(coarser, block.start, block.stop):
            before = traffic.read, traffic.written
            result = numpy.empty(block.shape, coarser.dtype)
            leading = len(block.start) - job.plan.spatial
            height = max(finer.chunks[leading] * coarser.shape[leading] // finer.shape[leading], 1)
            for low in range(block.start[leading], block.stop[leading], height):
                high = min(low + height, block.stop[leading])
                part = Block((*block.start[:leading], low, *block.start[leading + 1:]),
                             (*block.stop[:leading], high, *block.stop[leading + 1:]))
                inside = (slice(None),) * leading + (slice(low - block.start[leading],
                                                           high - block.start[leading]),)
                result[inside] = _mean(finer, coarser, part)
            with clock.stage("writing"):
                write(job.level(level, "w"), block, result, clock)
            clock.tally.bytes_read = traffic.read - before[0]
            clock.tally.bytes_written = traffic.written - before[1]
        return clock.tally


def _mean(finer: zarr.Array, coarser: zarr.Array, part: Block) -> Array:
    """Of the elements that those of `part` stand for. Index i stands for i p / n rounded down to
    (i + 1) p / n rounded down, of extents n and p."""
    borders = [[i * p // n for i in range(a, b + 1)] for a, b, n, p in
               zip(part.start, part.stop, coarser.shape, finer.shape)]
    region = Block(tuple(b[0] for b in borders), tuple(b[-1] for b in borders))
    values = read(finer, region, finer.dtype.newbyteorder("="))
    for axis, border in enumerate(borders):
        starts = numpy.array(border)
        if len(starts) <= values.shape[axis]:
            sums = numpy.add.reduceat(values, starts[:-1] - starts[0], axis, dtype="float64")
            values = sums / numpy.diff(starts).reshape([-1 if i == axis else 1 for i in
                                                        range(values.ndim)])
    return to_samples(values, coarser.dtype.newbyteorder("="))
