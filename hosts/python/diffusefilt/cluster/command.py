# SPDX-License-Identifier: MIT
"""The command line: python3 -m diffusefilt.cluster"""
from __future__ import annotations

import argparse
import contextlib
import logging
import multiprocessing
import os
import shutil
import signal
import sys
import tempfile
import time
from typing import Any, Iterator, Optional

import dask
import distributed

from diffusefilt import _axes
from diffusefilt.cluster.filtering import filter_store
from diffusefilt.cluster.local import has_dashboard, local_client

SIGNALS = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)


class Interrupted(BaseException):
    """One of SIGNALS has arrived."""


def main(arguments: Optional[list[str]] = None) -> int:
    options = _parse(arguments)
    # A failure is told in one line; with `info` in its place, Dask tells of it too.
    level = os.environ.setdefault("DASK_LOGGING__DISTRIBUTED", "critical")
    for name in list(logging.root.manager.loggerDict):
        if name.partition(".")[0] == "distributed":
            logging.getLogger(name).setLevel(level.upper())
    # What Dask logs in others' names, when a scheduler is lost, would go to stderr.
    logging.getLogger().addHandler(logging.NullHandler())
    logging.getLogger("asyncio").setLevel(logging.CRITICAL)
    # A worker that was killed leaves semaphores, of which Python warns.
    os.environ.setdefault("PYTHONWARNINGS", "ignore:resource_tracker:UserWarning")
    with _signals_raise() as arrived:
        try:
            with _client_of(options) as client:
                if options.scheduler or has_dashboard():
                    print(f"dashboard: {client.dashboard_link}", file=sys.stderr, flush=True)
                report = filter_store(
                    options.source, options.target, options.threshold, options.iterations,
                    options.connectivity, options.conduction, options.instruction_set,
                    client=client, slabs=options.slabs, block=options.block,
                    steps_per_task=options.steps_per_task, scratch=options.scratch,
                    scratch_compressor=options.scratch_compressor, dtype=options.type,
                    resume=options.resume, progress=_Progress())
            print(report, flush=True)
            return 0
        except Interrupted:
            return _die_of(arrived[0])
        except Exception as error:  # from Zarr, Dask or a worker, of any kind
            line = str(error).partition("\n")[0]
            print(f"diffusefilt.cluster: {line or type(error).__name__}", file=sys.stderr)
            return 1


def _parse(arguments: Optional[list[str]]) -> argparse.Namespace:
    parser = argparse.ArgumentParser(
        prog="diffusefilt.cluster", description="Filters a Zarr array or an OME-Zarr group with "
        "steps of Perona-Malik diffusion, block by block on the workers of a Dask cluster. Exit "
        "status: 0, 1 if the work failed, 2 if the command line is wrong.")
    parser.add_argument("source", help="2-D or 3-D Zarr array of floats or integers, or "
                        "OME-Zarr group: a folder, or an address that fsspec opens")
    parser.add_argument("target", help="to write; must not exist")
    parser.add_argument("-k", "--threshold", type=float, required=True,
                        help="gradient threshold, in the units of the elements")
    parser.add_argument("-n", "--iterations", type=int, default=1, help="number of steps (1)")
    parser.add_argument("--connectivity", default=_axes.MINIMAL, choices=_axes.CONNECTIVITIES)
    parser.add_argument("--conduction", default=_axes.QUADRATIC, choices=_axes.CONDUCTIONS)
    parser.add_argument("--instruction-set", default="auto", choices=("auto", *_axes.INSTRUCTION_SETS))
    parser.add_argument("--type", choices=("float32", "float64"),
                        help="of the arithmetic (by the elements)")
    parser.add_argument("--resume", action="store_true",
                        help="go on with an unfinished target, and leave one if interrupted")
    parser.add_argument("--scratch", metavar="FOLDER",
                        help="for what is stored between rounds (beside the target)")
    parser.add_argument("--scratch-compressor", metavar="NAME",
                        help="for that, like zstd (none)")
    parser.add_argument("--steps-per-task", type=int, metavar="K",
                        help="steps of a block in one task (by measured costs)")
    parser.add_argument("--slabs", type=int, help="blocks along the slowest axis (likewise)")
    parser.add_argument("--block", type=_extents, metavar="N,N,N",
                        help="extents of a block, slowest axis first (likewise)")
    parser.add_argument("--scheduler", metavar="ADDRESS",
                        help="of a running cluster, like tcp://host:8786; one on this machine is "
                        "started without it")
    parser.add_argument("--workers", type=int, default=2, help="of the cluster started here (2)")
    parser.add_argument("--memory-limit", default="auto", metavar="BYTES",
                        help="of each worker of the cluster started here, like 2GB (its share)")
    return parser.parse_args(arguments)


