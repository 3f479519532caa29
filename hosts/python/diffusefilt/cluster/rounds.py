# SPDX-License-Identifier: MIT
"""The order in which blocks take their rounds. There is no barrier: a block goes into its next
round as soon as all blocks that it then reads of have done the one before."""
from __future__ import annotations

import collections
import itertools
import time
from typing import Any, Callable, Iterator

import distributed
import numpy

from diffusefilt._steps import Array
from diffusefilt.cluster.plan import Index, Shape

WINDOW = 10_000  # tasks that the scheduler knows at once, or two for each thread
PATIENCE = 60  # seconds without any worker


class Frontier:
    """grid, reach: of the plan. rounds: for each block to do. done: those done already."""

    def __init__(self, grid: Shape, reach: Shape, rounds: int, done: Array) -> None:
        self.grid, self.reach, self.rounds = grid, reach, rounds
        self.done = done
        self._begun = done.copy()

    def initial(self) -> Iterator[tuple[int, Index]]:
        for index in numpy.ndindex(*self.grid):
            yield from self._begin(index)

    def finish(self, index: Index) -> Iterator[tuple[int, Index]]:
        """Counts a round of a block as done. Returns the rounds, with their blocks, that may now
        begin."""
        self.done[index] += 1
        for neighbour in itertools.product(*(range(s.start, min(s.stop, n)) for s, n in
                                             zip(self._around(index), self.grid))):
            yield from self._begin(neighbour)

    def _begin(self, index: Index) -> Iterator[tuple[int, Index]]:
        done = int(self.done[index])
        if (self._begun[index] == done < self.rounds
                and self.done[self._around(index)].min() >= done):
            self._begun[index] += 1
            yield done, index

    def _around(self, index: Index) -> tuple[slice, ...]:
        return tuple(slice(max(i - r, 0), i + r + 1) for i, r in zip(index, self.reach))


def walk(client: distributed.Client, frontier: Frontier, task: Callable[..., Any],
         arguments: tuple[Any, ...], on_result: Callable[[Index, Any], None]) -> None:
    """Runs task(*arguments, round, index) for all rounds of all blocks. Whatever ends it early,
    no task is wanted any more then."""
    window = max(WINDOW, 2 * sum(client.nthreads().values()))
    waiting = collections.deque(frontier.initial())
    completed = distributed.as_completed(loop=client.loop)
    running: dict[str, tuple[distributed.Future, Index]] = {}
    try:
        while waiting or running:
            batch = [waiting.popleft() for _ in range(min(len(waiting), window - len(running)))]
            if batch:
                numbers, indexes = zip(*batch)
                futures = client.map(task, *([a] * len(batch) for a in arguments), numbers,
                                     indexes, pure=False, retries=2)
                running.update((f.key, (f, i)) for f, i in zip(futures, indexes))
                completed.update(futures)
                del futures
            for index, result in _results(client, completed, running):
                waiting.extend(frontier.finish(index))
                on_result(index, result)
    except BaseException:
        client.cancel([future for future, _ in running.values()])
        raise


def _results(client: distributed.Client, completed: distributed.as_completed,
             running: dict[str, tuple[distributed.Future, Index]]) -> list[tuple[Index, Any]]:
    """Of at least one task that has ended; raises what one has raised."""
    seen = time.monotonic()
    while not completed.has_ready():
        with completed.thread_condition:  # held, it lets no result slip in between
            if not completed.has_ready():
                completed.thread_condition.wait(1)
        if time.monotonic() - seen > 1:
            if client.status != "running":
                raise ConnectionError("the connection to the scheduler is lost")
            if client.scheduler_info()["workers"]:
                seen = time.monotonic()
            elif time.monotonic() - seen > PATIENCE:
                raise RuntimeError(f"the cluster has had no workers for {PATIENCE} s")
    if len(running) > WINDOW // 2:
        time.sleep(0.25)  # all have enough to do, and to gather many costs hardly more than one
    futures = completed.next_batch(block=False)
    # A worker may be lost between the end of its task and this: Dask then does the task again.
    results = client.gather(futures)
    return [(running.pop(future.key)[1], result) for future, result in zip(futures, results)]


def each(client: distributed.Client, grid: Shape, task: Callable[..., Any],
         arguments: tuple[Any, ...], on_result: Callable[[Index, Any], None]) -> None:
    """Runs task(*arguments, index) once for each index, in any order."""
    frontier = Frontier(grid, (0,) * len(grid), 1, numpy.zeros(grid, "int32"))
    walk(client, frontier, _Once(task), arguments, on_result)


class _Once:
    """A task without the number of a round."""

    def __init__(self, task: Callable[..., Any]) -> None:
        self.task = task

    def __call__(self, *arguments: Any) -> Any:
        *rest, _, index = arguments
        return self.task(*rest, index)
