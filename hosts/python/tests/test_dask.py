# SPDX-License-Identifier: MIT
"""Lazily on Dask arrays: bits, chunks, schedulers, refusals. DIFFUSEFILT_LONG asks for the full
count of random arrays."""
import concurrent.futures
import multiprocessing
import os
import unittest

import dask
import dask.array as da
import numpy as np

import diffusefilt
import diffusefilt.dask

LONG = bool(os.environ.get("DIFFUSEFILT_LONG"))


def random_chunks(random, extent):
    cuts = random.choice(np.arange(1, extent), random.integers(0, min(extent, 5)), replace=False)
    borders = [0, *sorted(map(int, cuts)), extent]
    return tuple(b - a for a, b in zip(borders, borders[1:]))


def random_case(random):
    """An array, its chunks, and arguments of iterate."""
    shape = tuple(map(int, random.integers(1, *random.choice([(50, 2), (22, 3)]))))
    image = random.normal(100, 20, shape).astype(random.choice(["f4", "f8"]))
    sets = diffusefilt.INSTRUCTION_SETS
    sets = sets[:sets.index(diffusefilt.best_instruction_set()) + 1]
    return image, tuple(random_chunks(random, extent) for extent in shape), {
        "iterations": int(random.integers(1, 6)),
        "connectivity": str(random.choice(diffusefilt.CONNECTIVITIES)),
        "conduction": str(random.choice(diffusefilt.CONDUCTIONS)),
        "instruction_set": str(random.choice(sets))}


class Lazily(unittest.TestCase):
    def compare(self, count, seed):
        random = np.random.default_rng(seed)
        for _ in range(count):
            image, chunks, arguments = random_case(random)
            steps = random.choice([None, 1, 2, 3, 5])
            lazy = diffusefilt.dask.denoise(da.from_array(image, chunks=chunks), 20, **arguments,
                                            steps_per_task=steps)
            self.assertEqual((lazy.shape, lazy.dtype), (image.shape, image.dtype))
            np.testing.assert_array_equal(lazy.compute(), diffusefilt.iterate(image, 20, **arguments),
                                          f"{chunks} {steps} {arguments}")

    def test_threads(self):
        with dask.config.set(scheduler="threads", num_workers=2):
            self.compare(1000 if LONG else 60, 1)

    def test_processes(self):
        context = multiprocessing.get_context("spawn")
        with concurrent.futures.ProcessPoolExecutor(2, mp_context=context) as pool:
            with dask.config.set(scheduler="processes", pool=pool):
                self.compare(1000 if LONG else 10, 2)

    def test_types_and_channels(self):
        image = np.random.default_rng(1).integers(0, 255, (40, 50, 3)).astype("uint8")
        for axis, dtype in ((-1, "float32"), (0, "float64")):
            moved = np.moveaxis(image, -1, axis)
            lazy = diffusefilt.denoise(da.from_array(moved, chunks=17), 20, 4, channel_axis=axis,
                                       dtype=dtype)
            np.testing.assert_array_equal(
                lazy.compute(), diffusefilt.denoise(moved, 20, 4, channel_axis=axis, dtype=dtype))

    def test_nothing_is_computed_before_it_is_asked_for(self):
        array = da.zeros((60, 70), chunks=20).map_blocks(lambda block: 1 / 0, dtype="f8",
                                                          meta=np.empty((0, 0)))
        lazy = diffusefilt.dask.denoise(array, 20)
        with self.assertRaises(ZeroDivisionError):
            lazy.compute()

    def test_refusals(self):
        array = da.zeros((6, 8))
        for kind, words, image, options in (
                (TypeError, "lazily, not ndarray", np.zeros((6, 8)), {}),
                (TypeError, "not MaskedArray", da.ma.masked_equal(array, 1), {}),
                (ValueError, "known", array[array[:, 0] > 0], {}),
                (TypeError, "not <c16", array.astype("c16"), {}),
                (ValueError, "dimensions, not 1", array[0], {}),
                (ValueError, "empty", array[:0], {}),
                (ValueError, "not nan", array, {"threshold": np.nan}),
                (ValueError, "estimate_threshold", array, {"threshold": "auto"}),
                (ValueError, "not be negative", array, {"iterations": -1}),
                (ValueError, "at least 1", array, {"steps_per_task": 0})):
            with self.subTest(words), self.assertRaisesRegex(kind, words):
                diffusefilt.dask.denoise(image, **{"threshold": 20, **options})


if __name__ == "__main__":
    unittest.main()
