# SPDX-License-Identifier: MIT
"""How an array is cut: into blocks and rounds, within memory, in order."""
import math
import random
import unittest

import numpy as np

from diffusefilt.cluster import plan as plans
from diffusefilt.cluster.plan import Costs, Room
from diffusefilt.cluster.rounds import Frontier


def random_plan(rng):
    spatial = rng.choice((2, 3))
    shape = tuple(rng.randint(1, 90) for _ in range(spatial + rng.choice((0, 0, 1, 2))))
    chunks = tuple(rng.randint(1, 40) for _ in shape)
    room = Room(rng.randint(1, 9), rng.choice((None, 10**11)), rng.randint(1, 4), 1)
    wanted = None
    if rng.random() < 0.5:
        wanted = plans.whole_chunks([rng.randint(1, 60) for _ in shape], shape, chunks, 8)
    return chunks, plans.choose(shape, spatial, chunks, 4, rng.randint(1, 40), room, Costs(),
                                block=wanted,
                                steps_per_task=rng.choice((None, rng.randint(1, 20))))


class Plans(unittest.TestCase):
    def test_blocks_cover_the_array_in_whole_chunks(self):
        rng = random.Random(1)
        for _ in range(300):
            chunks, plan = random_plan(rng)
            for n, c, s, b in zip(plan.shape, chunks, plan.scratch_chunks, plan.borders):
                self.assertEqual((b[0], b[-1]), (0, n), plan)
                self.assertTrue(all(x < y for x, y in zip(b, b[1:])), plan)
                self.assertFalse([x for x in b[:-1] if x % c or x % s], (plan, chunks))
            last = plan.borders[-1]
            self.assertGreaterEqual(min(y - x for x, y in zip(last, last[1:])),
                                    min(8, plan.shape[-1]), plan)

    def test_work_is_what_regions_compute(self):
        rng = random.Random(2)
        for _ in range(50):
            _, plan = random_plan(rng)
            if math.prod(plan.grid) * sum(plan.steps) > 20_000:
                continue
            computed = sum(region.size for steps in plan.steps for i in np.ndindex(*plan.grid)
                           for region in list(plan.regions(i, steps))[1:])
            self.assertAlmostEqual(plan.work,
                                   computed / math.prod(plan.shape) / sum(plan.steps), 9)

    def test_memory_decides_between_slabs_and_blocks(self):
        shape, chunks = (2048, 2048, 2048), (64, 64, 64)  # a plane has 16 MiB
        for memory, cut in ((3e10, (True, False, False)), (1e9, (True, True, None))):
            plan = plans.choose(shape, 3, chunks, 4, 16, Room(8, int(memory), 3, 1), Costs())
            found = [b < n for b, n in zip(plan.block, shape)]
            self.assertTrue(all(c is None or c == f for c, f in zip(cut, found)), plan)
            self.assertLess(plans.memory_of(plan.block, max(plan.steps), shape, chunks, 3, 4, 3),
                            0.75 * memory)

    def test_costs_decide_the_steps_of_a_task(self):
        steps = [max(plans.choose((4096,) * 3, 3, (64,) * 3, 4, 64, Room(64, int(4e9), 3, 1),
                                  Costs(write_scratch=w, read_scratch=w)).steps)
                 for w in (1e-11, 1e-9, 1e-7)]
        self.assertTrue(steps[0] < steps[1] < steps[2], steps)


class Order(unittest.TestCase):
    def test_no_round_begins_before_what_it_reads_is_there(self):
        rng = random.Random(3)
        for _ in range(60):
            grid = tuple(rng.randint(1, 5) for _ in range(3))
            reach = tuple(rng.choice((0, 1, 1, 2)) for _ in grid)
            rounds = rng.randint(1, 4)
            frontier = Frontier(grid, reach, rounds, np.zeros(grid, int))
            running, begun = list(frontier.initial()), 0
            while running:
                number, index = running.pop(rng.randrange(len(running)))
                begun += 1
                self.assertEqual(frontier.done[index], number)
                around = tuple(slice(max(i - r, 0), i + r + 1) for i, r in zip(index, reach))
                self.assertGreaterEqual(frontier.done[around].min(), number)
                # What is deleted two rounds later nobody reads any more.
                self.assertLessEqual(frontier.done[around].max(), number + 2)
                running += frontier.finish(index)
            self.assertEqual((begun, frontier.done.min()), (math.prod(grid) * rounds, rounds))


if __name__ == "__main__":
    unittest.main()
