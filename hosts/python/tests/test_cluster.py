# SPDX-License-Identifier: MIT
"""Zarr in and out on a Dask cluster: bits, stores, memory, lost workers, resuming."""
import glob
import os
import pathlib
import shutil
import signal
import threading
import time
import unittest

import dask
import distributed
import numpy as np
import zarr
from numcodecs import FixedScaleOffset

import diffusefilt
from cluster_support import InFolder, content, noise, write
from diffusefilt._samples import to_samples as rounded
from diffusefilt._axes import EXPONENTIAL, QUADRATIC
from diffusefilt.cluster import filter_store, local_client, stores, tasks
from diffusefilt.cluster.plan import Block


class Results(InFolder):
    def test_bits_do_not_depend_on_blocks_and_chunks(self):
        cases = [(noise(30, 20, 24), (4, 8, 24), "minimal", QUADRATIC, {"order": "F"}),
                 (noise(7, 9, 5), (7, 9, 5), "maximal", EXPONENTIAL, {"compressor": None}),
                 (noise(31, 40, dtype=">f8"), (1, 40), "maximal", QUADRATIC,
                  {"filters": [FixedScaleOffset(0, 1, ">f8")]}),
                 (noise(9, 20, 33).astype("int16"), (4, 7, 9), "minimal", EXPONENTIAL,
                  {"dimension_separator": "/", "fill_value": None})]
        with local_client() as client:
            for image, chunks, connectivity, conduction, options in cases:
                source = write(image, chunks, **options)
                source.attrs["spacing"] = [1, 2]
                float_type = "f8" if image.dtype.kind == "i" else image.dtype.newbyteorder("=")
                expected = diffusefilt.iterate(source[...].astype(float_type), 20, 5,
                                               connectivity, conduction)
                if image.dtype.kind == "i":
                    expected = rounded(expected, image.dtype)
                for how in ({}, {"slabs": 3, "steps_per_task": 2},
                            {"block": (8,) * image.ndim, "steps_per_task": 1},
                            {"block": (2, 16, 9)[:image.ndim], "steps_per_task": 9,
                             "scratch_compressor": "zstd", "scratch": "."}):
                    steps = []
                    report = filter_store("in.zarr", "out.zarr", 20, 5, connectivity, conduction,
                                          client=client, progress=lambda *at: steps.append(at),
                                          **how)
                    np.testing.assert_array_equal(content(), expected, f"{how} {chunks}")
                    found = zarr.open_array("out.zarr", mode="r")
                    self.assertEqual(found.attrs.asdict(), {"spacing": [1, 2]})
                    for name in ("compressor", "dtype", "chunks", "order", "_dimension_separator"):
                        self.assertEqual(getattr(found, name), getattr(source, name))
                    self.assertEqual(steps[-1], (image.size * 5,) * 2)
                    self.assertGreaterEqual(report.redundancy, 1)
                    self.expect_only("in.zarr", "out.zarr")
                    shutil.rmtree("out.zarr")
                shutil.rmtree("in.zarr")

    def test_a_missing_chunk_is_not_read_as_rubbish(self):
        image = noise(6, 8)
        write(image, (2, 8), fill_value=None)
        os.remove("in.zarr/1.0")
        write(image, (2, 8), "filled.zarr", fill_value=3)
        os.remove("filled.zarr/1.0")
        image[2:4] = 3
        with local_client(1) as client:
            with self.assertRaisesRegex(OSError, "1.0 is missing"):
                filter_store("in.zarr", "out.zarr", 20, 1, client=client)
            self.expect_only("in.zarr", "filled.zarr")
            filter_store("filled.zarr", "out.zarr", 20, 1, client=client)
        np.testing.assert_array_equal(content(), diffusefilt.step(image, 20))
        # Nor is one that a round has lost, whatever the fill value.
        folder = stores.Folder("filled.zarr")
        lost = stores.open_array(folder, stores.read_json(folder, ".zarray"))
        with self.assertRaisesRegex(OSError, "1.0 is missing"):
            tasks.read(lost, Block((0, 0), (6, 8)), np.dtype("f4"))


