# SPDX-License-Identifier: MIT
"""NumPy in and out: results, memory, refusals, and where the library is found."""
import ctypes
import itertools
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import threading
import unittest
from unittest import mock

import numpy as np

import diffusefilt
from diffusefilt import CONDUCTIONS, CONNECTIVITIES, INSTRUCTION_SETS, _library, _steps
from diffusefilt._axes import EXPONENTIAL, QUADRATIC

PACKAGE = pathlib.Path(diffusefilt.__file__).resolve().parent
HERE_SETS = INSTRUCTION_SETS[:INSTRUCTION_SETS.index(diffusefilt.best_instruction_set()) + 1]


def noise(*shape, dtype="float64"):
    return np.random.default_rng(7).normal(100, 20, shape).astype(dtype)


def twice(image):
    """Writable memory of this shape, each row of it over the next one."""
    row = np.empty(image.shape[-1], image.dtype)
    return np.lib.stride_tricks.as_strided(row, image.shape, (0,) * (image.ndim - 1) + row.strides)


def reference(image, threshold, connectivity="minimal", conduction=QUADRATIC):
    """A step as the textbook has it."""
    reach = 1 if connectivity == "minimal" else image.ndim
    neighbours = [o for o in itertools.product((-1, 0, 1), repeat=image.ndim)
                  if 0 < np.count_nonzero(o) <= reach]
    padded, total = np.pad(image, 1, "edge"), 0
    for offset in neighbours:
        d = padded[tuple(slice(1 + o, 1 + o + e) for o, e in zip(offset, image.shape))] - image
        t = np.abs(d) * (1 / threshold)
        g = 1 / (t * t + 1) if conduction == QUADRATIC else np.exp(-(t * t))
        total = total + g * d / np.count_nonzero(offset)
    return total * (1 / len(neighbours)) + image


class Steps(unittest.TestCase):
    def test_every_pipeline(self):
        for shape in ((7, 9), (5, 7, 9)):
            image = noise(*shape)
            for axes in itertools.product(CONNECTIVITIES, CONDUCTIONS, ("float32", "float64"),
                                          HERE_SETS):
                connectivity, conduction, dtype, instruction_set = axes
                found = diffusefilt.step(image.astype(dtype), 20, connectivity, conduction,
                                         instruction_set)
                self.assertEqual(found.dtype, dtype)
                np.testing.assert_allclose(found, reference(image, 20, connectivity, conduction),
                                           2e-6 if dtype == "float32" else 1e-14, err_msg=axes)

    def test_iterate_takes_the_steps_asked_for(self):
        image = noise(6, 7, 8, dtype="float32")
        expected, before = image, image.copy()
        for iterations in range(4):
            for out in (None, np.empty_like(image)):
                seen = []
                found = diffusefilt.iterate(image, 20, iterations, out=out,
                                            progress=lambda *at: seen.append(at))
                np.testing.assert_array_equal(found, expected)
                self.assertTrue(found is out if out is not None else found is not image)
                self.assertEqual(seen, [(i + 1, iterations) for i in range(iterations)])
            expected = diffusefilt.step(expected, 20)
        np.testing.assert_array_equal(image, before)
        with self.assertRaises(ZeroDivisionError):
            diffusefilt.iterate(image, 20, 3, progress=lambda *_: 1 / 0)

    def test_parts_have_the_bits_of_the_whole(self):
        for dtype, width in itertools.product(("float32", "float64"), (3, 20)):
            image = noise(9, 8, width, dtype=dtype)
            arguments = (15, "maximal", EXPONENTIAL)
            whole = diffusefilt.step(image, *arguments)
            columns = np.s_[4:13] if width == 20 else np.s_[1:2]
            for region in (np.s_[2:5], np.s_[:, 7:], (np.s_[3:-1], np.s_[2:3], columns)):
                np.testing.assert_array_equal(
                    diffusefilt.step(image, *arguments, region=region), whole[region])
            for start, stop in ((0, 9), (0, 1), (8, 9), (3, 7), (4, 4)):
                first, end = max(start - 1, 0), min(stop + 1, 9)
                slab = diffusefilt.step_slab(image[first:end].copy(), *arguments, first=first,
                                             extent=9, start=start, stop=stop)
                np.testing.assert_array_equal(slab, whole[start:stop])

    def test_strides_do_not_matter_and_most_are_not_copied(self):
        big = noise(12, 14, 16)
        packed = np.zeros(8 * 9 * 8 + 1, "uint8")[1:].view("float64").reshape(8, 9)
        views = [big[::2], big[:, ::3, 4:11], big[::-1, ::-2], big[3], big[:, :, 5::16],
                 np.broadcast_to(big[:1], big.shape)]
        copied = [big.T, big[:, :, ::-1], big[0, :, ::2], packed]
        for view in views + copied:
            expected = diffusefilt.step(np.array(view, order="C"), 20)
            with mock.patch("diffusefilt._steps.call", wraps=_library.call) as call:
                np.testing.assert_array_equal(diffusefilt.step(view, 20), expected)
            in_place = call.call_args.args[1].host == view.__array_interface__["data"][0]
            self.assertEqual(in_place, any(view is v for v in views), view.strides)
            out = np.empty_like(big).view()[::-1][:, ::-1]
            if view.shape == out.shape:
                np.testing.assert_array_equal(diffusefilt.step(view, 20, out=out), expected)
                np.testing.assert_array_equal(out, expected)
        planes = np.empty((24, 14, 16))
        planes[::2] = big
        diffusefilt.step(planes[::2], 20, out=planes[1::2])
        np.testing.assert_array_equal(planes[1::2], diffusefilt.step(big, 20))


