#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Proves the tests: breaks the library in one place after another, in copies of the sources
below build/, and expects a test program to fail each time; returns 0 if one always did.

By rule: the sums of arithmetic/sums*.h exchanged, regrouped and unfused, and the last bit of each
constant that stands by its bits. From the lists, mutations/*.txt, which hold headings

    [file | instruction sets whose objects are compiled anew, or all | tests, in their order]

and below them a mutation in each line, with \\n for the end of a line:

    text, which occurs once => what takes its place
    @2 text => the same for its second occurrence
    & text => a further edit of the mutation above, in another file with "& file | text"
    ~ text => a mutation whose results are the same: counted, not run
"""
import argparse
import ast
import collections
import concurrent.futures
import itertools
import os
import pathlib
import queue
import re
import shutil
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
HANG_SECONDS = 300

# An edit is (file, text or (begin, end), replacement, occurrence); `pipelines` is what Google
# Test is told to run.
Mutation = collections.namedtuple("Mutation", "kind sets tests edits pipelines is_equivalent")


def listed(path):
    mutations = []
    for line in path.read_text().splitlines():
        if line.startswith("["):
            file, sets, tests = (field.strip() for field in line.strip("[]").split("|"))
            pipelines = ":".join(f"*_{set_}" for set_ in sets.split()).replace("*_all", "*")
        elif line and not line.startswith("#"):
            mark, other, nth, find, replacement = re.fullmatch(
                r"([&~] )?(?:(\S+) \| )?(?:@(\d+) )?(.*?) => ?(.*)", line).groups()
            if mark != "& ":
                mutations.append(Mutation(path.stem, sets.split(), tests.split(), [], pipelines,
                                          mark == "~ "))
            mutations[-1].edits.append((other or file, find.replace("\\n", "\n"),
                                        replacement.replace("\\n", "\n"), int(nth or 0)))
    return mutations


def reordered(node, fuses):
    """Other trees in the place of a node of a sum, and whether they evaluate alike."""
    name = isinstance(node, ast.Call) and getattr(node.func, "attr", getattr(node.func, "id", ""))
    if name == "chain":
        for i in range(len(node.args) - 1):
            args = [*node.args]
            args[i:i + 2] = args[i + 1], args[i]
            yield ast.Call(node.func, args, []), i == 0 and not fuses
    elif name == "fused":
        group, weight, rest = node.args
        yield ast.BinOp(ast.BinOp(group, ast.Mult(), weight), ast.Add(), rest), False
        if isinstance(rest, ast.Call) and getattr(rest.func, "id", "") == "fused":
            inner = ast.Call(node.func, [group, weight, rest.args[2]], [])
            yield ast.Call(node.func, [*rest.args[:2], inner], []), False
    elif isinstance(node, ast.BinOp) and isinstance(node.op, ast.Add):
        yield ast.BinOp(node.right, node.op, node.left), True
        for inner, other in ((node.left, node.right), (node.right, node.left)):
            if isinstance(inner, ast.BinOp) and isinstance(inner.op, ast.Add):
                for kept, moved in ((inner.left, inner.right), (inner.right, inner.left)):
                    yield ast.BinOp(kept, node.op, ast.BinOp(moved, node.op, other)), False


def with_node_replaced(tree, node, new):
    """The text of the tree; the node is marked by its place in a walk."""
    class Replace(ast.NodeTransformer):
        def visit(self, visited):
            return new if visited is marked else self.generic_visit(visited)
    copy = ast.parse(ast.unparse(tree))
    marked = [*ast.walk(copy)][[*ast.walk(tree)].index(node)]
    return ast.unparse(Replace().visit(copy))


def of_sums(dimensions):
    """Each function has four branches: the orders of none, avx, avx2 and of the in-line path."""
    file = f"diffusefilt_halide/arithmetic/sums{dimensions}.h"
    for found in re.finditer(r"sumOf(\w+)\d\(|(if constexpr|else \{)"
                             r"|(?:return|const V \w+ =)\s([^;]*);", (ROOT / file).read_text()):
        function, branch_begins, expression = found.groups()
        if function:
            connectivity, branch = function.lower(), -1
        elif branch_begins:
            branch += 1
        else:
            tree = ast.parse(expression.replace("<V>", "_V").strip())
            set_ = ("none", "avx", "avx2", "none")[branch]
            kind, elements = ("in line ", "exponential_float32") if branch == 3 else ("", "*")
            for node in ast.walk(tree):
                for new, alike in reordered(node, set_ == "avx2"):
                    text = with_node_replaced(tree, node, new).replace("_V(", "<V>(")
                    yield Mutation(f"sums {kind}by rule", [set_], ["agreement_test"],
                                   [(file, found.span(3), text, 0)],
                                   f"*/diffusefilt{dimensions}_{connectivity}_{elements}_{set_}",
                                   alike)


