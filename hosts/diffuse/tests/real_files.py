#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Gives the program every picture and volume of some Debian packages and TIFF files of many kinds,
and prints for each whether it was read, or refused in which line, and whether the samples, their
type, the channels, the pages and the place in space are those of another reader.

    real_files.py PROGRAM [PACKAGE...]

Fails if a file that was read is not equal, or a refusal is not one line.
"""
import itertools
import os
import pathlib
import re
import subprocess
import sys
import tempfile

import program
import readers
import valid_files

PACKAGES = ("python3-pydicom", "python3-nibabel", "python3-skimage", "insighttoolkit5-examples")
SUFFIXES = tuple(".png .jpg .jpeg .tif .tiff .bmp .nii .nii.gz .hdr .nrrd .nhdr .mha .mhd "
                 ".dcm .dcm.gz .dic .gif".split())

LOSSLESS = readers.READERS.keys() - {".jpg", ".nrrd"}


def is_picture(path):
    with open(path, "rb") as file:
        return path.name.lower().endswith(SUFFIXES) or file.read(132)[128:] == b"DICM"


def files_of(package):
    names = subprocess.check_output(["dpkg", "-L", package], text=True).splitlines()
    return [path for path in map(pathlib.Path, sorted(names))
            if path.is_file() and is_picture(path)]


def series_in(files):
    """The folders with several DICOM files, one for each slice."""
    folders = itertools.groupby(sorted(files), lambda path: path.parent)
    return [folder for folder, inside in folders
            if len([path for path in inside if not path.suffix]) > 1]


def written_tiffs(folder):
    """What tifffile writes, in many kinds; the names tell which."""
    for name, samples, options in valid_files.TIFFS:
        path = folder / f"{samples.dtype.name} {name}.tif"
        path.write_bytes(valid_files.tiff(samples, options))
        yield path


def converted(path, file, suffix):
    """The run that writes the file anew, unchanged; and what another reader finds there."""
    with tempfile.TemporaryDirectory(prefix="diffuse-real-") as folder:
        ran = program.run(path, [str(file), "--volume", "-n", "0", "-o", "out" + suffix], folder)
        beside = {name: content for name, content in program.contents(folder).items()
                  if name in ("out.raw", "out.img")}
        broken = program.broken_promise(ran, folder, beside, "out" + suffix)
        image = None if broken or ran.status else readers.read(pathlib.Path(folder, "out" + suffix))
        return ran, broken, image


def verdict(path, file):
    """The words of the table for a file, and whether they are a fault."""
    ran, broken, written = converted(path, file, ".nrrd")
    if "cannot write" in ran.complaint:  # it has what NRRD cannot hold, a colour profile say
        ran, broken, written = converted(path, file, ".tif")
    if broken:
        return broken, True
    if ran.status != 0:
        return f"refused | {ran.complaint.strip().removeprefix('diffuse: ')}", False
    try:
        expected = readers.read(file)
    except Exception as error:  # whatever those readers make of it
        return f"read | no other reader: {type(error).__name__}: {error}".replace("\n", " "), False
    if not expected.same_samples(written):
        ours, theirs = written.samples, expected.samples
        return f"read | NOT EQUAL: {ours.shape} {ours.dtype}, {theirs.shape} {theirs.dtype}", True
    if not expected.same_place(written):
        return (f"read | ANOTHER PLACE: {written.origin} {written.steps.tolist()}, "
                f"{expected.origin} {expected.steps.tolist()}"), True
    if readers.suffix_of(file) not in LOSSLESS:
        return "read | equal", False
    ran, broken, own = converted(path, file, readers.suffix_of(file))
    if broken:
        return f"read | WRITING: {broken}", True
    if ran.status != 0:
        return f"read | equal; {ran.complaint.strip().removeprefix('diffuse: ')}", False
    if not own.same_samples(written) or not own.same_place(written):
        return "read | WRITTEN IN ITS OWN FORMAT IT IS NOT EQUAL", True
    return "read | equal, in its own format too", False


def main():
    path = os.path.abspath(sys.argv[1])
    counts, faults = {}, 0
    with tempfile.TemporaryDirectory(prefix="diffuse-real-") as folder:
        files = [file for package in sys.argv[2:] or PACKAGES for file in files_of(package)]
        files += series_in(files)
        if not sys.argv[2:]:
            files += written_tiffs(pathlib.Path(folder))
        print("| file | read or refused | why, or as other readers read it |\n|---|---|---|")
        for file in files:
            words, fault = verdict(path, file)
            faults += fault
            kind = "refused" if words.startswith("refused") else re.split("[:;]", words)[0]
            counts[kind] = counts.get(kind, 0) + 1
            shown = str(file).removeprefix("/usr/").replace(folder, "tifffile")
            print(f"| {shown} | {words.replace(str(file), file.name)} |", flush=True)
    print(f"{len(files)} files: "
          + ", ".join(f"{count} {kind.replace(' | ', ', ')}" for kind, count in counts.items()))
    return faults > 0


if __name__ == "__main__":
    sys.exit(main())
