#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""The documents: what README.md and docs/hosting.md show runs, and what all of them link to is there.

    documents_test.py BUILD

A block of commands is four spaces in, or fenced as sh. One that takes minutes or another machine
stands below a comment with the reason: <!-- not run here: ... -->
"""
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

import nibabel
import numpy
import PIL.Image
import zarr

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILD = pathlib.Path(sys.argv[1]).resolve()
sys.path.insert(0, str(ROOT / "hosts/diffuse/tests"))

import valid_files  # noqa: E402

DOCUMENTS = [ROOT / name for name in subprocess.run(
    ["git", "ls-files", "*.md"], cwd=ROOT, capture_output=True, text=True, check=True).stdout.split()]
NOT_RUN = re.compile(r"<!-- not run here: .+ -->")


def commands_of(document):
    """(line, command) of each command that is to be run; a backslash continues it."""
    text = document.read_text().splitlines()
    fence, marked, command = None, False, ""
    for number, line in enumerate(text, 1):
        if line.startswith("```"):
            fence = None if fence is not None else line[3:]
            continue
        shown = line[4:] if fence is None and line.startswith("    ") else \
            line if fence == "sh" else None
        if shown is None:
            marked = bool(NOT_RUN.match(line)) or marked and not line
        elif not marked:
            command += shown
            if not command.endswith("\\"):
                yield number, command
                command = ""
            else:
                command = command[:-1]


def anchors_of(document):
    text = re.sub(r"^```.*?^```", "", document.read_text(), flags=re.M | re.S)
    return {re.sub(r"[^\w\- ]", "", title.lower()).replace(" ", "-")
            for title in re.findall(r"^#+ (.*)", text, re.M)}


class Place:
    """A copy of the source tree's face with the files that the commands name."""

    def __init__(self, folder):
        self.folder = folder
        for name in ("hosts", "include", "docs", "scripts", "README.md"):
            (folder / name).symlink_to(ROOT / name)
        (folder / "build").mkdir()
        (folder / "build/release").symlink_to(BUILD)
        samples = numpy.random.default_rng(1).normal(100, 10, (24, 32, 40)).astype("f4")
        for name in ("picture.png", "photo.jpg"):
            PIL.Image.fromarray(samples[0].astype("u1")).save(folder / name)
        (folder / "noisy").mkdir()
        for name in ("01.png", "02.png"):
            PIL.Image.fromarray(samples[1].astype("u1")).save(folder / "noisy" / name)
        nibabel.Nifti1Image(samples, numpy.eye(4)).to_filename(folder / "head.nii.gz")
        zarr.save_array(str(folder / "head.zarr"), samples)
        series = next(valid for valid in valid_files.dicoms() if valid.given == "series")
        (folder / "series").mkdir()
        for name, content in series.files.items():
            (folder / name).write_bytes(content)
        # An installation goes into a folder, and ldconfig looks at that one.
        (folder / "bin").mkdir()
        ldconfig = folder / "bin/ldconfig"
        ldconfig.write_text('#!/bin/sh\nexec /sbin/ldconfig -n "$DESTDIR/usr/local/lib"\n')
        ldconfig.chmod(0o755)
        browser = folder / "bin/xdg-open"
        browser.write_text('#!/bin/sh\ntest -s "$1"\n')
        browser.chmod(0o755)
        self.environment = {
            **os.environ, "DESTDIR": str(folder / "installed"),
            "PKG_CONFIG_PATH": str(folder / "installed/usr/local/lib/pkgconfig"),
            "PATH": f"{folder}/bin:{BUILD}/hosts/diffuse:/usr/bin:{os.environ['PATH']}",
            "PYTHONPATH": str(ROOT / "hosts/python"),
            "DIFFUSEFILT_LIBRARY": str(BUILD / "libdiffusefilt_halide.so")}

    def run(self, command):
        return subprocess.run(command, shell=True, cwd=self.folder, env=self.environment, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=300)


class Documents(unittest.TestCase):
    def test_commands_run(self):
        for document, count in ((ROOT / "README.md", 8), (ROOT / "docs/hosting.md", 0)):
            with tempfile.TemporaryDirectory() as folder:
                place = Place(pathlib.Path(folder))
                commands = list(commands_of(document))
                self.assertGreaterEqual(len(commands), count, f"{document}: commands are not found")
                for line, command in commands:
                    with self.subTest(command):
                        result = place.run(command)
                        self.assertEqual(
                            result.returncode, 0,
                            f"{result.stdout}\n{document.name}:{line}: this command fails: mend it, or "
                            "what it calls; if it needs minutes or another machine, write "
                            '"<!-- not run here: the reason -->" above it')

    def test_snippets_compile(self):
        snippets = re.findall(r"```c\n(.*?)```", (ROOT / "docs/hosting.md").read_text(), re.S)
        self.assertGreaterEqual(len(snippets), 2)
        for snippet in snippets:
            program = f"#include <diffusefilt_halide.h>\nvoid host(void);\nvoid host(void) {{\n{snippet}}}\n"
            result = subprocess.run(
                ["cc", "-std=c99", "-Wall", "-Werror", "-fsyntax-only", f"-I{ROOT}/include", "-xc", "-"],
                input=program, capture_output=True, text=True)
            self.assertEqual(result.returncode, 0, f"{result.stderr}\nin docs/hosting.md: {snippet}")

    def test_links_lead_somewhere(self):
        links = 0
        for document in DOCUMENTS:
            text = re.sub(r"^```.*?^```", "", document.read_text(), flags=re.M | re.S)
            for target in re.findall(r"\]\(([^)\s]+)\)", text):
                if target.startswith("https://"):
                    continue
                links += 1
                name, _, anchor = target.partition("#")
                file = document.parent / name if name else document
                where = f"{document.relative_to(ROOT)}: the link to {target} leads nowhere: mend it"
                self.assertTrue(file.exists(), where)
                if anchor:
                    self.assertIn(anchor, anchors_of(file), where)
        self.assertGreater(links, 30)

    def test_notices_name_what_is_needed(self):
        notices = (ROOT / "THIRD-PARTY.md").read_text()
        for name in ("libdiffusefilt_halide.so", "hosts/diffuse/diffuse"):
            listing = subprocess.run(["readelf", "-dW", str(BUILD / name)], capture_output=True,
                                     text=True, check=True).stdout
            for needed in re.findall(r"\(NEEDED\).*\[(\w[\w-]*)\.so", listing):
                if needed not in ("libdiffusefilt_halide", "ld-linux-x86-64"):
                    base = re.sub(r"-[\d.]+$", "", needed)
                    self.assertTrue(re.search(rf"`{re.escape(base)}[^`]*`", notices),
                                    f"{name} needs {needed}: give it a line in THIRD-PARTY.md")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