def of_bits(name):
    file = f"diffusefilt_halide/arithmetic/{name}.h"
    for found in re.finditer(r"//.*|0x[0-9a-f]{8,16}\b", (ROOT / file).read_text()):
        if found[0].startswith("//"):
            continue
        edit = (file, found.span(), f"{found[0][:-1]}{int(found[0][-1], 16) ^ 1:x}", 0)
        for set_ in ("none", "avx", "avx2"):
            yield Mutation("bits by rule", [set_], ["inline_exponential_test", "images_test",
                                                    "agreement_test", "closure_test"],
                           [edit], f"*_{set_}", False)


def batches(mutations):
    """Those that are compiled together: by rule they concern different pipelines each."""
    slots = collections.defaultdict(list)
    for mutation in mutations:
        if mutation.kind.endswith("by rule"):
            slots[mutation.kind, mutation.pipelines].append(mutation)
        else:
            yield [mutation]
    for kind in {kind for kind, _ in slots}:
        for batch in itertools.zip_longest(*(slots[slot] for slot in slots if slot[0] == kind)):
            yield [mutation for mutation in batch if mutation]


def title(mutation):
    def place(file, find):
        return find if isinstance(find, str) else f"line {(ROOT / file).read_text()[:find[0]].count(chr(10)) + 1}"
    return f"{mutation.kind} [{' '.join(mutation.sets)}] " + " & ".join(
        f"{file}: {place(file, find)} => {replacement}" + f" (@{nth})" * (nth > 0)
        for file, find, replacement, nth in mutation.edits).replace("\n", "\\n")


def mutated(texts, edits):
    texts = dict(texts)
    for file, find, replacement, nth in edits:
        if isinstance(find, tuple):
            pieces = [texts[file][:find[0]], texts[file][find[1]:]]
        else:
            pieces = texts[file].split(find)
        if not (len(pieces) == 2 if nth == 0 else nth < len(pieces)):
            sys.exit(f"{file} holds this {len(pieces) - 1} times: {find}")
        find = "" if isinstance(find, tuple) else find
        texts[file] = find.join(pieces[:nth or 1]) + replacement + find.join(pieces[nth or 1:])
    return texts


class Scratch:
    """A copy of the sources with a build of its own."""
    def __init__(self, folder, tests, calls):
        self.tree, self.build, self.calls = folder / "tree", folder / "build", calls
        for name in subprocess.check_output(["git", "ls-files", "-co", "--exclude-standard"],
                                            cwd=ROOT, text=True).splitlines():
            source, copy = ROOT / name, self.tree / name
            if source.is_file() and not (
                    copy.is_file() and source.read_bytes() == copy.read_bytes()):
                copy.parent.mkdir(parents=True, exist_ok=True)
                shutil.copy(source, copy)
        subprocess.check_output(["cmake", "-S", self.tree, "-B", self.build, "-G", "Ninja",
                                 "-DCMAKE_BUILD_TYPE=Release", "-DDIFFUSEFILT_BUILD_HOSTS=OFF",
                                 "-DCMAKE_LINK_DEPENDS_NO_SHARED=ON"])
        if not self.builds(tests) or (verdict := self.failure(tests, "*")):
            sys.exit(f"without a mutation: {verdict if self.builds(tests) else 'does not compile'}")

    def builds(self, tests):
        programs = [test for test in tests if not self.script(test).exists()]
        return subprocess.run(["cmake", "--build", self.build, "-j", "1", "-t",
                               "diffusefilt_halide", *programs], capture_output=True).returncode == 0

    def script(self, test):
        return self.tree / "tests" / f"{test}.py"

    def failure(self, tests, pipelines):
        """What fails first; None if all pass."""
        for test in tests:
            command = [self.build / "tests" / test, "--gtest_brief=1", "--gtest_fail_fast",
                       f"--gtest_filter={pipelines}"]
            calls = {"DIFFUSEFILT_CALLS": str(self.calls)}
            if self.script(test).exists():
                command = [self.script(test), self.build / "libdiffusefilt_halide.so",
                           *self.build.glob("CMakeFiles/diffusefilt_*.dir/**/*.o")]
                calls = {}
            try:
                done = subprocess.run(command, capture_output=True, timeout=HANG_SECONDS,
                                      env=os.environ | calls)
            except subprocess.TimeoutExpired:
                return f"killed by {test}: hangs"
            if done.returncode != 0:
                named = re.search(rb"(?:\[  FAILED  \]|FAIL:) ([^\s,]+)", done.stdout + done.stderr)
                return f"killed by {test}: {named[1].decode() if named else done.returncode}"
        return None

    def verdicts(self, batch):
        # Of edits by their places, the last comes first.
        edits = list(dict.fromkeys(edit for mutation in batch for edit in mutation.edits))
        if isinstance(edits[0][1], tuple):
            edits.sort(reverse=True)
        original = {edit[0]: (self.tree / edit[0]).read_text() for edit in edits}
        # Where only some objects are compiled anew, the files keep their times, and the objects
        # go and come back.
        sets = sorted({set_ for mutation in batch for set_ in mutation.sets} - {"all"})
        objects = [self.build / f"CMakeFiles/diffusefilt_{set_}.dir" /
                   f"diffusefilt_halide/schedules/{set_}.cpp.o" for set_ in sets]
        for path in objects:
            path.rename(path.with_suffix(".kept"))
        self.write(mutated(original, edits), bool(sets))
        try:
            compiles = self.builds({test for mutation in batch for test in mutation.tests})
            return [(mutation, (self.failure(mutation.tests, mutation.pipelines) or "SURVIVED")
                     if compiles else "does not compile") for mutation in batch]
        finally:
            self.write(original, bool(sets))
            (self.build / "libdiffusefilt_halide.so").unlink(missing_ok=True)
            for path in objects:
                path.with_suffix(".kept").rename(path)

    def write(self, texts, keeps_times):
        for path, text in ((self.tree / file, text) for file, text in texts.items()):
            times = path.stat().st_atime_ns, path.stat().st_mtime_ns
            path.write_text(text)
            if keeps_times:
                os.utime(path, ns=times)