def _extents(text: str) -> tuple[int, ...]:
    return tuple(map(int, text.split(",")))


@contextlib.contextmanager
def _signals_raise() -> Iterator[list[int]]:
    """The first of SIGNALS raises Interrupted and is kept in the list. What follows it finds us
    cleaning up. Only a main thread may do so."""
    arrived: list[int] = []

    def receive(number: int, _: Any) -> None:
        if not arrived:
            arrived.append(number)
            raise Interrupted

    handlers = {number: signal.signal(number, receive) for number in SIGNALS
                if signal.getsignal(number) is not signal.SIG_IGN}
    try:
        yield arrived
    finally:
        for number, handler in handlers.items():
            signal.signal(number, handler)


def _die_of(number: int) -> int:
    """Ends this process as the signal does by itself, and with it the workers of its cluster:
    closing that in good order waits for what they are doing."""
    for child in multiprocessing.active_children():
        child.kill()
    signal.signal(number, signal.SIG_DFL)
    os.kill(os.getpid(), number)
    return 128 + number


@contextlib.contextmanager
def _client_of(options: argparse.Namespace) -> Iterator[distributed.Client]:
    if options.scheduler:
        with distributed.Client(options.scheduler) as client:
            yield client
        return
    folder = tempfile.mkdtemp(prefix="diffusefilt-")
    nannies: list[Any] = []
    try:
        # Ctrl-C and a closed terminal reach all processes, and the first ends the others. The
        # thread that starts workers, now and later, inherits this, and they do from it.
        held = signal.pthread_sigmask(signal.SIG_BLOCK, (signal.SIGINT, signal.SIGHUP))
        try:
            with dask.config.set({"temporary-directory": folder}):
                client = local_client(options.workers, options.memory_limit)
        finally:
            signal.pthread_sigmask(signal.SIG_SETMASK, held)
        nannies.extend(client.cluster.workers.values())
        yield client
        client.close()
        client.cluster.close()
    except BaseException as error:
        if isinstance(error, Interrupted):  # then nothing waits for a nanny to close
            for nanny in nannies:  # or it would start its worker again
                nanny.status = distributed.Status.closing
        for child in multiprocessing.active_children():
            child.kill()
        raise
    finally:
        shutil.rmtree(folder, ignore_errors=True)


class _Progress:
    """A bar with elements times steps per second and the time to go; lines, one for each tenth,
    where the output is no terminal."""

    def __init__(self) -> None:
        self._first: Optional[int] = None
        self._began = self._shown = time.monotonic()
        self._tenth = 0
        self._terminal = sys.stderr.isatty()

    def __call__(self, done: int, total: int) -> None:
        now = time.monotonic()
        if self._first is None:  # what an earlier call has done says nothing of this one's speed
            self._first, self._began, self._tenth = done, now, done * 10 // total
            return
        last = done == total
        if self._terminal:
            if now - self._shown < 0.1 and not last:
                return
            self._shown = now
        elif done * 10 // total == self._tenth:
            return
        self._tenth = done * 10 // total
        rate = (done - self._first) / max(now - self._began, 1e-9)
        text = (f"{100 * done // total:3d} %, {rate / 1e6:.1f} million elements x steps/s, "
                f"{_duration((total - done) / rate)} to go")
        if self._terminal:
            bar = ("#" * (30 * done // total)).ljust(30)
            print(f"\r[{bar}] {text}\033[K", end="\n" if last else "", file=sys.stderr, flush=True)
        else:
            print(text, file=sys.stderr, flush=True)


def _duration(seconds: float) -> str:
    minutes, seconds = divmod(round(seconds), 60)
    hours, minutes = divmod(minutes, 60)
    return f"{hours}:{minutes:02d}:{seconds:02d}" if hours else f"{minutes}:{seconds:02d}"
