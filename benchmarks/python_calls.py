#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""What a call from Python costs beside the pipeline itself, as a number of empty ctypes calls.

    PYTHONPATH=hosts/python benchmarks/python_calls.py [--limit CALLS]    # 90

Fails if a function costs more than CALLS empty calls. All are measured in turn, and of several
rounds the least time of each counts.
"""
import argparse
import ctypes
import sys
import timeit

import numpy

import diffusefilt
from diffusefilt import _library, _steps

ROUNDS, CALLS = 40, 60


def contenders(image):
    """By name: nothing, the pipeline, and the functions around it with one step each."""
    out = numpy.empty_like(image)
    diffusefilt.step(image, 20, out=out)
    origin = (0,) * image.ndim
    entry = _library._entries[_steps.pipeline_name(image, 20, "minimal", "quadratic", "auto")]
    read, written = (_steps.record(array, origin, array.shape) for array in (image, out))
    return {"empty": ctypes.CDLL(None).getpid,
            "pipeline": lambda: entry(read, 20, written),
            "step": lambda: diffusefilt.step(image, 20, out=out),
            "iterate": lambda: diffusefilt.iterate(image, 20, 1, out=out),
            "denoise": lambda: diffusefilt.denoise(image, 20, 1, out=out)}


def least_times(calls):
    """Microseconds of a call."""
    rounds = [{name: timeit.timeit(call, number=CALLS) for name, call in calls.items()}
              for _ in range(ROUNDS)]
    return {name: min(times[name] for times in rounds) / CALLS * 1e6 for name in calls}


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--limit", type=float, default=90, help="25 microseconds where an empty call takes 0.28")
    limit = parser.parse_args().limit
    worst = 0
    print("| image | call | microseconds | beside the pipeline | in empty calls |\n|---|---|---|---|---|")
    for shape in ((4, 4), (16, 16), (8, 16, 16)):
        times = least_times(contenders(numpy.ones(shape, "float32")))
        for name in ("step", "iterate", "denoise"):
            extra = times[name] - times["pipeline"]
            worst = max(worst, extra / times["empty"])
            print(f"| {' x '.join(map(str, shape))} | {name} | {times[name]:.1f} | {extra:.1f} | "
                  f"{extra / times['empty']:.0f} |")
    print(f"\nAn empty call takes {times['empty']:.2f} microseconds.")
    sys.exit(worst > limit)


if __name__ == "__main__":
    main()
