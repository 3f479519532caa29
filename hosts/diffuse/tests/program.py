# SPDX-License-Identifier: MIT
"""Runs the program as its users do and tells which of its promises a run broke."""
import os
import pathlib
import resource
import signal
import subprocess
import threading
import time
from typing import NamedTuple

SECONDS = 10
BYTES = 1 << 29  # in each of two processes


class Run(NamedTuple):
    status: int  # negative for a signal
    complaint: str
    seconds: float
    peak: int  # bytes, of the largest of its processes
    left_running: bool


def run(program, arguments, folder):
    """Runs it in `folder`, which holds its temporary files too; a hang ends by SIGKILL."""
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    start = time.monotonic()
    process = subprocess.Popen(
        [program, *arguments], cwd=folder, env={**os.environ, "TMPDIR": str(folder)},
        stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE,
        start_new_session=True)
    end = threading.Timer(SECONDS, os.killpg, (process.pid, signal.SIGKILL))
    end.start()
    complaint = process.stderr.read(1 << 20)
    _, status, usage = os.wait4(process.pid, 0)
    end.cancel()
    process.stderr.close()
    process.returncode = status  # it has been waited for
    try:
        os.killpg(process.pid, signal.SIGKILL)
        left_running = True
    except ProcessLookupError:
        left_running = False
    return Run(os.waitstatus_to_exitcode(status), complaint.decode("utf-8", "replace"),
               time.monotonic() - start, usage.ru_maxrss << 10, left_running)


def broken_promise(ran, folder, before, output):
    """The first promise that a run broke; None if it kept them all. `before` is what the folder
    held, as `contents` tells it."""
    if ran.seconds > SECONDS:
        return f"hangs: {ran.seconds:.0f} s"
    if ran.status < 0:
        return f"ended by signal {-ran.status}"
    if ran.status not in (0, 1, 2):
        return f"status {ran.status}"
    if ran.left_running:
        return "left a process running"
    if ran.peak > BYTES:
        return f"takes {ran.peak >> 20} MiB"
    lines = ran.complaint.split("\n")
    if ran.status != 0 and (len(lines) != 2 or lines[1] or not lines[0].isprintable()
                            or not lines[0].startswith("diffuse: ")):
        return f"not one line: {ran.complaint!r}"
    after = contents(folder)
    written = {name for name in after if name not in before}
    if written != ({output} if ran.status == 0 else set()):
        return f"with status {ran.status} it left {sorted(written)}"
    if {name: after.get(name) for name in before} != before:
        return "changed an input"
    return None


def contents(folder):
    """Every file below the folder, the hidden ones too, with its bytes."""
    return {str(path.relative_to(folder)): path.read_bytes() if path.is_file() else None
            for path in sorted(pathlib.Path(folder).rglob("*"))}
