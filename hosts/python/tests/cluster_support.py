# SPDX-License-Identifier: MIT
"""What the tests of the cluster host share."""
import os
import shutil
import tempfile
import unittest

import dask
import numpy as np
import zarr


def noise(*shape, dtype="float32"):
    return np.random.default_rng(7).normal(100, 20, shape).astype(dtype)


def write(image, chunks, name="in.zarr", **options):
    array = zarr.open_array(name, mode="w", shape=image.shape, dtype=image.dtype, chunks=chunks,
                            **options)
    array[...] = image
    return array


def content(name="out.zarr"):
    return zarr.open_array(name, mode="r")[...]


class InFolder(unittest.TestCase):
    """A test in a folder of its own."""

    def setUp(self):
        self.addCleanup(os.chdir, os.getcwd())
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        os.chdir(folder.name)
        dask.config.set({"temporary-directory": folder.name + ".workers"})
        self.addCleanup(shutil.rmtree, folder.name + ".workers", ignore_errors=True)

    def expect_only(self, *names):
        self.assertEqual(sorted(os.listdir()), sorted(names))