class Workers(InFolder):
    def test_a_volume_of_several_times_their_memory(self):
        # One plane has 277 MB, more than a worker may have; all chunks are one file.
        limit, shape, chunk = 250_000_000, (2, 5888, 5888), (2, 256, 256)
        period = noise(*chunk, dtype="float64").round(-1)
        zarr.open_array("in.zarr", mode="w", shape=shape, dtype="float64", chunks=chunk)
        write(period, chunk, "one.zarr")
        for y, x in np.ndindex(23, 23):
            os.link("one.zarr/0.0.0", f"in.zarr/0.{y}.{x}")
        tiled = diffusefilt.iterate(np.tile(period, (1, 3, 3)), 20, 2)
        with dask.config.set({"distributed.scheduler.allowed-failures": 0}):
            with local_client(2, limit) as client:
                filter_store("in.zarr", "out.zarr", 20, 2, client=client, steps_per_task=2)
                result = zarr.open_array("out.zarr", mode="r")
                for y, x in ((0, 0), (1, 0), (22, 22), (15, 22), (8, 20)):
                    sy, sx = (slice(256 * (0 if i == 0 else 2 if i == 22 else 1),
                                    256 * (1 if i == 0 else 3 if i == 22 else 2)) for i in (y, x))
                    found = result[:, 256 * y:256 * (y + 1), 256 * x:256 * (x + 1)]
                    self.assertTrue((found == tiled[:, sy, sx]).all(), (y, x))
                shutil.rmtree("out.zarr")
                shutil.rmtree("in.zarr")
                # What cannot fit is refused unread: this has no chunks.
                zarr.open_array("in.zarr", mode="w", shape=shape, dtype="float64", chunks=shape,
                                fill_value=None)
                with self.assertRaisesRegex(MemoryError, r"needs \d+ MB .* has 188 MB"):
                    filter_store("in.zarr", "out.zarr", 20, 2, client=client)
        self.expect_only("in.zarr", "one.zarr")

    def test_killed_in_the_middle_of_a_round(self):
        image = noise(120, 64, 64)
        write(image, (2, 64, 64))

        def kill_in_round(client, folder):
            while len(glob.glob(folder)) < 5:
                time.sleep(0.002)
            os.kill(next(iter(client.run(os.getpid).values())), signal.SIGKILL)

        with local_client() as client:
            for folder in ("out.zarr.*/round1/*/0/0", "out.zarr.*/round2/*/0/0", "out.zarr/*.0.0"):
                killer = threading.Thread(target=kill_in_round, args=(client, folder), daemon=True)
                killer.start()
                filter_store("in.zarr", "out.zarr", 20, 3, client=client, slabs=60,
                             steps_per_task=1)
                killer.join()
                np.testing.assert_array_equal(content(), diffusefilt.iterate(image, 20, 3))
                self.expect_only("in.zarr", "out.zarr")
                shutil.rmtree("out.zarr")

    def test_resuming(self):
        image = noise(40, 32, 32)
        write(image, (2, 32, 32))

        class Stop(Exception):
            pass

        def stop(at):
            def progress(done, total):
                if done >= at * total:
                    raise Stop
            return progress

        with local_client() as client:
            def run(**options):
                return filter_store("in.zarr", "out.zarr", 20, 6, client=client, **options)
            for at in (0.1, 0.5, 0.95):
                with self.assertRaises(Stop):
                    run(slabs=10, steps_per_task=2, resume=True, progress=stop(at))
                self.assertEqual(len(os.listdir()), 3)
                with self.assertRaises(ValueError):  # nobody takes it for an array
                    zarr.open_array("out.zarr", mode="r")
                with self.assertRaisesRegex(FileExistsError, "unfinished"):
                    run()
                with self.assertRaisesRegex(ValueError, "begun with threshold 20.0, not 21.0"):
                    filter_store("in.zarr", "out.zarr", 21, 6, client=client, resume=True)
                report = run(resume=True)
                self.assertLess(report.tally.computed, (1.3 - at) * 6 * image.size)
                np.testing.assert_array_equal(content(), diffusefilt.iterate(image, 20, 6))
                self.expect_only("in.zarr", "out.zarr")
                with self.assertRaisesRegex(FileExistsError, "out.zarr exists"):
                    run(resume=True)
                shutil.rmtree("out.zarr")
            with self.assertRaises(Stop):
                run(slabs=10, steps_per_task=2, progress=stop(0.5))
            self.expect_only("in.zarr")


