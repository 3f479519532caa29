"""Counts the library's own instructions for one element, and compares them with those stored.

What libm and TBB execute is left out: they belong to the system. The counts depend on the
compiler, not on the processor or its clock.
"""
import pathlib
import re
import subprocess
import sys
import tempfile

STORED = pathlib.Path(__file__).with_name("instructions.txt")
LIBRARY = "libdiffusefilt_halide.so"
ELEMENTS = 1024 * 128  # of a picture in counted.cpp, and of a volume
GROWTH = 1.03  # that is let pass


def in_library(path):
    """(pipeline, instructions) of a file of callgrind's, or None for what ends the program."""
    pipeline, names, here, of_call, total = None, {}, False, False, 0
    for line in path.read_text().splitlines():
        trigger = re.match(r"desc: Trigger: Client Request: (\w+)", line)
        of_object = re.match(r"ob=(\(\d+\))(?: (.*))?", line)
        if trigger:
            pipeline = trigger[1]
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
    return (pipeline, total) if pipeline else None


def count(program, pipelines):
    with tempfile.TemporaryDirectory() as folder:
        subprocess.run(["valgrind", "-q", "--tool=callgrind", "--instr-atstart=no",
                        f"--callgrind-out-file={folder}/counts", program, *pipelines], check=True)
        counted = [in_library(path) for path in pathlib.Path(folder).iterdir()]
    return {name: total / ELEMENTS for name, total in filter(None, counted)}


def check(program, store):
    lines = STORED.read_text().splitlines()
    notes = [line for line in lines if line.startswith("#")]
    stored = {name: float(number) for name, number in
              (line.split() for line in lines if line and not line.startswith("#"))}
    counted = count(program, stored)
    if store:
        rows = [f"{name} {counted[name]:.3f}" for name in stored]
        STORED.write_text("\n".join(notes + rows) + "\n")
    grown = []
    print(f"{'instructions for one element':48}{'stored':>10}{'counted':>10}{'change':>9}")
    for name, before in stored.items():
        print(f"{name:48}{before:10.3f}{counted[name]:10.3f}{counted[name] / before - 1:+9.1%}")
        if counted[name] > before * GROWTH:
            grown.append(name)
    if grown and not store:
        sys.exit(f"bench: more than {GROWTH - 1:.0%} of instructions were added; if that is meant, "
                 f"scripts/bench --instructions --store: {' '.join(grown)}")
