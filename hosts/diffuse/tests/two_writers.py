#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Lets two runs of the program write one file at once, round after round, and fails unless it is
wholly that of one of them each time, with nothing left beside it.

    two_writers.py PROGRAM [ROUNDS]
"""
import os
import pathlib
import subprocess
import sys
import tempfile

import program
import readers
from valid_files import noise

OUTPUTS = ("a.mha", "b.nrrd", "c.nii.gz")


def put_inputs(folder):
    """Two volumes of as many bytes, so that the data of one fit the header of the other."""
    for name, shape in (("wide.nrrd", (4, 30, 50)), ("tall.nrrd", (4, 50, 30))):
        folder.joinpath(name).write_bytes(
            "NRRD0004\ntype: int16\ndimension: 3\nsizes: {2} {1} {0}\nencoding: raw\n"
            "endian: little\n\n".format(*shape).encode() + noise(*shape, kind="i2").tobytes())
    return {name: readers.read(folder / name) for name in ("wide.nrrd", "tall.nrrd")}


def fault_of_round(path, folder, inputs, output):
    """What is wrong after a round; None if nothing is."""
    writers = [subprocess.Popen([path, file, "-n", "0", "-o", output], cwd=folder,
                                stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
               for file in inputs]
    complaints = [writer.communicate(timeout=program.SECONDS)[1] for writer in writers]
    statuses = [writer.returncode for writer in writers]
    if not set(statuses) <= {0, 1} or [c.count(b"\n") for c in complaints] != statuses:
        return f"status {statuses}, {complaints}"
    if 0 not in statuses:
        return f"none wrote: {complaints}"
    written = readers.read(folder / output)
    if not any(image.same_samples(written) for image in inputs.values()):
        return "header and data of two writers"
    left = set(os.listdir(folder)) - {*inputs, output}
    return f"left {left}" if left else None


def main():
    path, rounds = os.path.abspath(sys.argv[1]), int((sys.argv[2:] or [1000])[0])
    findings = 0
    for number in range(rounds):
        output = OUTPUTS[number % len(OUTPUTS)]
        with tempfile.TemporaryDirectory(prefix="diffuse-writers-") as name:
            folder = pathlib.Path(name)
            try:
                fault = fault_of_round(path, folder, put_inputs(folder), output)
            except (OSError, ValueError, KeyError, subprocess.TimeoutExpired) as error:
                fault = f"{type(error).__name__}: {error}"
        if fault:
            findings += 1
            print(f"round {number}, {output}: {fault}", flush=True)
    print(f"{rounds} rounds of two writers: {findings} findings")
    return findings > 0


if __name__ == "__main__":
    sys.exit(main())
