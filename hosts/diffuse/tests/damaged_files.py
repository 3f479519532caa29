#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Gives the program valid files, mutated ones and cut ones, and fails unless it reads them right or
refuses them in one line: see broken_promise in program.py, and judge below.

    damaged_files.py PROGRAM [--mutated N] [--cuts N] [--seed N] [--keep FOLDER]
    damaged_files.py PROGRAM --case CASE    what a failure prints to run it again

--cuts counts cuts taken at random; without it there is every cut of the smallest file of every
format. --keep is where the files of a failure stay.
"""
import argparse
import collections
import concurrent.futures
import gzip
import os
import pathlib
import random
import re
import shutil
import sys
import tempfile
import zlib

import numpy as np

import program
import readers
import valid_files

FILES = {valid.name: valid for valid in valid_files.valid_files()}
NUMBERS = [b"0", b"-1", b"1", b"65536", b"2147483647", b"4294967296", b"99999999999999999999",
           b"nan", b"inf", b"1e-400", b"1e300", b"0.5", b"", b"x" * 300]
WORDS = [0, 1, 0x7F, 0x80, 0xFF, 0x100, 0x7FFF, 0x8000, 0xFFFF, 0x10000, 0x7FFFFFFF, 0x80000000,
         0xFFFFFFFF, 0x7F800000, 0x7FC00000, 0x7FFFFFFFFFFFFFFF, 0xFFFFFFFFFFFFFFFF]


def damage(random_, name, content):
    """One change of a few bytes; headers, where they do most, are met more often."""
    at = random_.randrange(min(len(content), random_.choice((64, 512, len(content)))))
    if name.endswith((".nrrd", ".nhdr", ".mha", ".mhd")) and random_.random() < 0.5:
        found = list(re.finditer(rb"[-\d.]+|\w+", content[:512]))
        if found:
            word = random_.choice(found)
            return content[:word.start()] + random_.choice(NUMBERS) + content[word.end():]
    size = random_.choice((1, 1, 2, 4, 8))
    end = at + random_.choice((1, 2, 4, 16, 100))
    other = random_.randrange(len(content))
    return content[:at] + {
        "bit": lambda: bytes([content[at] ^ 1 << random_.randrange(8)]) + content[at + 1:],
        "bytes": lambda: random_.randbytes(size) + content[at + size:],
        "word": lambda: (random_.choice(WORDS) & (1 << 8 * size) - 1).to_bytes(
            size, random_.choice(("big", "little"))) + content[at + size:],
        "removal": lambda: content[end:],
        "copy": lambda: content[other:other + end - at] + content[at:],
    }[random_.choice(("bit", "bit", "bytes", "word", "word", "removal", "copy"))]()


def with_right_checksums(content):
    """A PNG whose chunks, and the stream in them, have the checksums of what is in them now."""
    fixed, at = content[:8], 8
    while at + 12 <= len(content):
        end = at + 8 + int.from_bytes(content[at:at + 4], "big")
        body, unpack = content[at + 4:end], zlib.decompressobj(-15)
        try:
            if body.startswith(b"IDAT"):
                pixels = unpack.decompress(body[6:])
                body = body[:-4] + zlib.adler32(pixels).to_bytes(4, "big")
        except zlib.error:
            pass
        fixed += content[at:at + 4] + body + zlib.crc32(body).to_bytes(4, "big")
        at = end + 4
    return fixed + content[at:]


def mutated(random_, name, content):
    below_checksum = random_.random() < 0.5
    packed = name.endswith(".gz") and below_checksum
    content = gzip.decompress(content) if packed else content
    for _ in range(random_.choice((1, 1, 1, 2, 3, 8))):
        content = damage(random_, name, content) or b"\0"
    if name.endswith(".png") and below_checksum:
        content = with_right_checksums(content)
    return gzip.compress(content, mtime=0) if packed else content


def files_of(case):
    """The files of a case: whole:NAME, cut:NAME:FILE:LENGTH or mutated:SEED:NUMBER."""
    kind, name, *more = case.split(":")
    if kind == "mutated":
        random_ = random.Random(case)
        valid = random_.choice(list(FILES.values()))
        file = random_.choice(list(valid.files))
        content = mutated(random_, file, valid.files[file])
        return valid, {**valid.files, file: content}
    valid = FILES[name]
    if kind == "whole":
        return valid, valid.files
    return valid, {**valid.files, more[0]: valid.files[more[0]][:int(more[1])]}


def put(folder, files):
    for name, content in files.items():
        folder.joinpath(name).parent.mkdir(exist_ok=True)
        folder.joinpath(name).write_bytes(content)


def changed_bytes(folder, files):
    return sum(mine != its for name, content in files.items()
               for mine, its in zip(content, folder.joinpath(name).read_bytes()))


def judge(case, folder, valid, output):
    """What is wrong with a success in `folder`; None if nothing is. Damage behind a checksum has to
    be found; what other damage makes of the samples, the file plainly says: no more of them have
    changed than bytes of the file, or another reader agrees."""
    try:
        written = readers.read(folder / output)
    except ValueError as error:
        return f"a result that cannot be read: {error}"
    if written.origin is not None and not np.isfinite([*written.origin, *written.steps.flat]).all():
        return "a place in space that is not finite"
    with tempfile.TemporaryDirectory() as whole:
        put(pathlib.Path(whole), valid.files)
        undamaged = readers.read(pathlib.Path(whole, valid.given))
    if undamaged.same_samples(written):
        if case.startswith("whole") and undamaged.samples.shape != written.samples.shape:
            return "other channels"
        if case.startswith("whole") and not undamaged.same_place(written):
            return "another place in space"
        return None
    if not case.startswith("mutated"):
        return f"other samples, {written.samples.shape} {written.samples.dtype}"
    if undamaged.samples.shape == written.samples.shape and (
            np.count_nonzero(undamaged.samples != written.samples)
            <= changed_bytes(folder, valid.files)):
        return None
    found = readers.readings(folder / valid.given)
    if not any(image.same_samples(written) for image in found):
        return (f"samples {written.samples.shape} {written.samples.dtype}, other readers have "
                f"{[(image.samples.shape, str(image.samples.dtype)) for image in found]}")
    return None


def examine(path, case, keep):
    """The run, and what is wrong with it; the files of a failure stay in `keep`."""
    with tempfile.TemporaryDirectory(prefix="diffuse-damaged-") as name:
        folder = pathlib.Path(name)
        valid, files = files_of(case)
        put(folder, files)
        before = program.contents(folder)
        output = "out.png" if valid.name == "png grey alpha" else "out.nrrd"  # what can hold it
        ran = program.run(path, [valid.given, "--volume", "-n", "0", "-o", output], folder)
        wrong = program.broken_promise(ran, folder, before, output)
        if not wrong and ran.status == 0:
            wrong = judge(case, folder, valid, output)
        if not wrong and ran.status != 0 and case.startswith("whole"):
            wrong = f"refused: {ran.complaint}"
        if wrong and keep:
            kept = pathlib.Path(keep, re.sub(r"\W+", "-", case))
            shutil.copytree(folder, kept, dirs_exist_ok=True)
    return ran, wrong and f"{case} ({valid.name}): {wrong.strip()}"


def cases_of(options):
    every = [f"cut:{valid.name}:{file}:{length}" for valid in FILES.values()
             for file, content in valid.files.items() for length in range(len(content))]
    if options.cuts is None:
        smallest = {}
        for valid in sorted(FILES.values(), key=lambda v: -sum(map(len, v.files.values()))):
            smallest[pathlib.Path(valid.given).suffix] = valid.name
        del smallest[""]  # a folder
        cuts = [case for case in every if case.split(":")[1] in smallest.values()]
    else:
        cuts = random.Random(options.seed).sample(every, options.cuts)
    return ([f"whole:{name}" for name in FILES] + cuts
            + [f"mutated:{options.seed}:{i}" for i in range(options.mutated)])


def main():
    parser = argparse.ArgumentParser(usage=__doc__)
    parser.add_argument("program", type=os.path.abspath)
    parser.add_argument("--mutated", type=int, default=20000)
    parser.add_argument("--cuts", type=int)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--case")
    parser.add_argument("--keep", type=os.path.abspath)
    options = parser.parse_args()
    cases = [options.case] if options.case else cases_of(options)
    findings, runs = 0, []
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for case, (ran, wrong) in zip(cases, pool.map(
                lambda case: examine(options.program, case, options.keep), cases)):
            runs.append(ran)
            if wrong:
                findings += 1
                print(f"{wrong}\n    {sys.argv[0]} {options.program} --case '{case}'", flush=True)
    if options.case:
        print(runs[0])
    kinds = collections.Counter(case.split(":")[0] for case in cases)
    read = sum(ran.status == 0 for ran in runs)
    print(f"{kinds['whole']} valid, {kinds['cut']} cut and {kinds['mutated']} mutated files: "
          f"{read} read, {len(runs) - read} refused, {findings} findings; at most "
          f"{max(ran.seconds for ran in runs):.1f} s and {max(ran.peak for ran in runs) >> 20} MiB")
    return findings > 0


if __name__ == "__main__":
    sys.exit(main())
