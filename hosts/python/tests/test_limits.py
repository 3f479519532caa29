# SPDX-License-Identifier: MIT
"""Where the system refuses threads or memory, and after a fork: right bits, and the interpreter goes
on."""
import os
import subprocess
import sys
import unittest

PROGRAM = """
import os, resource, sys, warnings
import numpy, diffusefilt
limit, amount = sys.argv[1:]
image = numpy.random.default_rng(1).normal(size=(40, 64, 64))
out = numpy.empty_like(image)
if limit == "processes":
    if os.getuid() == 0:
        os.setuid(54321)  # root has as many as it likes
    resource.setrlimit(resource.RLIMIT_NPROC, (1, 1))
elif limit == "memory":
    size = int(open("/proc/self/statm").read().split()[0]) * resource.getpagesize()
    resource.setrlimit(resource.RLIMIT_AS, (size + int(amount),) * 2)
with warnings.catch_warnings(record=True) as caught:
    warnings.simplefilter("always")
    if limit == "forks" and amount == "late":
        diffusefilt.step(image, 1)
    children = [1]
    while limit == "forks" and len(children) < 8 and children[-1]:
        children.append(os.fork())
    diffusefilt.step(image, 1, out=out)
words = " ".join([repr(float(out.sum())), *(str(w.message) for w in caught)])
os.write(1, words.encode() + b"\\n")
for child in children[1:] if children[-1] else []:
    assert os.waitpid(child, 0)[1] == 0
"""


def run(limit, amount=""):
    return subprocess.run([sys.executable, "-c", PROGRAM, limit, str(amount)], timeout=100,
                          capture_output=True, text=True,
                          env={**os.environ, "OPENBLAS_NUM_THREADS": "1"})


class Limits(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.bits = run("none").stdout.strip()

    def expect_bits(self, *limit):
        """Of every process; returns the warning."""
        found = run(*limit)
        self.assertEqual((found.returncode, found.stderr), (0, ""), limit)
        lines = [line.partition(" ") for line in found.stdout.splitlines()]
        self.assertEqual({bits for bits, _, _ in lines}, {self.bits}, limit)
        self.assertEqual(len(lines), 8 if limit[0] == "forks" else 1)
        return lines[0][2]

    @unittest.skipIf(len(os.sched_getaffinity(0)) == 1, "the library starts no threads here")
    def test_no_threads(self):
        self.assertRegex(self.expect_bits("processes"),
                         "^diffusefilt runs on one thread, the system refuses it others: .*thread$")

    def test_little_memory(self):
        warnings = [self.expect_bits("memory", megabytes << 20)
                    for megabytes in (0, 3, 10, 24, 36, 44, 60, 160, 10_000)]
        self.assertIn("one thread", warnings[0])
        self.assertEqual(warnings[-1], "")

    def test_forks(self):
        for when in ("early", "late"):  # before the first call, and after it
            self.expect_bits("forks", when)


if __name__ == "__main__":
    unittest.main()
