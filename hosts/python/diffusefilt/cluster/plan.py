# SPDX-License-Identifier: MIT
"""How an array is cut into blocks and its steps into rounds.

In a round every block takes k steps at once: a task reads the block with k elements to each side,
and each step computes one element less on those sides, until the block is left. All blocks but
the last along an axis are equally large and end where chunks end, so no chunk has two writers.
"""
from __future__ import annotations

import dataclasses
import functools
import itertools
import math
from typing import Iterator, Optional, Sequence

Shape = tuple[int, ...]
Index = tuple[int, ...]

VECTOR_BYTES = 32  # the least length of a row of a block, that of the longest vector
INTERPRETER = 150_000_000  # bytes of a worker that has not read anything
IN_FLIGHT = 3  # tasks of a worker at once: one reads, one filters, one writes
SCRATCH_CHUNK = 1 << 20, 1 << 25  # bytes: smaller chunks cost time, larger ones memory
LONGEST = 64  # steps in a task, more gain nothing
TASKS_PER_SECOND = 1000  # that the scheduler hands out, see docs/scale.md


@dataclasses.dataclass(frozen=True)
class Block:
    """The elements start .. stop - 1 along each axis."""
    start: Shape
    stop: Shape

    def grown(self, by: int, spatial: int, shape: Shape) -> Block:
        """With `by` elements more to each side along the last `spatial` axes, within `shape`."""
        by_axis = (0,) * (len(shape) - spatial) + (by,) * spatial
        return Block(tuple(max(a - d, 0) for a, d in zip(self.start, by_axis)),
                     tuple(min(b + d, n) for b, d, n in zip(self.stop, by_axis, shape)))

    @property
    def shape(self) -> Shape:
        return tuple(b - a for a, b in zip(self.start, self.stop))

    @property
    def size(self) -> int:
        return math.prod(self.shape)