class Refusals(unittest.TestCase):
    def test_each_in_one_line(self):
        image = noise(6, 8)
        step, huge = diffusefilt.step, np.broadcast_to(np.float32(0), (2**31, 2))
        table = [
            (TypeError, "numpy.ndarray, not list", lambda: step([[1.0]], 1)),
            (TypeError, "not MaskedArray", lambda: step(np.ma.masked_array(image), 1)),
            (TypeError, "not <i2 .int16.", lambda: step(image.astype("int16"), 1)),
            (TypeError, "not >f8", lambda: step(image.astype(">f8"), 1)),
            (ValueError, "dimensions, not 4", lambda: step(np.zeros((2, 2, 2, 2)), 1)),
            (TypeError, "a number, not None", lambda: step(image, None)),
            (ValueError, "threshold .* not nan", lambda: step(image, np.nan)),
            (ValueError, "threshold .* not 0", lambda: step(image, 0)),
            (ValueError, "float32, not 1e-39", lambda: step(image.astype("float32"), 1e-39)),
            (ValueError, "minimal, maximal, not 'both'", lambda: step(image, 1, "both")),
            (ValueError, f"{INSTRUCTION_SETS[-1]}, not 'sse'", lambda: step(image, 1, instruction_set="sse")),
            (ValueError, "share memory", lambda: step(image, 1, out=image[::-1])),
            (ValueError, r"shape \(6, 8\)", lambda: step(image, 1, out=image.T)),
            (TypeError, "numpy.ndarray of float64", lambda: step(image, 1, out=image.astype("float32"))),
            (ValueError, "adjacent", lambda: step(image, 1, out=np.empty((8, 6)).T)),
            (ValueError, "overlap itself", lambda: step(image, 1, out=twice(image))),
            (ValueError, "writeable", lambda: step(image, 1, out=np.broadcast_to(1.0, (6, 8)))),
            (ValueError, "32 bits", lambda: step(huge, 1, region=np.s_[:1])),
            (ValueError, "2 slices", lambda: step(image, 1, region=3)),
            (ValueError, "go by 1", lambda: step(image, 1, region=np.s_[::2])),
            (ValueError, "negative", lambda: diffusefilt.iterate(image, 1, -1)),
            (TypeError, "integer", lambda: diffusefilt.iterate(image, 1, 1.5)),
            (ValueError, "in a volume of 9",
             lambda: diffusefilt.step_slab(image, 1, first=4, extent=9, start=8, stop=10)),
            (ValueError, "3 .. 8 of 9 are not",
             lambda: diffusefilt.step_slab(image, 1, first=3, extent=9, start=3, stop=5)),
        ]
        _steps._pipeline_name.cache_clear()
        with mock.patch("diffusefilt._library._best", "none"):
            with self.assertRaisesRegex(ValueError, "cannot run the avx pipelines"):
                step(image, 1, instruction_set="avx")
        for kind, words, call in table:
            with self.subTest(words), self.assertRaisesRegex(kind, f"^.*{words}.*$") as caught:
                call()
            self.assertNotIn("\n", str(caught.exception))

    def test_the_words_of_the_library_reach_the_thread_that_called(self):
        image = noise(6, 40)

        def narrow(column):
            with self.assertRaises(diffusefilt.Error) as caught:
                diffusefilt.step(image, 20, region=np.s_[:, column:column + 1],
                                 instruction_set="none")
            return caught.exception

        pipeline = diffusefilt.pipeline_name(image, 20, "minimal", QUADRATIC, "none")
        entry = _library._entry(pipeline)

        def interleaved(*arguments):  # another thread's call fails before this one's words are read
            status = entry(*arguments)
            if threading.current_thread() is threading.main_thread():
                other = threading.Thread(target=narrow, args=(7,))
                other.start()
                other.join()
            return status

        with mock.patch.dict(_library._entries, {pipeline: interleaved}):
            error = narrow(3)
        self.assertEqual(error.status, -4)
        self.assertEqual(str(error), (
            f"{pipeline} failed with status -4: Output buffer "
            "diffusefilt2 is accessed at 2, which is before the min (3) in dimension 0"))
        with mock.patch("diffusefilt._library._handler_found") as found:
            entry = ctypes.CDLL(diffusefilt.LIBRARY)[pipeline]
            self.assertEqual(entry(None, ctypes.c_double(1), None), -12)
        found.assert_called_once()

    def test_unusual_values(self):
        self.assertEqual(diffusefilt.iterate(np.empty((3, 0, 5), "float32"), 1, 2).shape, (3, 0, 5))
        image = noise(9, 9)
        image[4, 4] = np.nan
        self.assertEqual(np.isnan(diffusefilt.step(image, 20)).sum(), 5)
        linear = diffusefilt.step(noise(9, 9), np.inf, instruction_set="none")
        np.testing.assert_allclose(linear, reference(noise(9, 9), np.inf), 1e-14)


