# SPDX-License-Identifier: MIT
"""Counts the library's own instructions by vectors, rows and edges, and compares with those stored.

What libm and TBB execute is left out: they belong to the system. The counts depend on the
compiler, not on the processor or its clock.

A whole vector, a row beside its vectors, and a vector at an edge beyond a whole one are told apart
by calls that differ in nothing else: of 4 and of 8 vectors in a row, of 16 and of 48 rows, of
columns that leave both edges out and of those that hold one.
"""
import pathlib
import re
import subprocess
import sys
import tempfile

import report
import shapes

STORED = pathlib.Path(__file__).with_name("instructions.txt")
LIBRARY = "libdiffusefilt_halide.so"
PARTS = ("vector", "row", "left", "right", "call")
GROWTH, FEW = 1.03, 3  # what is let pass: both must be exceeded
MOST = {"row": 80, "left": 25, "right": 25}  # aims, for volumes
PLANES, FEW_ROWS, ROWS = 4, 16, 48


def in_library(path):
    """(call, instructions) of a file of callgrind's, or None for what ends the program."""
    call, names, here, of_call, total = None, {}, False, False, 0
    for line in path.read_text().splitlines():
        trigger = re.match(r"desc: Trigger: Client Request: (\S+)", line)
        of_object = re.match(r"ob=(\(\d+\))(?: (.*))?", line)
        if trigger:
            call = trigger[1]
        elif of_object:
            # A name stands in full once, be it as that of a callee's object.
            here = names.setdefault(of_object[1], of_object[2] or "").endswith(LIBRARY)
        elif line.startswith("cob="):
            number, _, name = line[4:].partition(" ")
            names.setdefault(number, name)
        elif line.startswith("calls="):
            of_call = True  # the next line tells what the callee took
        elif re.match(r"[\d+*-]", line):
            total += int(line.split()[1]) if here and not of_call else 0
            of_call = False
    return (call, total) if call else None


def calls(name):
    """What `counted` is to run for a pipeline, by label."""
    lanes = shapes.lanes(name)

    def call(rows, first, vectors):
        planes = f"x{PLANES}" if report.is_3d(name) else ""
        return f"{name}/{12 * lanes}x{rows}{planes}/{first * lanes}+{vectors * lanes}"
    return {"eight": call(ROWS, 1, 8), "four": call(ROWS, 1, 4), "few rows": call(FEW_ROWS, 1, 4),
            "left": call(ROWS, 0, 5), "right": call(ROWS, 7, 5),
            "call": f"{name}/16x16{'x1' if report.is_3d(name) else ''}/0+16"}


def count(program, pipelines):
    """{pipeline: instructions in the order of PARTS}."""
    with tempfile.TemporaryDirectory() as folder:
        subprocess.run(["valgrind", "-q", "--tool=callgrind", "--instr-atstart=no",
                        f"--callgrind-out-file={folder}/counts", program,
                        *(call for name in pipelines for call in calls(name).values())], check=True)
        counted = dict(filter(None, map(in_library, pathlib.Path(folder).iterdir())))
    result = {}
    for name in pipelines:
        of = {label: counted[call] for label, call in calls(name).items()}
        planes = PLANES if report.is_3d(name) else 1
        vector = (of["eight"] - of["four"]) / (4 * ROWS * planes)
        row = (of["four"] - of["few rows"]) / ((ROWS - FEW_ROWS) * planes) - 4 * vector
        edges = [(of[edge] - of["four"]) / (ROWS * planes) - vector for edge in ("left", "right")]
        result[name] = [vector, row, *edges, of["call"]]
    return result


def check(program, store):
    lines = STORED.read_text().splitlines()
    notes = [line for line in lines if line.startswith("#")]
    stored = {name: [*map(float, numbers)] for name, *numbers in
              (line.split() for line in lines if line and not line.startswith("#"))}
    counted = count(program, stored)
    if store:
        rows = [" ".join([name, *(f"{number:.0f}" for number in counted[name])]) for name in stored]
        STORED.write_text("\n".join(notes + rows) + "\n")
    grown, missed = [], []
    print(f"{'instructions, before and now':46}" + "".join(f"{part:>13}" for part in PARTS))
    for name, before in stored.items():
        now = dict(zip(PARTS, counted[name]))
        pairs = [f"{old:.0f} {new:.0f}" for old, new in zip(before, now.values())]
        print(f"{name:46}" + "".join(f"{pair:>13}" for pair in pairs))
        grown += [f"{name} {part}" for part, old in zip(PARTS, before)
                  if now[part] > max(old * GROWTH, old + FEW)]
        missed += [f"{name}, {part}: {now[part]:.0f} instead of {most}"
                   for part, most in MOST.items() if report.is_3d(name) and round(now[part]) > most]
    print(f"\n{len(missed)} aims are missed", *missed, sep="\n  ")
    if grown and not store:
        sys.exit("bench: instructions were added; if that is meant, scripts/bench --instructions "
                 "--store:\n  " + "\n  ".join(grown))
