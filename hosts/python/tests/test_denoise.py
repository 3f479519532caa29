# SPDX-License-Identifier: MIT
"""denoise: the samples of the command line host, containers kept, refusals."""
import gzip
import itertools
import os
import pathlib
import subprocess
import tempfile
import unittest
import warnings
from unittest import mock

import dask.array as da
import numpy as np
import xarray as xr

import diffusefilt
from diffusefilt import CONDUCTIONS, CONNECTIVITIES, _samples, denoise
from diffusefilt._axes import EXPONENTIAL, QUADRATIC

HEAD = pathlib.Path("/usr/share/mricron/templates/ch2.nii.gz")  # of mricron-data
NRRD = {"i1": "int8", "u1": "uint8", "i2": "int16", "u2": "uint16", "i4": "int32", "u4": "uint32",
        "i8": "int64", "u8": "uint64", "f4": "float", "f8": "double"}


def picture(dtype="f8", shape=(24, 30), sigma=8):
    """Two halves with noise, all of it in the range of the type."""
    random = np.random.default_rng(3)
    image = np.full(shape, 40.0)
    image[..., shape[-1] // 2:] = 100
    return (image + random.normal(0, sigma, shape)).clip(0, 127).astype(dtype)


def filtered_by_program(image, *options, channels=False):
    with tempfile.TemporaryDirectory() as folder:
        source, target = pathlib.Path(folder, "in.nrrd"), pathlib.Path(folder, "out.nrrd")
        kinds = " ".join(["vector"] * channels + ["domain"] * (image.ndim - channels))
        source.write_bytes(
            f"NRRD0004\ntype: {NRRD[image.dtype.str[1:]]}\ndimension: {image.ndim}\n"
            f"sizes: {' '.join(map(str, image.shape[::-1]))}\nkinds: {kinds}\nencoding: raw\n"
            "endian: little\n\n".encode() + image.tobytes())
        subprocess.run([os.environ["DIFFUSE_PROGRAM"], source, "-o", target, *map(str, options)],
                       check=True, capture_output=True)
        return np.frombuffer(target.read_bytes().split(b"\n\n", 1)[1],
                             image.dtype).reshape(image.shape)


@unittest.skipUnless("DIFFUSE_PROGRAM" in os.environ, "DIFFUSE_PROGRAM is not set")
class TheProgram(unittest.TestCase):
    def expect_the_same(self, image, arithmetic, conduction=QUADRATIC, iterations=3,
                        threshold="auto", channels=False):
        expected = filtered_by_program(image, "--type", arithmetic, "--conduction", conduction,
                                       "-n", iterations, "-k", threshold, channels=channels)
        found = denoise(image, threshold, iterations, conduction=conduction, dtype=arithmetic,
                        channel_axis=-1 if channels else None)
        self.assertEqual(found.dtype, image.dtype)
        np.testing.assert_array_equal(found, expected, f"{image.dtype} {arithmetic} {conduction}")

    def test_every_type(self):
        for dtype, arithmetic in itertools.product(NRRD, ("float32", "float64")):
            image = picture(dtype)
            if dtype[0] != "f":  # up to both ends of the type
                limits = np.iinfo(dtype)
                ends = max(limits.min, -2**53), min(limits.max, 2**53)  # the program takes no others
                image = np.random.default_rng(5).integers(*ends, (9, 14), dtype, endpoint=True)
            self.expect_the_same(image, arithmetic)

    def test_every_estimate(self):
        for image in (picture(), picture("f4", (5, 9, 14)), picture("u1", (1, 30)),
                      picture(sigma=0), np.full((6, 8), 7.0), np.round(picture("i2") / 10)):
            for conduction, iterations in ((QUADRATIC, 7), (EXPONENTIAL, 1)):
                self.expect_the_same(image, "float64", conduction, iterations)
        self.expect_the_same(picture("i2"), "float32", iterations=0)
        self.expect_the_same(picture("u1", (24, 30, 2)), "float64", channels=True)

    @unittest.skipUnless(HEAD.exists(), f"{HEAD} is not installed")
    def test_the_head(self):
        data = gzip.decompress(HEAD.read_bytes())
        x, y, z = np.frombuffer(data[42:48], "<i2")
        start = int(np.frombuffer(data[108:112], "<f4")[0])
        head = np.frombuffer(data[start:], "u1").reshape(z, y, x)
        noisy = head + np.random.default_rng(1).normal(0, 10, head.shape)
        for image, arithmetic in ((head, None), (noisy, None), (noisy.astype("f4"), "float32")):
            expected = filtered_by_program(image, "--type", arithmetic or "float64")
            np.testing.assert_array_equal(denoise(image), expected)


class Samples(unittest.TestCase):
    def test_rounding(self):
        below = np.nextafter(0.5, 0)
        for dtype, pairs in {
                "u1": {0.5: 1, below: 0, 2.5: 3, -1: 0, 254.5: 255, 300: 255, np.nan: 0, -np.inf: 0},
                "i2": {-0.5: -1, -below: 0, -2.5: -3, 1e9: 2**15 - 1, -np.inf: -2**15},
                "i8": {2.0**62: 2**62, 2.0**63: 2**63 - 1, np.inf: 2**63 - 1, -1e30: -2**63},
                "u8": {2.0**63 + 2048: 2**63 + 2048, 1e30: 2**64 - 1, -3: 0}}.items():
            values = np.array([list(pairs)] * 2)
            found = _samples.to_samples(values, np.dtype(dtype))
            self.assertEqual(found.tolist(), [list(pairs.values())] * 2, dtype)

    def test_memory(self):
        image = picture()
        for source in (image, image.T, image[::-1, ::2], np.asfortranarray(image)):
            expected = denoise(np.array(source, order="C"), 20)
            before = source.copy()
            for out in (np.empty(source.shape), np.empty(source.shape[::-1]).T):
                self.assertIs(denoise(source, 20, out=out), out)
                np.testing.assert_array_equal(out, expected)
                np.testing.assert_array_equal(source, before)
        with mock.patch("diffusefilt._steps.call", wraps=diffusefilt._steps.call) as call:
            denoise(image, 20)
        places = [args[1].host for args, _ in call.call_args_list]
        self.assertEqual(places[0], image.__array_interface__["data"][0])

    def test_channels(self):
        image, seen = picture("u1", (3, 20, 30)), []
        for axis in (0, -1, 1):
            moved = np.moveaxis(image, 0, axis)
            found = denoise(moved, 20, 2, channel_axis=axis, progress=lambda *at: seen.append(at))
            for index in range(3):
                np.testing.assert_array_equal(np.moveaxis(found, axis, 0)[index],
                                              denoise(image[index], 20, 2))
        self.assertEqual(seen[:6], [(i, 6) for i in range(1, 7)])
        volume = picture("f4", (4, 5, 9, 14))
        np.testing.assert_array_equal(denoise(volume, 20, channel_axis=0)[2], denoise(volume[2], 20))


class Kept(np.ndarray):
    """Any subclass."""


class Containers(unittest.TestCase):
    def test_nothing_flows_over_the_border_of_a_mask(self):
        for dtype, arithmetic, conduction, connectivity in itertools.product(
                ("i2", "f4", "f8"), ("float32", "float64"), CONDUCTIONS, CONNECTIVITIES):
            image = np.ma.masked_array(picture(dtype, (6, 20, 30)), fill_value=3)
            image[..., 20:] = np.ma.masked
            image.data[..., 20:] = 90 if dtype == "i2" else np.nan
            options = {"conduction": conduction, "connectivity": connectivity, "dtype": arithmetic}
            for threshold in (1e-3, 20, 1e15, "auto"):
                found = denoise(image, threshold, **options)
                np.testing.assert_array_equal(found.mask, image.mask)
                np.testing.assert_array_equal(found.data[..., 20:], image.data[..., 20:])
                other = image.copy()
                other.data[..., 20:] = 5
                np.testing.assert_array_equal(found, denoise(other, threshold, **options))
                if threshold != "auto" and connectivity == "minimal":  # as at an image's border
                    alone = np.ascontiguousarray(image.data[..., :20])
                    np.testing.assert_array_equal(found.data[..., :20],
                                                  denoise(alone, threshold, **options))
            self.assertEqual((found.dtype, found.fill_value), (np.dtype(dtype), 3))
            found.mask[0] = True
            self.assertFalse(image.mask[0].all())
        self.assertLess(abs(diffusefilt.estimate_noise(image) - 8), 2)
        with self.assertRaisesRegex(ValueError, "too large for an image with a mask"):
            denoise(image, np.inf)
        self.assertIs(denoise(np.ma.masked_array(picture()), 20).mask, np.ma.nomask)

    def test_what_comes_in_comes_out(self):
        image = picture()
        array = xr.DataArray(image, dims=("y", "x"), coords={"x": np.arange(30) / 2}, name="head",
                             attrs={"units": "HU"})
        for source in (image, array, np.asarray(image).view(Kept), da.from_array(image, chunks=13),
                       array.chunk({"x": 11}), np.ma.masked_array(image)):
            found = denoise(source, 20)
            self.assertIs(type(found), type(source))
            np.testing.assert_array_equal(np.asarray(found), denoise(image, 20))
        found = denoise(array.chunk({"x": 11}), 20)
        self.assertIsInstance(found.data, da.Array)
        xr.testing.assert_identical(found.coords.to_dataset(), array.coords.to_dataset())
        self.assertEqual((found.attrs, found.name), (array.attrs, array.name))
        self.assertEqual(denoise(image.astype("f2")).dtype, np.float16)


class Estimates(unittest.TestCase):
    def setUp(self):
        self.noise = np.random.default_rng(1).normal(0, 10, (3, 120, 150))
        self.image = self.noise + 100 * (np.arange(150) > 70)

    def test_noise_that_is_not_white_is_told_of(self):
        smoothed = (self.image[:, 1:] + self.image[:, :-1]) / 2
        for call in (denoise, diffusefilt.estimate_noise, diffusefilt.estimate_threshold):
            with self.assertWarnsRegex(diffusefilt.CorrelatedNoiseWarning, "correlation 0.[45]"):
                call(smoothed[0])
            with warnings.catch_warnings():
                warnings.simplefilter("error")
                call(self.image[0])

    def test_what_a_threshold_depends_on(self):
        sets = diffusefilt.INSTRUCTION_SETS
        sets = sets[:sets.index(diffusefilt.best_instruction_set()) + 1]
        for image in (self.image[0], self.image):
            for conduction in CONDUCTIONS:
                found = {diffusefilt.estimate(image, conduction=conduction, instruction_set=each)
                         for each in sets}
                self.assertEqual(len(found), 1)
        # Neither the memory order, nor the channels' place, nor what is added to all.
        whole = diffusefilt.estimate(self.image, channel_axis=0)
        moved = np.asfortranarray(np.moveaxis(self.image, 0, -1))
        self.assertEqual(diffusefilt.estimate(moved, channel_axis=-1), whole)
        self.assertAlmostEqual(diffusefilt.estimate(self.image + 1000, channel_axis=0).threshold,
                               whole.threshold, delta=0.02 * whole.threshold)
        self.assertEqual(diffusefilt.estimate(self.image, 0).threshold, 0)
        # Elements of every type, of which few have a fraction.
        for dtype in ("u1", "i1", "u2", "i2", "u4", "i4", "u8", "i8", "f2", "f4"):
            image = (self.image[0] + (0 if dtype == "i1" else 90)).astype(dtype)
            found = diffusefilt.estimate(image)
            self.assertLess(abs(found.sigma - 10), 0.5, dtype)
            self.assertLess(found.threshold, 50, dtype)


class Refusals(unittest.TestCase):
    def test_each_in_one_line_with_nothing_written(self):
        image = np.zeros((6, 8))
        out = np.full_like(image, 5)
        row = np.full(8, 5.0)
        overlapping = np.lib.stride_tricks.as_strided(row, (6, 8), (0, 8))
        for kind, words, arguments, options in (
                (TypeError, "not <c16", image.astype("c16"), {}),
                (TypeError, r"not \|O", image.astype("O"), {}),
                (TypeError, r"not \|V16", np.zeros((6, 8), "f8,f8"), {}),
                (TypeError, "not >f8", image.astype(">f8"), {}),
                (TypeError, "not >i2", image.astype(">i2"), {}),
                (TypeError, r"not \|b1", image.astype(bool), {}),
                (TypeError, "not <f16", image.astype("g"), {}),
                (TypeError, "not <U", np.full((6, 8), "a"), {}),
                (TypeError, "array, not list", [[1.0]], {}),
                (ValueError, "dimensions, not 0", np.array(1.0), {}),
                (ValueError, "dimensions, not 1", image[0], {}),
                (ValueError, "dimensions, not 4", np.zeros((2, 2, 2, 2)), {}),
                (ValueError, "besides channel_axis, not 1", image, {"channel_axis": 0}),
                (ValueError, "3 is none of 2 dim", image, {"channel_axis": 3}),
                (ValueError, "must not be empty", image[:0], {}),
                (ValueError, "beyond 2.53", np.full((6, 8), 2**53 + 1), {}),
                (ValueError, "beyond 2.53", np.full((6, 8), -2**53 - 1), {}),
                (ValueError, "not nan", image, {"threshold": np.nan}),
                (ValueError, "not -1", image, {"threshold": -1}),
                (ValueError, "not 'outo'", image, {"threshold": "outo"}),
                (TypeError, "not None", image, {"threshold": None}),
                (ValueError, "float32, not 1e-39", image, {"threshold": 1e-39, "dtype": "f4"}),
                (ValueError, "not be negative", image, {"iterations": -1}),
                (TypeError, "integer", image, {"iterations": 1.5}),
                (TypeError, "not int8", image, {"dtype": "i1"}),
                (ValueError, "not 'both'", image, {"connectivity": "both"}),
                (ValueError, "not 'linear'", image, {"conduction": "linear"}),
                (ValueError, "overlap itself", image, {"out": overlapping}),
                (ValueError, "share memory", image, {"out": image}),
                (TypeError, "ndarray of float64", image, {"out": out.astype("f4")}),
                (ValueError, "shape", image, {"out": out.T}),
                (TypeError, "lazily, without out", da.from_array(image), {"out": out}),
                (ValueError, "all elements at once", da.from_array(image), {})):
            with self.subTest(words), self.assertRaisesRegex(kind, f"^.*{words}.*$") as caught:
                denoise(arguments, **{"out": out, **options} if type(arguments) is np.ndarray
                        else options)
            self.assertNotIn("\n", str(caught.exception))
        self.assertTrue((out == 5).all() and (row == 5).all() and not image.any())


if __name__ == "__main__":
    unittest.main()
