"""Zarr in and out on a Dask cluster: bits, chunks, memory, lost workers, the command line."""
import contextlib
import glob
import io
import math
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
import unittest

import dask
import distributed
import numpy as np
import zarr
from numcodecs import FixedScaleOffset

import diffusefilt
from diffusefilt import cluster
from diffusefilt.cluster import filter_slab, filter_store, local_client

README = pathlib.Path(__file__).resolve().parents[3] / "README.md"


def noise(*shape, dtype="float32"):
    return np.random.default_rng(7).normal(100, 20, shape).astype(dtype)


class Folder(unittest.TestCase):
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


def write(image, chunks, name="in.zarr", **options):
    array = zarr.open_array(name, mode="w", shape=image.shape, dtype=image.dtype, chunks=chunks,
                            **options)
    array[...] = image
    return array


class Results(Folder):
    def test_bits_do_not_depend_on_slabs_and_chunks(self):
        cases = [(noise(30, 20, 24), (4, 8, 24), "minimal", "quadratic", {"order": "F"}),
                 (noise(7, 9, 5), (7, 9, 5), "maximal", "exponential", {"compressor": None}),
                 (noise(31, 40, dtype="float64"), (1, 40), "maximal", "quadratic",
                  {"filters": [FixedScaleOffset(0, 1, "f8")]})]
        with local_client() as client:
            for image, chunks, connectivity, conduction, options in cases:
                source = write(image, chunks, **options)
                source.attrs["spacing"] = [1, 2]
                expected = diffusefilt.iterate(source[...], 20, 3, connectivity, conduction)
                for slabs in (1, 2, 3, 5, None):
                    steps = []
                    filter_store("in.zarr", "out.zarr", 20, 3, connectivity, conduction,
                                 client=client, slabs=slabs,
                                 progress=lambda *at: steps.append(at))
                    found = zarr.open_array("out.zarr", mode="r")
                    np.testing.assert_array_equal(found[...], expected, f"{slabs} {chunks}")
                    self.assertEqual(found.attrs.asdict(), {"spacing": [1, 2]})
                    self.assertEqual(found.compressor, source.compressor)
                    self.assertEqual(found.chunks[1:], chunks[1:])
                    self.assertEqual(steps, [(1, 3), (2, 3), (3, 3)])
                    self.expect_only("in.zarr", "out.zarr")
                    shutil.rmtree("out.zarr")

    def test_slabs_end_where_chunks_end(self):
        for extent, chunk, slabs in ((30, 4, 5), (7, 7, 5), (10, 3, 6), (5, 2, 9), (29, 40, 3)):
            volume = zarr.empty((extent, 2), chunks=(chunk, 2))
            planes, borders = cluster._cut(volume, slabs)
            self.assertEqual((borders[0], borders[-1]), (0, extent))
            self.assertEqual(len(borders) - 1, min(slabs, extent))
            self.assertTrue(all(a < b for a, b in zip(borders, borders[1:])), borders)
            self.assertFalse([b for b in borders[:-1] if b % planes], borders)

    def test_a_chunk_that_a_step_lost_is_not_read_as_zeros(self):
        image = noise(6, 8)
        write(image, (2, 8), "out.zarr")
        write(image, (2, 8))
        os.remove("in.zarr/1.0")
        for from_outside in (True, False):
            with (contextlib.nullcontext() if from_outside
                  else self.assertRaisesRegex(OSError, "1.0 is missing")):
                filter_slab("in.zarr", "out.zarr", 0, 2, from_outside, 20.0, "minimal",
                            "quadratic", "none")
        with self.assertRaisesRegex(FileNotFoundError, "lacks the chunk"):
            cluster._publish("in.zarr", "done.zarr")
        pathlib.Path("out.zarr/1.0.0123.partial").touch()  # of a worker killed while it wrote
        cluster._publish("out.zarr", "done.zarr")
        self.assertFalse(glob.glob("done.zarr/*.partial"))
        self.expect_only("in.zarr", "done.zarr")


