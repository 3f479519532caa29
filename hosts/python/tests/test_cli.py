"""python3 -m diffusefilt: from file to file."""
import contextlib
import io
import os
import pathlib
import tempfile
import unittest

import numpy as np

import diffusefilt
from diffusefilt import cli


class CommandLine(unittest.TestCase):
    def setUp(self):
        self.addCleanup(os.chdir, os.getcwd())
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        os.chdir(folder.name)

    def run_with(self, arguments):
        output = io.StringIO()
        with contextlib.redirect_stderr(output), contextlib.redirect_stdout(output):
            try:
                return cli.main(arguments.split()), output.getvalue()
            except SystemExit as end:
                return end.code, output.getvalue()

    def test_files_and_refusals(self):
        image = np.random.default_rng(1).integers(0, 255, (20, 30, 3)).astype("u1")
        np.save("in.npy", image)
        pathlib.Path("text.npy").write_text("text")
        for arguments, options in (
                ("", {}), ("-k 20 -n 5 --conduction exponential",
                           {"threshold": 20, "iterations": 5, "conduction": "exponential"}),
                ("--channel-axis -1 --type float32 --connectivity maximal --instruction-set none",
                 {"channel_axis": -1, "dtype": "f4", "connectivity": "maximal",
                  "instruction_set": "none"})):
            self.assertEqual(self.run_with("in.npy out.npy " + arguments), (0, ""))
            np.testing.assert_array_equal(np.load("out.npy"), diffusefilt.denoise(image, **options))
        os.remove("out.npy")
        for status, words, arguments in ((1, "No such file", "none.npy out.npy"),
                                         (1, "pickle", "text.npy out.npy"),
                                         (1, "No such file", "in.npy none/out.npy"),
                                         (1, "positive", "in.npy out.npy -k nan"),
                                         (2, "invalid", "in.npy out.npy -k x"),
                                         (2, "required", "in.npy"),
                                         (0, f"^diffusefilt {diffusefilt.__version__}", "--version")):
            found = self.run_with(arguments)
            self.assertEqual(found[0], status, found)
            self.assertRegex(found[1].splitlines()[-1 if status else 0], words)
            self.assertTrue(status != 1 or found[1].count("\n") == 1, found)
        self.assertEqual(sorted(os.listdir()), ["in.npy", "text.npy"])


if __name__ == "__main__":
    unittest.main()
