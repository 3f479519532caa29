#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Times `diffuse` as a whole, three steps on the head MRI, beside copies, gzip, an ITK program and
calls of the library, in one run; prints ratios of the least times and the aims that are missed.

    end_to_end.py PROGRAM FOLDER_OF_ENDTOEND [--runs N] [--write-docs]
"""
import argparse
import gzip
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).parents[1]
HEAD = pathlib.Path("/usr/share/mricron/templates/ch2.nii.gz")
DOCS = ROOT / "docs/performance.md"


def timed(command, folder):
    """Seconds, processor seconds and the most memory of any of its processes, in bytes."""
    start = time.monotonic()
    process = subprocess.Popen(command, cwd=folder, stdout=subprocess.DEVNULL)
    _, status, usage = os.wait4(process.pid, 0)
    if status:
        sys.exit(f"{command}: status {status}")
    return (time.monotonic() - start, usage.ru_utime + usage.ru_stime, usage.ru_maxrss << 10)


def python_calls():
    """Seconds of `iterate`, and of the same steps by raw calls, least of many on a small picture."""
    sys.path.insert(0, str(ROOT / "hosts/python"))
    result = subprocess.run([sys.executable, "-B", ROOT / "benchmarks/python_calls.py"],
                            capture_output=True, text=True, check=False)
    return result.stdout.strip()


def main():
    parser = argparse.ArgumentParser(usage=__doc__)
    parser.add_argument("program", type=os.path.abspath)
    parser.add_argument("peers", type=os.path.abspath)
    parser.add_argument("--runs", type=int, default=15)
    parser.add_argument("--write-docs", action="store_true")
    options = parser.parse_args()
    with tempfile.TemporaryDirectory() as folder:
        shutil.copy(HEAD, pathlib.Path(folder, "head.nii.gz"))
        content = gzip.decompress(HEAD.read_bytes())
        pathlib.Path(folder, "head.nii").write_bytes(content)
        diffuse = [options.program, "-k", "20", "--type", "float32"]
        commands = {
            "copy": ["sh", "-c", "cat head.nii >a; cat head.nii >b"],
            "gzip": [options.peers + "/gzipAlone", "head.nii.gz", "out.gz"],
            "nii": [*diffuse, "head.nii", "-o", "out.nii"],
            "nii.gz": [*diffuse, "head.nii.gz", "-o", "out.nii.gz"],
            "nothing": [*diffuse, "tiny.nrrd", "-o", "tiny-out.nrrd"],
            "itk nii": [options.peers + "/itkProgram", "head.nii", "out.nii"],
            "itk nii.gz": [options.peers + "/itkProgram", "head.nii.gz", "out.nii.gz"]}
        pathlib.Path(folder, "tiny.nrrd").write_bytes(
            b"NRRD0004\ntype: uint8\ndimension: 2\nsizes: 3 2\nencoding: raw\n\n123456")
        runs = {name: [] for name in commands}
        for _ in range(options.runs):
            for name, command in commands.items():
                runs[name].append(timed(command, folder))
        report = subprocess.run([*diffuse, "head.nii", "--json"], cwd=folder, check=True,
                                capture_output=True)
        steps = sum(step["seconds"] for step in json.loads(report.stdout)["steps"])
    least = {name: min(run[0] for run in all_) for name, all_ in runs.items()}
    peak = max(run[2] for run in runs["nii"])
    samples = len(content) - 352
    rows = [
        ("from and to .nii, beside the copies of both files and the steps",
         least["nii"] / (least["copy"] + steps), 2.0),
        ("from and to .nii.gz, beside the same unpacking and packing on two threads",
         least["nii.gz"] / least["gzip"], 1.3),
        ("a picture of 6 samples, beside the copies: what starting takes",
         least["nothing"] / least["copy"], None),
        ("most memory, beside the samples as float32 and the file", peak / (4 * samples + len(content)), 3.0),
        ("ITK's program, from and to .nii", least["itk nii"] / least["nii"], None),
        ("ITK's program, from and to .nii.gz", least["itk nii.gz"] / least["nii.gz"], None)]
    table = "| what | ratio | aim |\n|---|---|---|\n"
    for what, ratio, aim in rows:
        missed = aim and ratio > aim
        table += f"| {what} | {ratio:.2f} | {f'at most {aim}' if aim else ''}{', missed' if missed else ''} |\n"
    table += f"\nLeast of {options.runs} runs, {os.cpu_count()} processors; seconds: " + ", ".join(
        f"{name} {value:.3f}" for name, value in least.items()) + f", steps {steps:.3f}.\n"
    print(table + python_calls())
    if options.write_docs:
        DOCS.write_text(re.sub(
            r"(?s)(<!-- end to end, .*?-->\n).*?(<!-- end of end to end -->)",
            lambda found: found[1] + table + found[2], DOCS.read_text(encoding="utf-8")),
            encoding="utf-8")


if __name__ == "__main__":
    main()