class Surroundings(unittest.TestCase):
    def test_instruction_sets_by_flags(self):
        lowest, middle, highest = INSTRUCTION_SETS
        for flags, expected in (("sse2 sse4_1", lowest), ("avx", lowest), ("avx sse4_1", middle),
                                (f"avx sse4_1 {highest} fma", middle),
                                (f"avx sse4_1 {highest} bmi1", middle),
                                (f"bmi1 fma {highest} sse4_1 avx", highest)):
            text = f"processor\t: 0\nflags\t\t: {flags}\nprocessor\t: 1\nflags\t\t: {flags}\n"
            self.assertEqual(diffusefilt.best_instruction_set(text), expected, flags)

    def test_finds_the_library(self):
        library = os.path.realpath(diffusefilt.LIBRARY)
        with tempfile.TemporaryDirectory() as folder:
            def imported(modules, **environment):
                run = subprocess.run(
                    [sys.executable, "-c", "import diffusefilt; print(diffusefilt.LIBRARY)"],
                    capture_output=True, text=True, cwd=folder,
                    env={"PYTHONPATH": str(modules), "PYTHONDONTWRITEBYTECODE": "1", **environment})
                return (run.stdout or run.stderr.splitlines()[-1]).strip()

            copy = pathlib.Path(folder, "lib", "python3", "dist-packages")
            copy.mkdir(parents=True)
            shutil.copytree(PACKAGE, copy / "diffusefilt")
            self.assertRegex(imported(copy), "ImportError: .*DIFFUSEFILT_LIBRARY")
            self.assertRegex(imported(copy, DIFFUSEFILT_LIBRARY="/none.so"), "ImportError: .*none")
            self.assertEqual(imported(copy, DIFFUSEFILT_LIBRARY=library), library)
            linked = imported(copy, LD_LIBRARY_PATH=os.path.dirname(library))
            self.assertEqual(linked, "libdiffusefilt_halide.so")
            for place in (copy.parent.parent, copy / "diffusefilt"):  # the later before the earlier
                place = place / "libdiffusefilt_halide.so"
                os.symlink(library, place)
                self.assertEqual(imported(copy), str(place))
        with mock.patch.object(_library, "__file__", "/site/diffusefilt/_library.py"):
            self.assertEqual(_library.candidates("a.so"), [pathlib.Path("/site/diffusefilt/a.so")])


if __name__ == "__main__":
    unittest.main()
