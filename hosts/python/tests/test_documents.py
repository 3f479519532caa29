"""What docstrings, docs/python.md and README.md show works."""
import doctest
import importlib
import pathlib
import pkgutil
import re
import unittest

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
        for name, smooth, noisy in (("README.md", "smooth", "noisy"),):
            program, = re.findall(r"```python\n(.*?)```", (ROOT / name).read_text(), re.S)
            names = {}
            exec(program, names)
            self.assertLess(names[smooth].std(), names[noisy].std() / 2)


if __name__ == "__main__":
    unittest.main()