@dataclasses.dataclass(frozen=True)
class Plan:
    """shape: of the array. spatial: number of its last axes that are filtered as one image or
    volume; each index of the others has one of its own. block: the extents of a block. steps: of
    each round. scratch_chunks: of the stores between rounds. vector: the least extent of a block
    along the last axis, unless the array is narrower: a narrower last block is joined to its
    neighbour."""
    shape: Shape
    spatial: int
    block: Shape
    steps: tuple[int, ...]
    scratch_chunks: Shape
    vector: int

    @functools.cached_property
    def borders(self) -> tuple[tuple[int, ...], ...]:
        """Along each axis, of the blocks, from 0 to the extent."""
        borders = [[*range(0, n, b), n] for n, b in zip(self.shape, self.block)]
        last = borders[-1]
        if len(last) > 2 and last[-1] - last[-2] < self.vector:
            del last[-2]
        return tuple(map(tuple, borders))

    @functools.cached_property
    def grid(self) -> Shape:
        """Number of blocks along each axis."""
        return tuple(len(borders) - 1 for borders in self.borders)

    @functools.cached_property
    def reach(self) -> Shape:
        """How many blocks to each side a task reads of, along each axis."""
        leading = len(self.shape) - self.spatial
        return (0,) * leading + tuple(-(-max(self.steps) // b) for b in self.block[leading:])

    def at(self, index: Index) -> Block:
        return Block(tuple(b[i] for b, i in zip(self.borders, index)),
                     tuple(b[i + 1] for b, i in zip(self.borders, index)))

    def regions(self, index: Index, steps: int) -> Iterator[Block]:
        """What a task holds: what it reads, and after each of `steps` steps."""
        block = self.at(index)
        return (block.grown(left, self.spatial, self.shape) for left in range(steps, -1, -1))

    @property
    def work(self) -> float:
        """Elements computed for each element that is asked for. Along an axis the sum over all
        blocks factorises."""
        computed = 0
        for steps in self.steps:
            for left in range(steps):
                computed += math.prod(
                    sum(min(b + left, n) - max(a - left, 0) for a, b in zip(axis, axis[1:]))
                    if i >= len(self.shape) - self.spatial else n
                    for i, (n, axis) in enumerate(zip(self.shape, self.borders)))
        return computed / (math.prod(self.shape) * sum(self.steps))


@dataclasses.dataclass(frozen=True)
class Costs:
    """Seconds for each element: of reading from the source and from a store between rounds, of
    writing there and into the target, of a step by as many workers at once as share a machine."""
    read_source: float = 1e-9
    read_scratch: float = 0.5e-9
    write_scratch: float = 1e-9
    write_target: float = 2e-9
    step: float = 0.5e-9
    task: float = 0.005  # of a task, whatever it does


@dataclasses.dataclass(frozen=True)
class Room:
    """What the cluster has: workers, the memory of the smallest in bytes (None if unknown), the
    tasks that one runs at once, and its share of its machine's processors."""
    workers: int
    memory: Optional[int]
    threads: int
    processors: float

    @property
    def in_flight(self) -> int:
        return min(self.threads, IN_FLIGHT)


def split_steps(iterations: int, steps_per_task: int) -> tuple[int, ...]:
    """The steps of each round, as equal as can be."""
    rounds = -(-iterations // steps_per_task)
    return tuple(iterations // rounds + (i < iterations % rounds) for i in range(rounds))


def scratch_chunks(shape: Shape, spatial: int, block: Shape, steps: int, itemsize: int) -> Shape:
    """Chunks that divide a block. Along axes that are cut they are hardly longer than what a
    neighbour reads of them, `steps` elements, but not too small; the others are cut only where
    a chunk would be too large."""
    smallest, largest = SCRATCH_CHUNK
    leading = len(shape) - spatial
    chunks = [min(b, n) for b, n in zip(block, shape)]
    cut = [i for i in range(leading, len(shape)) if block[i] < shape[i]]
    rest = math.prod(n for i, n in enumerate(chunks) if i not in cut) * itemsize
    side = math.ceil((smallest / rest) ** (1 / max(len(cut), 1)))
    for i in cut:
        chunks[i] = next(d for d in range(1, block[i] + 1)
                         if block[i] % d == 0 and d >= min(max(steps, side), block[i]))
    for i in range(len(shape)):
        if i not in cut:
            excess = max(math.prod(chunks) * itemsize / largest, 1)
            chunks[i] = 1 if i < leading and excess > 1 else math.ceil(chunks[i] / excess)
    return tuple(chunks)


def memory_of(block: Shape, steps: int, shape: Shape, chunks: Shape, spatial: int,
              itemsize: int, in_flight: int) -> int:
    """Bytes that a worker needs: each task holds what it read or what it writes, the one that
    filters both, and reading or writing holds chunks, their compressed bytes and a buffer of the
    compressor."""
    leading = len(shape) - spatial
    held = math.prod(min(b + (2 * steps if i >= leading else 0), n)
                     for i, (b, n) in enumerate(zip(block, shape)))
    return INTERPRETER + (held * (in_flight + 1) + 3 * math.prod(chunks)) * itemsize


def require_room(block: Shape, steps: int, shape: Shape, chunks: Shape, spatial: int,
                 itemsize: int, room: Room) -> None:
    """MemoryError, with figures, if a worker cannot hold the tasks that it runs at once."""
    need = memory_of(block, steps, shape, chunks, spatial, itemsize, room.in_flight)
    if need > available(room):
        raise MemoryError(
            f"a worker needs {need / 1e6:.0f} MB for blocks of {_by(block)} elements, chunks of "
            f"{_by(chunks)}, {steps} steps in a task and {room.in_flight} tasks at once; it has "
            f"{available(room) / 1e6:.0f} MB, three quarters of its limit of "
            f"{(room.memory or 0) / 1e6:.0f} MB")


def available(room: Room) -> float:
    """Bytes of a worker that may be used: Dask pauses it at 4/5 of its limit."""
    return math.inf if room.memory is None else 0.75 * room.memory


def choose(shape: Shape, spatial: int, chunks: Shape, itemsize: int, iterations: int,
           room: Room, costs: Costs, *, block: Optional[Shape] = None,
           steps_per_task: Optional[int] = None) -> Plan:
    """The plan that `costs` say is done first, among those that fit into memory.

    chunks: of the array; blocks are of whole chunks. itemsize: of an element while it is
    filtered. block, steps_per_task: if these are given, only the rest is chosen.

    Errors: MemoryError, with figures, if no block fits.
    """
    vector = min(VECTOR_BYTES // itemsize, shape[-1])
    steps = ([min(steps_per_task, iterations)] if steps_per_task else
             sorted({-(-iterations // rounds) for rounds in range(1, iterations + 1)
                     if -(-iterations // rounds) <= LONGEST}))
    blocks = [block] if block else list(_candidates(shape, spatial, chunks, vector))
    best: tuple[float, Optional[Plan]] = math.inf, None
    for k, candidate in itertools.product(steps, blocks):
        if memory_of(candidate, k, shape, chunks, spatial, itemsize,
                     room.in_flight) > available(room):
            continue
        time = _time(candidate, k, shape, spatial, chunks, iterations, room, costs)
        if time < best[0]:
            best = time, Plan(shape, spatial, candidate, split_steps(iterations, k),
                              scratch_chunks(shape, spatial, candidate, k, itemsize), vector)
    if best[1] is None:
        require_room(min(blocks, key=math.prod), steps[0], shape, chunks, spatial, itemsize, room)
    assert best[1] is not None
    return best[1]


def whole_chunks(block: Sequence[int], shape: Shape, chunks: Shape, vector: int) -> Shape:
    """The block that was asked for, made of whole chunks and not too narrow."""
    least = (*block[:-1], max(block[-1], vector))
    return tuple(n if b >= n else min(-(-b // c) * c, n) for b, n, c in zip(least, shape, chunks))


def _candidates(shape: Shape, spatial: int, chunks: Shape, vector: int) -> Iterator[Shape]:
    leading = len(shape) - spatial
    choices = [[min(c, n)] for c, n in zip(chunks[:leading], shape)]
    for axis in range(leading, len(shape)):
        n, c = shape[axis], min(chunks[axis], shape[axis])
        growth = 1.2 if axis == leading else 1.5
        counts = {math.ceil(growth ** i) for i in range(100) if growth ** i * c < n}
        choices.append(sorted({*(whole_chunks((m * c,), (n,), (c,), vector if
                                              axis == len(shape) - 1 else 1)[0]
                                 for m in counts), n}))
    return itertools.product(*choices)


def _time(block: Shape, k: int, shape: Shape, spatial: int, chunks: Shape, iterations: int,
          room: Room, costs: Costs) -> float:
    """Seconds that all rounds take, as if all blocks had as many inner sides. Cutting a second
    axis was measured to cost a tenth, a third one a third: rows and planes get short."""
    leading = len(shape) - spatial
    counts = [-(-n // b) for n, b in zip(shape, block)]
    size = math.prod(block)

    def grown(by: Sequence[float]) -> float:
        """Elements of a block with as many more to its inner sides, along each axis."""
        return math.prod(b + 2 * (m - 1) / m * d * (i >= leading)
                         for i, (b, d, m) in enumerate(zip(block, by, counts)))

    axes = len(shape)
    cuts = sum(b < n for b, n in zip(block[leading + 1:], shape[leading + 1:]))
    # Simpson's rule for the mean over the steps, of what is a cubic at most.
    held = (grown((0,) * axes) + 4 * grown(((k - 1) / 2,) * axes) + grown((k - 1,) * axes)) / 6
    filtering = costs.step * k * held * (1, 1.1, 1.37)[cuts]
    rounds = -(-iterations // k)
    turns = -(-math.prod(counts) // room.workers)
    total = 0.0
    for number in range(rounds):
        reading = (costs.read_source * grown([-(-k // c) * c for c in chunks]) if number == 0
                   else costs.read_scratch * grown((k,) * axes))
        writing = size * (costs.write_target if number == rounds - 1 else costs.write_scratch)
        stages = reading, filtering, writing
        # A step runs on all processors, reading and writing (compressors, mostly) on one each.
        together = max(*stages, filtering + (reading + writing) / room.processors)
        last = sum(stages) + costs.task
        each = last if room.in_flight == 1 else min(together + costs.task, last)
        each = max(each, room.workers / TASKS_PER_SECOND)
        total += last + (turns - 1) * each
    return total


def _by(shape: Sequence[int]) -> str:
    return " x ".join(map(str, shape))
