# SPDX-License-Identifier: MIT
"""python3 -m diffusefilt: from file to file."""
import contextlib
import io
import os
import tempfile
import unittest

import numpy as np

import diffusefilt
from diffusefilt import cli
from diffusefilt._axes import EXPONENTIAL


def run(arguments):
    output = io.StringIO()
    with contextlib.redirect_stderr(output), contextlib.redirect_stdout(output):
        try:
            return cli.main(arguments.split()), output.getvalue()
        except SystemExit as end:
            return end.code, output.getvalue()


class CommandLine(unittest.TestCase):
    def test_files_and_refusals(self):
        self.addCleanup(os.chdir, os.getcwd())
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        os.chdir(folder.name)
        os.mkdir("folder")
        image = np.random.default_rng(1).integers(0, 255, (20, 30, 3)).astype("u1")
        np.save("in.npy", image)
        self.assertEqual(run("in.npy out.npy"), (0, ""))
        np.testing.assert_array_equal(np.load("out.npy"), diffusefilt.denoise(image))
        options = f"-k 20 -n 5 --conduction {EXPONENTIAL} --channel-axis -1 --type float32"
        self.assertEqual(run("in.npy out.npy " + options), (0, ""))
        np.testing.assert_array_equal(
            np.load("out.npy"), diffusefilt.denoise(image, 20, 5, conduction=EXPONENTIAL,
                                                    channel_axis=-1, dtype="f4"))
        for status, words, arguments in ((1, "No such file", "none.npy out.npy"),
                                         (1, "directory", "in.npy folder"),
                                         (1, "positive", "in.npy none.npy -k nan"),
                                         (2, "invalid", "in.npy none.npy -k x"),
                                         (0, f"diffusefilt {diffusefilt.__version__}", "--version")):
            found = run(arguments)
            self.assertEqual((found[0], status != 1 or found[1].count("\n") == 1), (status, True))
            self.assertRegex(found[1], words)
        self.assertEqual(sorted(os.listdir()), ["folder", "in.npy", "out.npy"])


if __name__ == "__main__":
    unittest.main()
