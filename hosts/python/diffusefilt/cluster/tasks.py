# SPDX-License-Identifier: MIT
"""What a worker does for a block. It runs up to three tasks at once: while one filters, another
reads and a third writes; none of these is done by two at a time."""
from __future__ import annotations

import asyncio
import contextlib
import threading
import time
from typing import Any, Iterator, Optional

import numpy
import zarr

from diffusefilt import _steps
from diffusefilt._samples import to_arithmetic, to_samples
from diffusefilt._steps import Array
from diffusefilt.cluster.jobs import Job, is_there, load_once
from diffusefilt.cluster.plan import IN_FLIGHT, Block, Index
from diffusefilt.cluster.report import Tally
from diffusefilt.cluster.stores import traffic

_gate = threading.BoundedSemaphore(IN_FLIGHT)
_stages = {name: threading.Lock() for name in ("reading", "filtering", "writing")}
_running = 0  # tasks in this process
_running_lock = threading.Lock()
_given_up: set[str] = set()


class GivenUp(Exception):
    """The client wants no more of this job."""


class _Clock:
    """Times the stages of a task and gives up between them."""

    def __init__(self, saved: str) -> None:
        self.saved, self.tally = saved, Tally(tasks=1)

    def check(self) -> None:
        if self.saved in _given_up:
            raise GivenUp()

    @contextlib.contextmanager
    def stage(self, name: str) -> Iterator[None]:
        asked = time.perf_counter()
        with _stages[name]:
            self.check()
            began = time.perf_counter()
            yield
            ended = time.perf_counter()
        self.tally.waiting += began - asked
        setattr(self.tally, name, getattr(self.tally, name) + ended - began)


@contextlib.contextmanager
def counted_task(saved: str) -> Iterator[_Clock]:
    """Around all that a task does: give_up waits for it, and at most IN_FLIGHT pass."""
    global _running
    with _running_lock:
        _running += 1
    try:
        with _gate:
            clock = _Clock(saved)
            clock.check()
            yield clock
    finally:
        with _running_lock:
            _running -= 1


def be_ready() -> None:
    """Runs on each worker, which imports this for it: the first task need not."""


async def give_up(saved: str, seconds: float = 60) -> None:
    """Runs on each worker, through Client.run: no task of the job writes after it."""
    _given_up.add(saved)
    end = time.monotonic() + seconds
    while _running and time.monotonic() < end:
        await asyncio.sleep(0.01)


def run_block(target: str, digest: str, saved: str, number: int, index: Index) -> Tally:
    """Round `number` of a block; the one after the last only deletes what is left of it."""
    with counted_task(saved) as clock:
        job = load_once(target, digest, saved)
        # All blocks that read this one have done so, or this task would not have begun.
        job.delete(number - 2, index)
        if number < job.rounds:
            before = traffic.read, traffic.written
            _filter_block(job, number, index, clock)
            clock.tally.bytes_read = traffic.read - before[0]
            clock.tally.bytes_written = traffic.written - before[1]
        return clock.tally


def rounds_done(target: str, digest: str, saved: str, index: Index) -> int:
    """How many rounds of a block are done."""
    job = load_once(target, digest, saved)
    block = job.plan.at(index)
    for number in range(job.rounds - 1, -1, -1):
        if is_there(job.output(number), block.start, block.stop):
            return number + 1
    return 0


def _filter_block(job: Job, number: int, index: Index, clock: _Clock) -> None:
    source, result = job.input(number), job.output(number, "w")
    regions = list(job.plan.regions(index, job.plan.steps[number]))
    with clock.stage("reading"):
        held = read(source, regions[0], numpy.dtype(job.question.arithmetic), clock)
    with clock.stage("filtering"):
        held = advance(job, held, regions, clock)
    with clock.stage("writing"):
        write(result, regions[-1], held, clock)


def read(array: zarr.Array, region: Block, dtype: "numpy.dtype[Any]", clock: Optional[_Clock] = None
         ) -> Array:
    """The elements of a region, chunk after chunk along the first axis that is cut. OSError, in
    one line, whatever the compressor or the file system raises."""
    held = numpy.empty(region.shape, dtype)
    for part in _layers(array, region):
        if clock:
            clock.check()
        inside = tuple(slice(a - o, b - o) for a, b, o in zip(part.start, part.stop, region.start))
        wanted = tuple(map(slice, part.start, part.stop))
        try:
            if array.dtype == dtype:
                array.get_basic_selection(wanted, out=held[inside])
            else:
                held[inside] = to_arithmetic(array[wanted], dtype)
        except Exception as error:
            first = ", ".join(f"{a} .. {b - 1}" for a, b in zip(part.start, part.stop))
            reason = str(error).partition("\n")[0] or type(error).__name__
            raise OSError(f"cannot read the elements {first} of {array.store.folder}: "
                          f"{reason}") from None
    return held


def write(array: zarr.Array, region: Block, held: Array, clock: Optional[_Clock] = None
          ) -> None:
    for part in _layers(array, region):
        if clock:
            clock.check()
        inside = tuple(slice(a - o, b - o) for a, b, o in zip(part.start, part.stop, region.start))
        array[tuple(map(slice, part.start, part.stop))] = _stored(held[inside], array.dtype)


def _stored(values: Array, samples: "numpy.dtype[Any]") -> Array:
    if values.dtype == samples:
        return values
    return to_samples(values, samples.newbyteorder("=")).astype(samples, copy=False)


def advance(job: Job, held: Array, regions: list[Block], clock: _Clock) -> Array:
    """The steps of a task, each from one of two pieces of memory into the other."""
    question, spatial = job.question, job.plan.spatial
    leading = held.ndim - spatial
    extents = job.plan.shape[leading:]
    pipeline = _steps.pipeline_name(numpy.empty((0,) * spatial, held.dtype), question.threshold,
                                    question.connectivity, question.conduction,
                                    job.instruction_set)
    spare = numpy.empty(regions[1].size, held.dtype)
    memory = held.reshape(-1)
    for before, after in zip(regions, regions[1:]):
        clock.check()
        result = spare[:after.size].reshape(after.shape)
        for volume in numpy.ndindex(*held.shape[:leading]):
            _steps._filter(pipeline, held[volume], before.start[leading:], extents,
                           question.threshold, result[volume], after.start[leading:])
        clock.tally.computed += after.size
        held, memory, spare = result, spare, memory
    return held


def _layers(array: zarr.Array, region: Block) -> Iterator[Block]:
    """A region cut along its first axis that has several chunks."""
    axis = next((i for i, (a, b, c) in enumerate(zip(region.start, region.stop, array.chunks))
                 if b - a > 1 and a // c != (b - 1) // c), 0)
    a, b, c = region.start[axis], region.stop[axis], array.chunks[axis]

    def moved(corner: Index, to: int) -> Index:
        return (*corner[:axis], to, *corner[axis + 1:])

    borders = [a, *range((a // c + 1) * c, b, c), b]
    for low, high in zip(borders, borders[1:]):
        yield Block(moved(region.start, low), moved(region.stop, high))


