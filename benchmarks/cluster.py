#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Measures diffusefilt.cluster on this machine, with hosts/python on the PYTHONPATH.

    python3 benchmarks/cluster.py ratios [--side 512] [--conduction quadratic] [--rounds 3]
    python3 benchmarks/cluster.py scheduler [--blocks 100]

ratios: 16 steps of a cube on two workers, beside reading it once, iterate and writing it once in
this process; quotients of the least times, and bytes beside those of the stored cube. Fails above
the limits that are kept: 1.6 for reading, 1.3 for writing, 1.5 for the time.
scheduler: the cube of that many blocks along each side, each a task that does nothing, through a
scheduler of its own; tasks a second, and how much memory scheduler and client take meanwhile.
"""
import argparse
import operator
import os
import pathlib
import subprocess
import sys
import tempfile
import time

import distributed
import numpy as np
import zarr

import diffusefilt
from diffusefilt.cluster import filter_store, local_client
from diffusefilt.cluster.rounds import Frontier, walk

STEPS = 16
LIMITS = {"read": 1.6, "written": 1.3, "time": 1.5}


def seconds(work):
    began = time.perf_counter()
    result = work()
    return time.perf_counter() - began, result


def directly(source, options):
    """Seconds of reading, iterate and writing, and the result."""
    reading, image = seconds(lambda: source[...])
    steps, result = seconds(lambda: diffusefilt.iterate(image, 20, STEPS,
                                                        conduction=options.conduction))
    target = zarr.open_array("direct.zarr", mode="w", shape=source.shape, chunks=source.chunks,
                             dtype=source.dtype)

    def write():
        target[...] = result
    return reading + steps + seconds(write)[0], result


def ratios(options):
    shape = (options.side,) * 3
    source = zarr.open_array("in.zarr", mode="w", shape=shape, chunks=(64,) * 3, dtype="float32")
    source[...] = np.random.default_rng(1).normal(100, 20, shape).astype("float32")
    stored = sum(file.stat().st_size for file in pathlib.Path("in.zarr").iterdir())
    times = {"direct": [], "cluster": []}
    for number in range(options.rounds):
        took, expected = directly(source, options)
        times["direct"].append(took)
        with local_client() as client:
            took, report = seconds(lambda: filter_store(
                "in.zarr", f"out{number}.zarr", 20, STEPS, conduction=options.conduction,
                client=client))
        times["cluster"].append(took)
        found = zarr.open_array(f"out{number}.zarr", mode="r")
        if not all((found[z] == expected[z]).all() for z in range(options.side)):
            sys.exit("cluster: the bits are not those of iterate")
        print(f"direct {times['direct'][-1]:.2f} s, cluster {took:.2f} s; {report}", flush=True)
    figures = {"read": report.tally.bytes_read / stored,
               "written": report.tally.bytes_written / stored,
               "time": min(times["cluster"]) / min(times["direct"])}
    for name, figure in figures.items():
        print(f"{name}: {figure:.2f} of at most {LIMITS[name]}")
    return any(figure > LIMITS[name] for name, figure in figures.items())


def resident(pid):
    status = pathlib.Path(f"/proc/{pid}/status").read_text()
    return int(status.partition("VmRSS:")[2].split()[0]) / 1024


def scheduler(options):
    python, file = [sys.executable, "-m"], "--scheduler-file=scheduler.json"
    quiet = {"stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL}
    hub = subprocess.Popen([*python, "distributed.cli.dask_scheduler", "--port=0", "--interface=lo",
                            "--dashboard-address=127.0.0.1:0", file], **quiet)
    workers = subprocess.Popen([*python, "distributed.cli.dask_worker", "--nworkers=2",
                                "--nthreads=3", "--no-dashboard", "--interface=lo", file], **quiet)
    try:
        while not os.path.exists("scheduler.json"):
            time.sleep(0.1)
        with distributed.Client(scheduler_file="scheduler.json") as client:
            client.wait_for_workers(2)
            grid = (options.blocks,) * 3
            frontier = Frontier(grid, (1, 1, 1), 1, np.zeros(grid, "int32"))
            total, done, began = options.blocks ** 3, 0, time.perf_counter()

            def note(index, _):
                nonlocal done
                done += 1
                if done % max(total // 10, 1) == 0:
                    print(f"{done:,} tasks, {done / (time.perf_counter() - began):.0f} a second, "
                          f"scheduler {resident(hub.pid):.0f} MB, client "
                          f"{resident(os.getpid()):.0f} MB", flush=True)
            walk(client, frontier, operator.is_, (), note)  # of a round and an index: does nothing
            assert frontier.done.min() == frontier.done.max() == 1
    finally:
        for process in workers, hub:
            process.terminate()
            process.wait()


def main():
    parser = argparse.ArgumentParser()
    commands = parser.add_subparsers(required=True)
    command = commands.add_parser("ratios")
    command.add_argument("--side", type=int, default=512)
    command.add_argument("--conduction", default="quadratic")
    command.add_argument("--rounds", type=int, default=3)
    command.set_defaults(run=ratios)
    command = commands.add_parser("scheduler")
    command.add_argument("--blocks", type=int, default=100)
    command.set_defaults(run=scheduler)
    options = parser.parse_args()
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        return options.run(options)


if __name__ == "__main__":
    sys.exit(main())
