#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Plays a run of diffusefilt.cluster on a cluster that is not there: its own plan and its own order
of blocks, with tasks that take the time that costs say, a scheduler that hands out so many tasks a
second, and a store with so many bytes a second.

    PYTHONPATH=hosts/python python3 benchmarks/cluster_simulation.py [OPTION...]

The defaults are 50,000 x 20,000 x 10,000 float32 on 10,000 workers with a processor each. One
figure to a line; --row prints them as a row of the table in docs/scale.md.
"""
import argparse
import collections
import heapq
import math
import random

import numpy

from diffusefilt.cluster import plan as plans
from diffusefilt.cluster.plan import Costs, Room
from diffusefilt.cluster.rounds import Frontier


def parse():
    parser = argparse.ArgumentParser(description=__doc__.partition("\n\n")[0])
    extents = {"type": lambda text: tuple(map(int, text.split(",")))}
    parser.add_argument("--shape", default=(50_000, 20_000, 10_000), **extents)
    parser.add_argument("--chunks", default=(64, 64, 64), **extents)
    parser.add_argument("--block", **extents)
    parser.add_argument("--steps", type=int, default=16)
    parser.add_argument("--steps-per-task", type=int)
    parser.add_argument("--workers", type=int, default=10_000)
    parser.add_argument("--processors", type=int, default=1, help="of each worker")
    parser.add_argument("--memory", type=float, default=4e9, help="of each worker, in bytes")
    parser.add_argument("--tasks-per-second", type=float, default=plans.TASKS_PER_SECOND)
    parser.add_argument("--store", type=float, default=1e11, help="bytes per second, all together")
    parser.add_argument("--costs", type=float, nargs=5, default=(3e-9, 1.5e-9, 2e-9, 7e-9, 0.9e-9),
                        help="seconds of one processor for each element: reading the source and "
                        "between rounds, writing there and the target, a step")
    parser.add_argument("--slow", type=float, default=0.001, help="share of tasks that take")
    parser.add_argument("--slowness", type=float, default=5, help="times as long")
    parser.add_argument("--barrier", action="store_true", help="between rounds, for comparison")
    parser.add_argument("--row", action="store_true")
    return parser.parse_args()


def aligned(plan, chunks, steps):
    """Elements of the chunks that a block in the middle reads."""
    return math.prod(min(-(-(b + steps) // c) * c + -(-steps // c) * c, n) if b < n else n
                     for b, c, n in zip(plan.block, chunks, plan.shape))


def stages(plan, options, number):
    """Seconds of reading, filtering and writing in round `number`, and bytes read and written."""
    source, between, to_between, to_target, step = options.costs
    steps, last = plan.steps[number], number == len(plan.steps) - 1
    middle = tuple(g // 2 for g in plan.grid)
    held = list(plan.regions(middle, steps))
    read = aligned(plan, options.chunks if number == 0 else plan.scratch_chunks, steps)
    size = held[-1].size
    computed = sum(region.size for region in held[1:])
    return (read * (source if number == 0 else between), computed * step / options.processors,
            size * (to_target if last else to_between), 4 * read, 4 * size)


def play(plan, options):
    """Seconds until the last task has ended, and how many tasks there were."""
    rng = random.Random(1)
    rounds = len(plan.steps)
    sweeps = rounds > 1
    frontier = Frontier(plan.grid, plan.reach, rounds + sweeps, numpy.zeros(plan.grid, "int32"))
    blocks = math.prod(plan.grid)
    times = []
    for number in range(rounds):
        reading, filtering, writing, read, written = stages(plan, options, number)
        # Three tasks overlap in a worker; the store is shared by all that use it at once.
        busy = max(reading, filtering, writing,
                   filtering + (reading + writing) / options.processors)
        times.append(max(busy, (read + written) * min(options.workers, blocks) / options.store))
    times += [0.1] * sweeps  # deleting
    waiting = collections.deque(frontier.initial())
    held_back = collections.defaultdict(list)  # by round, with a barrier
    left = collections.Counter({number: blocks for number in range(rounds + sweeps)})
    running, free, now, handed, tasks = [], options.workers, 0.0, 0.0, 0
    while waiting or running:
        while waiting and free:
            number, index = waiting.popleft()
            # The scheduler hands out one task after another.
            handed = max(handed, now) + 1 / options.tasks_per_second
            slow = options.slowness if rng.random() < options.slow else 1
            heapq.heappush(running, (handed + times[number] * slow, number, index))
            free, tasks = free - 1, tasks + 1
        now, number, index = heapq.heappop(running)
        free += 1
        left[number] -= 1
        begun = list(frontier.finish(index))
        if options.barrier:
            held_back[number + 1] += begun
            begun = held_back.pop(number + 1) if not left[number] else []
        waiting.extend(begun)
    return now, tasks


def main():
    options = parse()
    itemsize = 4
    room = Room(options.workers, int(options.memory), plans.IN_FLIGHT, options.processors)
    costs = Costs(*options.costs[:4], options.costs[4] / options.processors)
    block = options.block and plans.whole_chunks(options.block, options.shape, options.chunks, 8)
    plan = plans.choose(options.shape, 3, options.chunks, itemsize,
                        options.steps, room, costs, block=block,
                        steps_per_task=options.steps_per_task)
    seconds, tasks = play(plan, options)
    volume = math.prod(options.shape) * itemsize
    blocks = math.prod(plan.grid)
    files = math.prod(-(-n // c) for n, c in zip(plan.shape, plan.scratch_chunks))
    whole = math.prod(options.shape) / math.prod(plan.block)  # blocks, if none were cut short
    moved = [stages(plan, options, number)[3:] for number in range(len(plan.steps))]
    figures = {
        "block": " x ".join(map(str, plan.block)), "blocks": f"{blocks:,}",
        "rounds": len(plan.steps), "steps in a task": plan.steps[0], "tasks": f"{tasks:,}",
        "computed": f"{plan.work:.2f}",
        "volumes read": f"{sum(r for r, _ in moved) * whole / volume:.2f}",
        "volumes written": f"{sum(w for _, w in moved) * whole / volume:.2f}",
        "files between rounds": f"{files if len(plan.steps) > 1 else 0:,}",
        "scheduler": f"{tasks / options.tasks_per_second:.0f} s",
        "store": f"{sum(map(sum, moved)) * whole / options.store:.0f} s",
        "time": f"{seconds:.0f} s",
    }
    if options.row:
        print("| " + " | ".join(map(str, figures.values())) + " |")
    else:
        print("\n".join(f"{name}: {value}" for name, value in figures.items()))


if __name__ == "__main__":
    main()
