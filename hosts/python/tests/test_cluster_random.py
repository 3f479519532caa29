# SPDX-License-Identifier: MIT
"""Random cases of the cluster host: equal bits, and kills followed by --resume. A few in all runs,
500 and 50 with DIFFUSEFILT_LONG=1; DIFFUSEFILT_SEED chooses others."""
import contextlib
import os
import random
import shutil
import signal
import subprocess
import sys
import time
import unittest

import distributed
import numpy as np

import diffusefilt
from cluster_support import InFolder, content, noise, write
from diffusefilt.cluster import filter_store

LONG = bool(os.environ.get("DIFFUSEFILT_LONG"))
VICTIMS = os.environ.get("DIFFUSEFILT_VICTIMS", "client worker scheduler own").split()
WORKING = 10  # seconds are counted from the begin of work on, those beyond this from the begin
SEED = int(os.environ.get("DIFFUSEFILT_SEED", "1"))


class Bits(InFolder):
    def test_any_shape_chunks_blocks_steps_and_workers(self):
        rng = random.Random(SEED)
        with contextlib.ExitStack() as clusters:
            clients = [clusters.enter_context(distributed.Client(
                n_workers=workers, threads_per_worker=threads, dashboard_address=None))
                for workers, threads in ((1, 1), (2, 3), (3, 2))[:3 if LONG else 2]]
            for number in range(500 if LONG else 16):
                shape = tuple(rng.randint(1, 45) for _ in range(rng.choice((2, 3, 3))))
                chunks = tuple(rng.randint(1, n + 3) for n in shape)
                iterations = rng.randint(1, 12)
                how = {"steps_per_task": rng.choice((None, rng.randint(1, 14)))}
                if rng.random() < 0.8:
                    # Not too many: a task costs a hundredth of a second, whatever it does.
                    how["block"] = tuple(rng.randint(max(n // 4, 1), n) for n in shape)
                if rng.random() < 0.3:
                    how["scratch_compressor"] = rng.choice(("zstd", "lz4"))
                how["connectivity"] = rng.choice(diffusefilt.CONNECTIVITIES)
                how["conduction"] = rng.choice(diffusefilt.CONDUCTIONS)
                how["instruction_set"] = rng.choice(("none", "auto"))
                case = f"case {number} of seed {SEED}: {shape} {chunks} {iterations} {how}"
                image = noise(*shape, dtype=rng.choice(("float32", "float64")))
                write(image, chunks, order=rng.choice("CF"),
                      dimension_separator=rng.choice("./"))
                filter_store("in.zarr", "out.zarr", 20, iterations, client=rng.choice(clients),
                             **how)
                expected = diffusefilt.iterate(image, 20, iterations, how["connectivity"],
                                               how["conduction"], how["instruction_set"])
                self.assertTrue((content() == expected).all(), case)
                self.expect_only("in.zarr", "out.zarr")
                shutil.rmtree("out.zarr")
                shutil.rmtree("in.zarr")


class Cluster:
    """A scheduler and two workers with a nanny, as processes of their own."""

    def __init__(self, name):
        cli, file = [sys.executable, "-m"], f"--scheduler-file={name}.json"
        quiet = {"stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL}
        self.processes = [subprocess.Popen([*cli, *command.split(), file], **quiet) for command in (
            "distributed.cli.dask_scheduler --port=0 --interface=lo "
            "--dashboard-address=127.0.0.1:0",
            "distributed.cli.dask_worker --nworkers=2 --nthreads=3 --interface=lo --no-dashboard "
            f"--death-timeout=60 --local-directory={name}")]
        while not os.path.exists(name + ".json"):
            time.sleep(0.05)
        with distributed.Client(scheduler_file=name + ".json") as client:
            client.wait_for_workers(2)
            self.address, self.workers = client.scheduler.address, client.run(os.getpid).values()

    def close(self):
        for process in self.processes:  # the workers end with their nanny
            process.kill()
            process.wait()


class Kills(InFolder):
    command = [sys.executable, "-m", "diffusefilt.cluster", "in.zarr", "out.zarr", "-k20", "-n48",
               "--steps-per-task=1", "--slabs=16", "--resume"]  # of some seconds

    def run_and_kill(self, options, pids, kind, delay):
        """Its output; `pids` of None are its own."""
        run = subprocess.Popen([*self.command, *options], stdout=subprocess.PIPE,
                               stderr=subprocess.STDOUT, text=True,
                               env={**os.environ,
                                    "DASK_DISTRIBUTED__COMM__TIMEOUTS__CONNECT": "5s"})
        try:
            # Most while it works, some while it begins.
            while delay < WORKING and run.poll() is None and not os.path.exists("out.zarr"):
                time.sleep(0.01)
            with contextlib.suppress(subprocess.TimeoutExpired):
                run.wait(delay % WORKING)
            with contextlib.suppress(ProcessLookupError):
                os.kill(pids or run.pid, kind)
            return run.communicate(timeout=100)[0]
        finally:
            run.kill()

    def test_resuming_after_any_kill(self):
        rng = random.Random(SEED)
        os.mkdir("clusters")
        os.mkdir("work")
        os.chdir("work")
        image = noise(64, 96, 96)
        expected = diffusefilt.iterate(image, 20, 48)
        write(image, (2, 32, 96))
        for number in range(50 if LONG else 3):
            victim = VICTIMS[number % len(VICTIMS)]
            kind = rng.choice((signal.SIGTERM, signal.SIGINT, signal.SIGKILL))
            delay = rng.uniform(0, 5) + WORKING * (rng.random() < 0.2)
            case = f"kill {number} of seed {SEED}: {victim} {kind.name} after {delay:.2f}"
            options, pid = [], None
            with contextlib.ExitStack() as opened:
                if victim != "own":  # the client with a cluster of its own
                    cluster = Cluster(f"../clusters/{number}")
                    opened.callback(cluster.close)
                    options = ["--scheduler", cluster.address]
                    pid = {"worker": rng.choice(list(cluster.workers)), "client": None,
                           "scheduler": cluster.processes[0].pid}[victim]
                output = self.run_and_kill(options, pid, kind, delay)
            self.assertFalse([word for word in ("Traceback", "AssertionError") if word in output],
                             (case, output))
            left = os.listdir()
            self.assertLessEqual({name.rpartition(".")[2] for name in left}, {"zarr", "scratch"})
            done = [name for name in os.listdir("out.zarr")] if "out.zarr" in left else []
            if ".zarray" not in done or ".partial" in done:
                last = subprocess.run(self.command, capture_output=True, text=True)
                self.assertEqual((last.returncode, "Error" in last.stderr), (0, False),
                                 (case, last.stderr))
            if LONG:
                print(case, "done" if ".zarray" in done else "resumed", output.splitlines()[-1:],
                      flush=True)
            self.assertTrue((content() == expected).all(), case)
            self.assertNotIn(".partial", os.listdir("out.zarr"), case)
            self.expect_only("in.zarr", "out.zarr")
            shutil.rmtree("out.zarr")


if __name__ == "__main__":
    unittest.main()
