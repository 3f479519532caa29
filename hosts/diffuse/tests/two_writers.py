#!/usr/bin/python3
"""Lets two runs of the program write the same files at once, round after round, and fails unless
every header that stands there then belongs to the data that it names.

    two_writers.py PROGRAM [ROUNDS]
"""
import os
import pathlib
import subprocess
import sys
import tempfile

import numpy as np

import program
import readers

# What the first and the second writes: the same, or two headers whose data have one name.
OUTPUTS = (("a.mhd", "a.mhd"), ("b.nhdr", "b.nhdr"), ("c.mhd", "c.nhdr"))


def put_inputs(folder):
    """Two volumes of as many bytes, so that the data of one fit the header of the other."""
    for name, shape in (("wide.nrrd", (4, 30, 50)), ("tall.nrrd", (4, 50, 30))):
        samples = np.random.default_rng(shape[1]).integers(0, 1000, shape, "int16")
        head = ("NRRD0004\ntype: int16\ndimension: 3\nsizes: {2} {1} {0}\nencoding: raw\n"
                "endian: little\n\n".format(*shape))
        folder.joinpath(name).write_bytes(head.encode() + samples.tobytes())
    return {name: readers.read(folder / name) for name in ("wide.nrrd", "tall.nrrd")}


def fault_of_round(path, folder, inputs, outputs):
    """What is wrong after a round; None if nothing is."""
    writers = [subprocess.Popen([path, file, "-n", "0", "-o", output], cwd=folder,
                                stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
               for file, output in zip(inputs, outputs)]
    complaints = [writer.communicate(timeout=program.SECONDS)[1] for writer in writers]
    statuses = [writer.returncode for writer in writers]
    if not set(statuses) <= {0, 1} or [c.count(b"\n") for c in complaints] != statuses:
        return f"status {statuses}, {complaints}"
    if 0 not in statuses:
        return f"none wrote: {complaints}"
    for output, status in zip(outputs, statuses):
        if not folder.joinpath(output).exists() and status != 0:
            continue
        written = readers.read(folder / output)
        if not any(image.same_samples(written) for image in inputs.values()):
            return "header and data of two writers"
    hidden = [name for name in os.listdir(folder) if name.startswith(".")]
    return f"left {hidden}" if hidden else None


def main():
    path, rounds = os.path.abspath(sys.argv[1]), int((sys.argv[2:] or [1000])[0])
    findings = 0
    for number in range(rounds):
        outputs = OUTPUTS[number % len(OUTPUTS)]
        with tempfile.TemporaryDirectory(prefix="diffuse-writers-") as name:
            folder = pathlib.Path(name)
            inputs = put_inputs(folder)
            try:
                fault = fault_of_round(path, folder, inputs, outputs)
            except (OSError, ValueError, KeyError, subprocess.TimeoutExpired) as error:
                fault = f"{type(error).__name__}: {error}"
        if fault:
            findings += 1
            print(f"round {number}, {' and '.join(outputs)}: {fault}", flush=True)
    print(f"{rounds} rounds of two writers: {findings} findings")
    return findings > 0


if __name__ == "__main__":
    sys.exit(main())