class Stores(InFolder):
    def check(self, client, root):
        image = noise(20, 30, 40)
        options = {"chunks": (4, 16, 16), "shape": image.shape, "dtype": "f4",
                   "dimension_separator": "/"}
        import fsspec
        zarr.create(store=fsspec.get_mapper(f"{root}/in.zarr"), **options)[...] = image
        filter_store(f"{root}/in.zarr", f"{root}/out.zarr", 20, 4, client=client,
                     block=(8, 16, 40), steps_per_task=2)
        found = zarr.open_array(fsspec.get_mapper(f"{root}/out.zarr"), mode="r")
        np.testing.assert_array_equal(found[...], diffusefilt.iterate(image, 20, 4))
        fs, path = fsspec.core.url_to_fs(root)
        left = {name[len(path):].strip("/").partition("/")[0] for name in fs.find(path)}
        self.assertEqual(left, {"in.zarr", "out.zarr"})
        self.assertFalse([name for name in fs.find(path) if ".partial" in name])
        with self.assertRaises(FileExistsError):
            filter_store(f"{root}/in.zarr", f"{root}/out.zarr", 20, 4, client=client)

    def test_memory(self):
        with distributed.Client(processes=False, n_workers=2, threads_per_worker=3,
                                dashboard_address=None) as client:
            self.check(client, "memory://volumes")

    @unittest.skipUnless(os.environ.get("DIFFUSEFILT_TEST_S3"), "needs an S3 server")
    def test_s3(self):
        import boto_s3
        boto_s3.BotoS3().s3.create_bucket(Bucket="volumes")
        with dask.config.set({"distributed.worker.preload": [boto_s3.__file__]}):
            with local_client() as client:
                self.check(client, "s3://volumes")

    def test_an_ome_zarr_group(self):
        image = np.random.default_rng(3).normal(100, 30, (2, 2, 12, 31, 40)).clip(0, 255)
        image = image.astype("uint8")
        for planes in (12, 1):
            group = zarr.open_group("in.zarr", mode="w")
            scales = []
            for level in range(3):
                n = tuple(-(-e // 2**level) for e in (planes, 31, 40))
                a = group.create(str(level), shape=(2, 2, *n), dtype="uint8",
                                 chunks=(1, 1, 4, 8, 8), dimension_separator="/")
                if level == 0:
                    a[...] = image[:, :, :planes]
                scales.append({"path": str(level), "coordinateTransformations": [
                    {"type": "scale", "scale": [1, 1, 2 * 2**level, 2**level, 2**level]}]})
            axes = [{"name": n, "type": t} for n, t in zip("tczyx", ["time", "channel"]
                                                           + ["space"] * 3)]
            group.attrs["multiscales"] = [{"version": "0.4", "axes": axes, "datasets": scales}]
            group.attrs["omero"] = {"channels": [{"label": "a"}, {"label": "b"}]}
            with local_client() as client:
                filter_store("in.zarr", "out.zarr", 20, 3, client=client, steps_per_task=2,
                             block=(1, 1, 4, 16, 40))
            found = zarr.open_group("out.zarr", mode="r")
            self.assertEqual(found.attrs.asdict(), group.attrs.asdict())
            for t, c in np.ndindex(2, 2):
                volume = image[t, c, :planes].astype("float64")
                expected = diffusefilt.iterate(volume[0] if planes == 1 else volume, 20, 3)
                np.testing.assert_array_equal(found["0"][t, c],
                                              rounded(expected, image.dtype).reshape(volume.shape))
            for level in ("1", "2"):
                fine, coarse = found[str(int(level) - 1)][...].astype(float), found[level]
                for index in ((0, 1, 0, 0, 0), (1, 1, 0, 3, 7), (1, 0, 0, 2, 4)):
                    borders = [[i * p // n, (i + 1) * p // n] for i, p, n in
                               zip(index, fine.shape, coarse.shape)]
                    mean = fine[tuple(slice(*b) for b in borders)].mean()
                    self.assertEqual(coarse[index], int(mean + 0.5))
            self.assertEqual(pathlib.Path("out.zarr/1/.zarray").read_text().count('"/"'), 1)
            self.expect_only("in.zarr", "out.zarr")
            shutil.rmtree("out.zarr")


if __name__ == "__main__":
    unittest.main()
