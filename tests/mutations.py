#!/usr/bin/env python3
"""Proves the tests: breaks the library in one place after another, in a copy of the sources
below build/, and expects a test program to fail each time; returns 0 if one always did.
The lists, mutations/*.txt, hold headings

    [file | instruction sets whose objects are compiled anew, or all | tests, in their order]

and below them a mutation in each line, with \\n for the end of a line:

    text, which occurs once => what takes its place
    @2 text => the same for its second occurrence
    & text => a further edit of the mutation above, in another file with "& file | text"
"""
import argparse
import os
import pathlib
import re
import shutil
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
HANG_SECONDS = 300


def parse(path):
    """The mutations, each (sets, tests, [(file, occurrence, find, replacement), ...])."""
    mutations = []
    for line in path.read_text().splitlines():
        if line.startswith("["):
            file, sets, tests = (field.strip() for field in line.strip("[]").split("|"))
        elif line and not line.startswith("#"):
            further, other, nth, find, replacement = re.fullmatch(
                r"(& )?(?:(\S+) \| )?(?:@(\d+) )?(.*?) => ?(.*)", line).groups()
            if not further:
                mutations.append((sets.split(), tests.split(), []))
            mutations[-1][2].append((other or file, int(nth or 0), find.replace("\\n", "\n"),
                                     replacement.replace("\\n", "\n")))
    return mutations


def title(mutation):
    sets, _, edits = mutation
    return f"[{' '.join(sets)}] " + " & ".join(
        f"{file}: {find} => {replacement}" + f" (@{nth})" * (nth > 0)
        for file, nth, find, replacement in edits).replace("\n", "\\n")


def mutated(texts, edits):
    texts = dict(texts)
    for file, nth, find, replacement in edits:
        pieces = texts[file].split(find)
        if not (len(pieces) == 2 if nth == 0 else nth < len(pieces)):
            sys.exit(f"{file} holds this {len(pieces) - 1} times: {find}")
        texts[file] = find.join(pieces[:nth or 1]) + replacement + find.join(pieces[nth or 1:])
    return texts


class Scratch:
    def __init__(self, folder):
        self.tree, self.build = folder / "tree", folder / "build"
        self.last_sets = None
        for name in subprocess.check_output(["git", "ls-files", "-co", "--exclude-standard"],
                                            cwd=ROOT, text=True).splitlines():
            source, copy = ROOT / name, self.tree / name
            if not copy.is_file() or source.read_bytes() != copy.read_bytes():
                copy.parent.mkdir(parents=True, exist_ok=True)
                shutil.copy(source, copy)
        subprocess.check_output(["cmake", "-S", self.tree, "-B", self.build, "-G", "Ninja",
                                 "-DCMAKE_BUILD_TYPE=Release", "-DDIFFUSEFILT_BUILD_HOSTS=OFF",
                                 "-DCMAKE_LINK_DEPENDS_NO_SHARED=ON"])

    def builds(self, *tests):
        command = ["cmake", "--build", self.build, "-j", "2", "-t", "diffusefilt_halide", *tests]
        return subprocess.run(command, capture_output=True).returncode == 0

    def failure(self, tests, calls):
        """What fails first; None if all pass."""
        for test in tests:
            if not self.builds(test):
                return "does not compile"
            command = [self.build / "tests" / test, "--gtest_brief=1", "--gtest_fail_fast"]
            try:
                done = subprocess.run(command, capture_output=True, timeout=HANG_SECONDS,
                                      env=os.environ | {"DIFFUSEFILT_CALLS": str(calls)})
            except subprocess.TimeoutExpired:
                return f"killed by {test}: hangs"
            if done.returncode != 0:
                named = re.search(rb"\[  FAILED  \] ([^\s,]+)", done.stdout)
                return f"killed by {test}: {named[1].decode() if named else done.returncode}"
        return None

    def write(self, texts, stale):
        """To compile the stale objects alone, the files keep their times and those go."""
        for path in stale:
            path.unlink(missing_ok=True)
        for path, text in ((self.tree / file, text) for file, text in texts.items()):
            times = path.stat().st_atime_ns, path.stat().st_mtime_ns
            path.write_text(text)
            if stale:
                os.utime(path, ns=times)

    def verdict(self, mutation, calls):
        sets, tests, edits = mutation
        original = {edit[0]: (self.tree / edit[0]).read_text() for edit in edits}
        # The schedules stand in one of the tests as well.
        stale = [] if sets == ["all"] else [self.build / path for path in [
            *(f"CMakeFiles/diffusefilt_{s}.dir/diffusefilt_halide/schedules/{s}.cpp.o"
              for s in sets), "tests/CMakeFiles/schedule_test.dir/schedule_test.cpp.o"]]
        if sets != self.last_sets:
            self.builds()  # lest this mutation gets into objects of the last one's sets
        self.last_sets = sets
        try:
            self.write(mutated(original, edits), stale)
            return self.failure(tests, calls) or "SURVIVED"
        finally:
            self.write(original, stale)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("substring", nargs="*", help="only mutations whose printed line holds one")
    parser.add_argument("--calls", type=int, default=5000, help="random calls for a pipeline")
    parser.add_argument("--scratch", type=pathlib.Path, default=ROOT / "build/mutations")
    options = parser.parse_args()
    chosen = [m for path in sorted((ROOT / "tests/mutations").glob("*.txt")) for m in parse(path)
              if not options.substring or any(s in title(m) for s in options.substring)]
    for _, _, edits in chosen:
        mutated({edit[0]: (ROOT / edit[0]).read_text() for edit in edits}, edits)
    scratch = Scratch(options.scratch.resolve())
    if unmutated := scratch.failure(sorted({t for m in chosen for t in m[1]}), options.calls):
        sys.exit(f"without a mutation: {unmutated}")
    kills = 0
    for mutation in chosen:
        verdict = scratch.verdict(mutation, options.calls)
        kills += verdict.startswith("killed")
        print(f"{verdict:<60} {title(mutation)}", flush=True)
    print(f"{kills} of {len(chosen)} killed")
    sys.exit(kills < len(chosen))


if __name__ == "__main__":
    main()