class Workers(Folder):
    def test_a_volume_of_several_times_their_memory(self):
        limit, side, planes = 200_000_000, 512, 4
        count = math.ceil(3 * limit / (4 * side * side * planes))
        period = noise(planes, side, side).round(-1)
        volume = zarr.open_array("in.zarr", mode="w", shape=(count * planes, side, side),
                                 dtype="float32", chunks=(planes, side, side))
        volume[:planes] = period
        for i in range(1, count):  # one file serves as every chunk
            os.link("in.zarr/0.0.0", f"in.zarr/{i}.0.0")
        three = diffusefilt.step(np.concatenate([period] * 3), 20).reshape(3, *period.shape)
        with dask.config.set({"distributed.scheduler.allowed-failures": 0}):
            with local_client(2, limit) as client:
                filter_store("in.zarr", "out.zarr", 20, 1, client=client)
                result = zarr.open_array("out.zarr", mode="r")
                for i in range(count):
                    expected = three[0 if i == 0 else 2 if i == count - 1 else 1]
                    self.assertTrue((result[planes * i:planes * (i + 1)] == expected).all(), i)
                # The limit is one: in a single slab the volume costs a worker its life.
                shutil.rmtree("out.zarr")
                with self.assertRaises(distributed.scheduler.KilledWorker):
                    filter_store("in.zarr", "out.zarr", 20, 1, client=client, slabs=1)
        self.expect_only("in.zarr")

    def test_killed_in_the_middle_of_a_step(self):
        image = noise(120, 64, 64)
        write(image, (2, 64, 64))
        killed = []

        def kill_in_step(client, step):
            while len(glob.glob(f"out.zarr.*.partial/step{step}/*.0.0")) < 5:
                time.sleep(0.002)
            killed.append(glob.glob(f"out.zarr.*.partial/step{step}/*.0.0"))
            os.kill(next(iter(client.run(os.getpid).values())), signal.SIGKILL)

        with local_client() as client:
            for step in (1, 2, 3):
                killer = threading.Thread(target=kill_in_step, args=(client, step), daemon=True)
                killer.start()
                filter_store("in.zarr", "out.zarr", 20, 3, client=client, slabs=60)
                killer.join()
                self.assertLess(len(killed.pop()), 60)
                np.testing.assert_array_equal(zarr.open_array("out.zarr")[...],
                                              diffusefilt.iterate(image, 20, 3))
                self.expect_only("in.zarr", "out.zarr")
                shutil.rmtree("out.zarr")


class CommandLine(Folder):
    def test_readme(self):
        line, = re.findall(r"^    (python3 -m diffusefilt.cluster .*)$",
                           README.read_text(), re.M)
        image = noise(20, 30, 40)
        write(image, (4, 30, 40), "head.zarr")
        path = f"{os.path.dirname(sys.executable)}:{os.environ['PATH']}"
        run = subprocess.run(["sh", "-c", line], capture_output=True, text=True,
                             env={**os.environ, "PATH": path})
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        self.assertEqual(run.stdout.splitlines(), [f"step {i} of 4" for i in range(1, 5)])
        np.testing.assert_array_equal(zarr.open_array("smooth.zarr")[...],
                                      diffusefilt.iterate(image, 20, 4))
        self.expect_only("head.zarr", "smooth.zarr")

    def test_interrupted(self):
        write(noise(20, 30, 40), (4, 30, 40))
        run = subprocess.Popen(
            [sys.executable, "-m", "diffusefilt.cluster", "in.zarr", "out.zarr", "-k20", "-n100000"],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, start_new_session=True)
        self.assertEqual(run.stdout.readline(), "step 1 of 100000\n")
        os.killpg(run.pid, signal.SIGINT)
        self.assertEqual((run.communicate()[1], run.returncode), ("", 130))
        self.expect_only("in.zarr")

    def test_another_cluster_and_bad_input(self):
        image = noise(9, 30)
        write(image, (4, 30))
        write(image.astype("int16"), (4, 30), "int.zarr")
        write(image[:0], (4, 30), "empty.zarr")
        write(image, (4, 30), "cut.zarr")
        os.truncate("cut.zarr/1.0", 20)
        pathlib.Path("text").write_text("")
        good = "in.zarr out.zarr --threshold 20"
        with local_client() as client:
            address = client.scheduler.address

            def run(arguments):
                output = io.StringIO()
                with contextlib.redirect_stderr(output), contextlib.redirect_stdout(output):
                    try:
                        status = cluster.main(arguments.split() + ["--scheduler", address])
                    except SystemExit as end:
                        status = end.code
                return status, output.getvalue()

            for status, words, arguments in (
                    (1, "", "none.zarr out.zarr -k 20"),
                    (1, "", "text out.zarr -k 20"),
                    (1, "float32 or float64", "int.zarr out.zarr -k 20"),
                    (1, "empty", "empty.zarr out.zarr -k 20"),
                    (1, "cannot read planes .* of .*cut.zarr: ", "cut.zarr out.zarr -k 20"),
                    (1, "in.zarr exists", "in.zarr in.zarr -k 20"),
                    (1, "none/out.zarr", "in.zarr none/out.zarr -k 20"),
                    (1, "positive", "in.zarr out.zarr -k nan"),
                    (1, "at least 1", good + " -n 0"),
                    (1, "at least 1", good + " --slabs 0"),
                    (2, "required: -k", "in.zarr out.zarr"),
                    (2, "invalid float value: 'x'", "in.zarr out.zarr -k x")):
                found = run(arguments)
                self.assertEqual(found[0], status, found)
                self.assertRegex(found[1].splitlines()[-1], f"^diffusefilt.cluster: .*{words}")
                if status == 1:
                    self.assertEqual(found[1].count("\n"), 1, found)
                self.assertFalse(glob.glob("out.zarr*") + glob.glob("*.partial"), arguments)
            self.assertEqual(run(good)[0], 0)
            np.testing.assert_array_equal(zarr.open_array("out.zarr")[...],
                                          diffusefilt.step(image, 20))


if __name__ == "__main__":
    unittest.main()
