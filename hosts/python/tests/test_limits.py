"""Where the system refuses threads or memory, and after a fork: right bits or an exception, and the
interpreter goes on."""
import os
import subprocess
import sys
import unittest

PROGRAM = """
import os, resource, sys, threading, warnings
import numpy, diffusefilt
image = numpy.random.default_rng(1).normal(size=(40, 64, 64))
out = numpy.empty_like(image)
if sys.argv[1] == "processes":
    if os.getuid() == 0:
        os.setuid(54321)  # root has as many as it likes
    resource.setrlimit(resource.RLIMIT_NPROC, (1, 1))
elif sys.argv[1] == "memory":
    size = int(open("/proc/self/statm").read().split()[0]) * resource.getpagesize()
    resource.setrlimit(resource.RLIMIT_AS, (size + int(sys.argv[2]),) * 2)
with warnings.catch_warnings(record=True) as caught:
    warnings.simplefilter("always")
    for _ in range(3):
        diffusefilt.step(image, 1, out=out)
print(repr(float(out.sum())), *(str(w.message) for w in caught))
"""

FORKS = """
import os, sys
import numpy, diffusefilt
image = numpy.random.default_rng(1).normal(size=(40, 64, 64))
first = sys.argv[1] == "before" and diffusefilt.step(image, 1)
for _ in range(8):
    child = os.fork()
    if child == 0:
        result = diffusefilt.step(image, 1)
        os._exit(int(sys.argv[1] == "before" and (result != first).any()))
    assert os.waitpid(child, 0)[1] == 0
diffusefilt.step(image, 1)
"""


def run(program, *arguments):
    return subprocess.run([sys.executable, "-c", program, *map(str, arguments)], timeout=100,
                          capture_output=True, text=True,
                          env={**os.environ, "OPENBLAS_NUM_THREADS": "1"})


class Limits(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.bits = run(PROGRAM, "none").stdout.strip()

    def expect_bits(self, *limit):
        found = run(PROGRAM, *limit)
        self.assertEqual((found.returncode, found.stderr), (0, ""), limit)
        bits, _, warning = found.stdout.strip().partition(" ")
        self.assertEqual(bits, self.bits, limit)
        return warning

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
        for when in ("before", "after"):
            found = run(FORKS, when)
            self.assertEqual((found.returncode, found.stderr), (0, ""), when)


if __name__ == "__main__":
    unittest.main()
