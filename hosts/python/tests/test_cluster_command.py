# SPDX-License-Identifier: MIT
"""The command line of the cluster host: signals, resuming, bad input."""
import contextlib
import glob
import io
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import time
import unittest

import numpy as np

import diffusefilt
from cluster_support import InFolder, content, noise, write
from diffusefilt import cluster

README = pathlib.Path(__file__).resolve().parents[3] / "README.md"
COMMAND = [sys.executable, "-m", "diffusefilt.cluster", "in.zarr", "out.zarr", "-k20"]


class CommandLine(InFolder):
    def setUp(self):
        super().setUp()
        os.mkdir("tmp")

    def begin(self, *options):
        return subprocess.Popen(COMMAND + list(options), stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE, text=True, start_new_session=True,
                                env={**os.environ, "TMPDIR": os.path.abspath("tmp")})

    def test_readme(self):
        line, = re.findall(r"^    (python3 -m diffusefilt.cluster .*)$", README.read_text(), re.M)
        image = noise(20, 30, 40)
        write(image, (4, 30, 40), "head.zarr")
        path = f"{os.path.dirname(sys.executable)}:{os.environ['PATH']}"
        run = subprocess.run(["sh", "-c", line], capture_output=True, text=True,
                             env={**os.environ, "PATH": path})
        self.assertEqual(run.returncode, 0, run.stderr)
        self.assertRegex(run.stderr, "100 %, [0-9.]+ million elements x steps/s, 0:00 to go\n$")
        self.assertRegex(run.stdout, "^[0-9]+ rounds of .*\n.* MB read, .*\n.* waiting\n$")
        np.testing.assert_array_equal(content("smooth.zarr"), diffusefilt.iterate(image, 20, 4))
        self.expect_only("head.zarr", "smooth.zarr", "tmp")

    def test_signals(self):
        write(noise(20, 30, 40), (4, 30, 40))
        for number, keep in ((signal.SIGINT, False), (signal.SIGTERM, False),
                             (signal.SIGHUP, False), (signal.SIGTERM, True)):
            run = self.begin("-n80", "--steps-per-task=1", *(["--resume"] if keep else []))
            self.assertIn("10 %", run.stderr.readline())
            began = time.monotonic()
            # Ctrl-C and a closed terminal reach all processes, kill but the first.
            (os.kill if number == signal.SIGTERM else os.killpg)(run.pid, number)
            output = run.communicate(timeout=60)
            self.assertEqual(run.returncode, -number)
            self.assertEqual([line for line in output[1].splitlines() if "%" not in line], [])
            self.assertLess(time.monotonic() - began, 30)
            left = glob.glob("out.zarr*")
            self.assertEqual(len(left), 2 if keep else 0, left)
            self.assertEqual(os.listdir("tmp"), [])

    def test_resumed_after_a_kill(self):
        image = noise(20, 30, 40)
        write(image, (4, 30, 40))
        run = self.begin("-n80", "--steps-per-task=1")
        for _ in range(3):
            run.stderr.readline()
        os.killpg(run.pid, signal.SIGKILL)
        run.communicate()
        run = self.begin("-n80")
        self.assertIn("unfinished", run.communicate()[1])
        run = self.begin("-n80", "--resume")
        output = run.communicate()[1]
        self.assertEqual(run.returncode, 0, output)
        self.assertGreaterEqual(int(output.split()[0]), 30, output)
        np.testing.assert_array_equal(content(), diffusefilt.iterate(image, 20, 80))
        shutil.rmtree("tmp")
        self.expect_only("in.zarr", "out.zarr")

    def test_another_cluster_and_bad_input(self):
        image = noise(9, 30)
        write(image, (4, 30))
        write(image.astype("complex64"), (4, 30), "complex.zarr")
        write(image[:0], (4, 30), "empty.zarr")
        write(image.reshape(1, 1, 9, 30), (1, 1, 4, 30), "four.zarr")
        write(image, (4, 30), "cut.zarr")
        os.truncate("cut.zarr/1.0", 20)
        pathlib.Path("text").write_text("")
        os.mkdir("broken.zarr")
        pathlib.Path("broken.zarr/.zarray").write_text("{")
        good = "in.zarr out.zarr --threshold 20"
        with cluster.local_client() as client:
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
                    (1, "no Zarr array", "none.zarr out.zarr -k 20"),
                    (1, "no Zarr array", "text out.zarr -k 20"),
                    (1, "complex.zarr holds <c8: an image", "complex.zarr out.zarr -k 20"),
                    (1, "empty", "empty.zarr out.zarr -k 20"),
                    (1, "4 dimensions", "four.zarr out.zarr -k 20"),
                    (1, "not JSON", "broken.zarr out.zarr -k 20"),
                    (1, "cannot read the elements .* of .*cut.zarr: ", "cut.zarr out.zarr -k 20"),
                    (1, "in.zarr exists", "in.zarr in.zarr -k 20"),
                    (1, "none/out.zarr", "in.zarr none/out.zarr -k 20"),
                    (1, "none", "in.zarr out.zarr -k 20 --scratch none"),
                    (1, "positive", "in.zarr out.zarr -k nan"),
                    (1, "must be positive in float32", good + "e-60"),
                    (1, "at least 1", good + " -n 0"),
                    (1, "at least 1", good + " --slabs 0"),
                    (1, "at least 1", good + " --steps-per-task 0"),
                    (1, "2 extents", good + " --block 4,4,4"),
                    (1, "codec", good + " --scratch-compressor none"),
                    (2, "invalid _extents value", good + " --block 4,x"),
                    (2, "required: -k", "in.zarr out.zarr"),
                    (2, "invalid float value: 'x'", "in.zarr out.zarr -k x")):
                found = run(arguments)
                self.assertEqual(found[0], status, found)
                self.assertRegex(found[1].splitlines()[-1], f"^diffusefilt.cluster: .*{words}")
                if status == 1:
                    self.assertEqual(found[1].count("\n"), 2 if "dashboard" in found[1] else 1)
                self.assertFalse(glob.glob("out.zarr*") + glob.glob("*.scratch"), arguments)
            self.assertEqual(run(good)[0], 0)
            np.testing.assert_array_equal(content(), diffusefilt.step(image, 20))


if __name__ == "__main__":
    unittest.main()