def all_verdicts(mutations, calls):
    """Prints and returns them, from one copy for each processor."""
    tests = sorted({test for mutation in mutations for test in mutation.tests})
    scratches = queue.Queue()

    def run(batch):
        scratch = scratches.get()
        try:
            found = scratch.verdicts(batch)
        finally:
            scratches.put(scratch)
        for mutation, verdict in found:
            print(f"{verdict:<60} {title(mutation)}", flush=True)
        return found

    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        folders = (ROOT / "build/mutations" / str(i) for i in range(os.cpu_count()))
        for scratch in pool.map(lambda folder: Scratch(folder, tests, calls), folders):
            scratches.put(scratch)
        return [verdict for found in pool.map(run, batches(mutations)) for verdict in found]


def table(mutations, verdicts, seconds):
    count = collections.Counter((mutation.kind, verdict.split()[0]) for mutation, verdict in verdicts)
    count.update((mutation.kind, "equivalent") for mutation in mutations if mutation.is_equivalent)
    commit = subprocess.check_output(["git", "describe", "--always", "--dirty"], cwd=ROOT, text=True)
    return "\n".join([
        "| kind | mutations | killed | survived | equivalent |", "|---|---|---|---|---|",
        *(f"| {kind} | {of} | {count[kind, 'killed']} | "
          f"{of - count[kind, 'killed'] - count[kind, 'equivalent']} | {count[kind, 'equivalent']} |"
          for kind, of in collections.Counter(mutation.kind for mutation in mutations).items()),
        "", f"Run in {seconds / 60:.0f} minutes on {time.strftime('%Y-%m-%d')} on commit "
        f"{commit.strip()} with {os.cpu_count()} processors.", ""])


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("word", nargs="*", help="only mutations whose printed line holds one")
    parser.add_argument("--list", action="store_true", help="print them and run none")
    parser.add_argument("--calls", type=int, default=5000, help="random calls for a pipeline")
    parser.add_argument("--write-docs", action="store_true",
                        help="put the table into docs/reliability.md")
    options = parser.parse_args()
    start = time.monotonic()
    chosen = [mutation for mutation in itertools.chain(
        of_sums(2), of_sums(3), of_bits("weights"), of_bits("inlineExponential"),
        *map(listed, sorted((ROOT / "tests/mutations").glob("*.txt"))))
        if not options.word or any(word in title(mutation) for word in options.word)]
    to_run = [mutation for mutation in chosen if not mutation.is_equivalent]
    for mutation in to_run:
        mutated({edit[0]: (ROOT / edit[0]).read_text() for edit in mutation.edits}, mutation.edits)
    if options.list:
        return print(*map(title, to_run), sep="\n")
    verdicts = all_verdicts(to_run, options.calls)
    text = table(chosen, verdicts, time.monotonic() - start)
    if options.write_docs:
        docs = ROOT / "docs/reliability.md"
        docs.write_text(re.sub(r"(<!-- mutations.*?-->\n).*?(?=<!-- end of mutations)",
                               lambda found: found[1] + text, docs.read_text(), flags=re.S))
    kills = sum(verdict.startswith("killed") for _, verdict in verdicts)
    print(f"{text}{kills} of {len(verdicts)} killed")
    return kills < len(verdicts)


if __name__ == "__main__":
    sys.exit(main())
