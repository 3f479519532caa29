# SPDX-License-Identifier: MIT
"""The pipelines of a built library, called from Python, and what chooses random calls: the first
argument of the program is the library, DIFFUSEFILT_SEED replays one call."""
import ctypes
import itertools
import math
import os
import pathlib
import random
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
LIBRARY = ctypes.CDLL(sys.argv[1])
PROCESSOR = pathlib.Path("/proc/cpuinfo").read_text().split("\n\n")[0].split()


class Dimension(ctypes.Structure):
    _fields_ = [(name, ctypes.c_int32) for name in ("min", "extent", "stride", "flags")]


class Buffer(ctypes.Structure):
    _fields_ = [("device", ctypes.c_uint64), ("device_interface", ctypes.c_void_p),
                ("host", ctypes.c_void_p), ("flags", ctypes.c_uint64), ("code", ctypes.c_uint8),
                ("bits", ctypes.c_uint8), ("lanes", ctypes.c_uint16), ("dimensions", ctypes.c_int32),
                ("dim", ctypes.POINTER(Dimension)), ("padding", ctypes.c_void_p)]


class Pipeline:
    """One of the 48, by its point on the axes; its name is that point."""
    def __init__(self, dimensions, connectivity, conduction, element, set_):
        self.name = f"diffusefilt{dimensions}_{connectivity}_{conduction}_{element}_{set_}"
        self.dimensions, self.bits = int(dimensions), int(element[5:])
        self.minimal, self.quadratic = connectivity == "minimal", conduction == "quadratic"
        self.set, self.lanes = set_, (128 if set_ == "none" else 256) // self.bits
        self.neighbours = 2 * self.dimensions if self.minimal else 3 ** self.dimensions - 1
        features = {"none": set(), "avx": {"avx"}, "avx2": {"avx2", "fma", "bmi1"}}[set_]
        self.runs_here = features <= {*PROCESSOR}

    def buffer(self, host, dims):
        """Of (min, extent, stride) for each dimension."""
        return Buffer(0, None, host, 0, 2, self.bits, 1, self.dimensions,
                      (Dimension * 3)(*(Dimension(*dim) for dim in dims)))

    def call(self, source, threshold, target):
        return LIBRARY[self.name](ctypes.byref(source), ctypes.c_double(threshold),
                                  ctypes.byref(target))

    def filtered(self, image, threshold):
        """What it makes of a C-contiguous array of its elements, x last."""
        result = image.copy()
        extents = image.shape[::-1]
        dims = [(0, n, math.prod(extents[:d])) for d, n in enumerate(extents)]
        assert self.call(self.buffer(image.ctypes.data, dims), threshold,
                         self.buffer(result.ctypes.data, dims)) == 0
        return result


AXES = (("2", "3"), ("maximal", "minimal"), ("exponential", "quadratic"), ("float32", "float64"),
        ("avx", "avx2", "none"))
PIPELINES = [Pipeline(*point) for point in itertools.product(*AXES)]


def seeds(series, quick, full):
    """Random numbers for so many calls of each pipeline that the processor runs, and the line that
    replays one."""
    long = os.environ.get("DIFFUSEFILT_LONG")
    count = int(os.environ.get("DIFFUSEFILT_CALLS", full if long else quick))
    replayed = os.environ.get("DIFFUSEFILT_SEED")
    for pipeline in PIPELINES:
        for i in range(count) if pipeline.runs_here else ():
            seed = f"{series}/{pipeline.name}/{i}"
            if replayed in (None, seed):
                yield pipeline, random.Random(seed), f"replay: DIFFUSEFILT_SEED={seed} {sys.executable} {chr(32).join(sys.argv)}"
