# SPDX-License-Identifier: MIT
"""What docstrings, docs/python.md and README.md show works."""
import contextlib
import doctest
import importlib
import io
import pathlib
import pkgutil
import re
import runpy
import unittest

import numpy

import diffusefilt

ROOT = pathlib.Path(__file__).resolve().parents[3]


def load_tests(loader, tests, pattern):
    names = [m.name for m in pkgutil.walk_packages(diffusefilt.__path__, "diffusefilt.")]
    for name in ["diffusefilt", *names]:
        if not name.endswith("__main__"):
            tests.addTests(doctest.DocTestSuite(importlib.import_module(name)))
    return tests


class Documents(unittest.TestCase):
    def test_programs(self):
        for name, count in (("README.md", 1), ("docs/python.md", 5)):
            programs = re.findall(r"```python\n(.*?)```", (ROOT / name).read_text(), re.S)
            self.assertEqual(len(programs), count, name)
            for program in programs:
                self.expect_less_noise(program)

    def expect_less_noise(self, program):
        with self.subTest(program), contextlib.redirect_stdout(io.StringIO()):
            names = {}
            try:
                exec(program, names)
            except ModuleNotFoundError as error:
                self.skipTest(f"{error.name} is not installed")
            clean, noisy, smooth = (numpy.asarray(names[name]).astype("f8")
                                    for name in ("clean", "noisy", "smooth"))
            self.assertLess(numpy.abs(smooth - clean).mean(), numpy.abs(noisy - clean).mean() / 2)

    def test_typed_example(self):
        output = io.StringIO()
        with contextlib.redirect_stdout(output):
            runpy.run_path(str(ROOT / "hosts/python/example.py"), run_name="__main__")
        lines = output.getvalue().splitlines()
        self.assertEqual(lines[:2], ["step 1 of 2", "step 2 of 2"])
        noisy, *smoothed = map(float, lines[2].split())
        self.assertLess(max(smoothed), noisy / 2)


if __name__ == "__main__":
    unittest.main()
