"""Anisotropic diffusion of Zarr arrays that need not fit into memory, on the workers of a Dask
cluster. The command line:

    python3 -m diffusefilt.cluster SOURCE TARGET --threshold 20 --iterations 4
    python3 -m diffusefilt.cluster SOURCE TARGET ... --scheduler tcp://host:8786

and from Python, filter_store. Without a scheduler it starts a cluster of its own on this machine.

The array is cut into slabs along its slowest axis. A task reads a slab and one plane to each side
of it, filters it once, and writes it into a Zarr array of the step, which the next step reads.
Tasks receive the names of files and parameters, no elements. The result has the bits of
diffusefilt.iterate on the whole array, however it is cut and chunked.

What a cluster needs: source and target under the same paths on all workers and on this machine;
diffusefilt and the library installed on each; one thread for each worker
(`dask worker --nthreads 1 --nworkers N`), since a call runs on all processors by itself. A worker
runs one task at a time even if it has more. For `exponential` in float64 all machines need the
same math library and processor, or last bits may differ.

The result appears under its name once it is whole. Until then it is written beside it, in a
folder TARGET.*.partial with room for two copies, which is removed at the end, after an error too.
No step writes where an earlier one has written, so a task that Dask repeats after it lost a
worker, or that a lost worker goes on with, changes nothing.
"""
from __future__ import annotations

import argparse
import contextlib
import itertools
import logging
import math
import operator
import os
import shutil
import signal
import sys
import threading
import uuid
from typing import Any, Callable, Iterator, Optional

import distributed
import numpy
import zarr

import diffusefilt
from diffusefilt._library import INSTRUCTION_SETS

INTERPRETER = 100_000_000  # bytes of a worker that has not read anything
LOSSLESS = ("blosc", "bz2", "gzip", "lz4", "lzma", "zlib", "zstd")  # compressors; filters may round

_one_task_at_a_time = threading.Lock()


def filter_store(source: str, target: str, threshold: float, iterations: int,
                 connectivity: diffusefilt.Connectivity = "minimal",
                 conduction: diffusefilt.Conduction = "quadratic",
                 instruction_set: diffusefilt.InstructionSet = "auto", *,
                 client: Optional[distributed.Client] = None, slabs: Optional[int] = None,
                 progress: Optional[Callable[[int, int], Any]] = None) -> None:
    """Filters the Zarr array in the folder `source` into a new one, the folder `target`.

    source: (rows, columns) or (planes, rows, columns) of float32 or float64. The target gets its
        shape, dtype, attributes and chunks, and its compressor if that is known to lose nothing.
        The chunks become flatter where there are fewer along the slowest axis than slabs.
    threshold, connectivity, conduction: as in diffusefilt.step.
    iterations: number of steps, at least 1.
    instruction_set: "auto" is the best one that all workers of now can run.
    client: of the cluster to use; by default local_client(), for the time of the call.
    slabs: number of slabs, at most as many as planes; by default as few as the
        workers' memory allows, but two for each.
    progress: called with (steps done, iterations) after each step.

    Errors: FileExistsError if `target` exists; those of diffusefilt.step; those of Zarr and of the
    workers, distributed.scheduler.KilledWorker among them, for a task that lost its worker again
    and again. There is no target then.
    """
    volume = zarr.open_array(source, mode="r")
    iterations = operator.index(iterations)
    if iterations < 1:
        raise ValueError(f"iterations must be at least 1, not {iterations}")
    if slabs is not None and slabs < 1:
        raise ValueError(f"slabs must be at least 1, not {slabs}")
    if volume.size == 0:
        raise ValueError(f"{source} is empty")
    diffusefilt.pipeline_name(numpy.empty((0,) * volume.ndim, volume.dtype), threshold,
                              connectivity, conduction, "none")
    target = os.path.abspath(target)
    if os.path.lexists(target):
        raise FileExistsError(f"{target} exists")
    with _partial_folder(target) as folder, contextlib.ExitStack() as owned:
        if client is None:
            client = owned.enter_context(local_client())
        if not client.scheduler_info()["workers"]:
            raise RuntimeError("the cluster has no workers")
        if instruction_set == "auto":
            best = client.run(diffusefilt.best_instruction_set).values()
            instruction_set = min(best, key=INSTRUCTION_SETS.index)
        planes, borders = _cut(volume, slabs or _slabs_for(client, volume))
        stores = [os.path.abspath(source)]
        for done in range(1, iterations + 1):
            stores.append(os.path.join(folder, f"step{done}"))
            _create_like(volume, stores[-1], planes)
            tasks = [client.submit(filter_slab, stores[-2], stores[-1], start, stop, done == 1,
                                   threshold, connectivity, conduction, instruction_set,
                                   pure=False)
                     for start, stop in zip(borders, borders[1:])]
            try:
                # Each has ended, well or not, before the next step begins.
                distributed.wait(tasks)
                client.gather(tasks)
            except BaseException:
                client.cancel(tasks)
                raise
            del tasks  # or Dask would repeat those whose worker is lost later
            if done > 1:
                shutil.rmtree(stores[-2], ignore_errors=True)
            if progress is not None:
                progress(done, iterations)
        _publish(stores[-1], target)


def local_client(workers: int = 2, memory_limit: Any = "auto") -> distributed.Client:
    """A client with a cluster of its own on this machine: processes with one thread each, so that
    one reads or writes while another filters. `memory_limit` of a worker: bytes, a text like
    "2GB", or "auto" for its share. Used as a context, it closes both."""
    return distributed.Client(n_workers=workers, threads_per_worker=1, memory_limit=memory_limit,
                              dashboard_address=None)


class _StepStore(zarr.DirectoryStore):
    """A step's store, for reading. No chunk may be absent: Zarr would take it for zeros."""

    def __getitem__(self, key: str) -> Any:
        try:
            return super().__getitem__(key)
        except KeyError:
            if key.startswith("."):  # metadata, some of it optional
                raise
            raise FileNotFoundError(f"{os.path.join(self.path, key)} is missing") from None


def filter_slab(source: str, target: str, start: int, stop: int, from_outside: bool,
                threshold: float, connectivity: str, conduction: str,
                instruction_set: str) -> None:
    """A task: the planes start .. stop - 1 of one step, which end where chunks of `target` end.
    `from_outside`: `source` is not the store of a step."""
    with _one_task_at_a_time:
        image = zarr.open_array(source if from_outside else _StepStore(source), mode="r")
        result = zarr.open_array(target, mode="r+", write_empty_chunks=True)
        first, end = max(start - 1, 0), min(stop + 1, image.shape[0])
        try:
            planes = image[first:end]
        except Exception as error:  # of any kind, by the compressor
            raise OSError(f"cannot read planes {first} .. {end - 1} of {source}: {error}") from None
        result[start:stop] = diffusefilt.step_slab(
            planes, threshold, connectivity, conduction, instruction_set, first=first,
            extent=image.shape[0], start=start, stop=stop)


def _cut(volume: zarr.Array, slabs: int) -> tuple[int, list[int]]:
    """Planes of a chunk of the target, and the borders of the slabs, all of them on those of
    chunks: two tasks never write the same chunk."""
    extent = volume.shape[0]
    slabs = min(slabs, extent)
    planes = min(volume.chunks[0], -(-extent // slabs))
    chunks = -(-extent // planes)
    if chunks < slabs:
        planes, chunks = 1, extent
    return planes, [min(i * chunks // slabs * planes, extent) for i in range(slabs + 1)]


def _slabs_for(client: distributed.Client, volume: zarr.Array) -> int:
    """As few slabs as the memory of the smallest worker allows, but two for each worker."""
    workers = client.scheduler_info()["workers"].values()
    wanted = 2 * len(workers)
    limits = [worker["memory_limit"] for worker in workers if worker["memory_limit"]]
    if limits:
        chunk = math.prod(volume.chunks) * volume.itemsize
        plane = volume.nbytes // volume.shape[0]
        # Dask pauses a worker at 4/5. The slab, its result and a copy of the slab in C order are
        # in memory at once, with two planes more, and while they are read or written a chunk,
        # its compressed bytes and a buffer of the compressor.
        room = 0.75 * min(limits) - INTERPRETER - 3 * chunk
        height = max(int(room / plane - 4) // 3, 1)
        if height > volume.chunks[0]:
            height -= height % volume.chunks[0]
        wanted = max(wanted, -(-volume.shape[0] // height))
    return wanted


def _create_like(volume: zarr.Array, path: str, planes: int) -> None:
    compressor = volume.compressor
    if compressor is not None and compressor.codec_id not in LOSSLESS:
        compressor = "default"
    created = zarr.open_array(path, mode="w-", shape=volume.shape, dtype=volume.dtype,
                              chunks=(planes, *volume.chunks[1:]), compressor=compressor,
                              fill_value=0)
    created.attrs.update(volume.attrs.asdict())


@contextlib.contextmanager
def _partial_folder(target: str) -> Iterator[str]:
    folder = f"{target}.{uuid.uuid4().hex[:8]}.partial"
    os.mkdir(folder)
    try:
        yield folder
    finally:
        shutil.rmtree(folder, ignore_errors=True)


def _publish(path: str, target: str) -> None:
    """Gives a finished store its name. A worker killed while it wrote leaves a part of a chunk."""
    store = _StepStore(path)
    for name in os.listdir(path):
        if name.endswith(".partial"):
            os.remove(os.path.join(path, name))
    array = zarr.open_array(store, mode="r")
    for chunk in itertools.product(*map(range, array.cdata_shape)):
        if ".".join(map(str, chunk)) not in store:
            raise FileNotFoundError(f"{path} lacks the chunk {chunk}")
    os.rename(path, target)


def _parse(arguments: Optional[list[str]]) -> argparse.Namespace:
    parser = argparse.ArgumentParser(
        prog="diffusefilt.cluster", description="Filters a Zarr array with steps of Perona-Malik "
        "diffusion, slab by slab on the workers of a Dask cluster. Exit status: 0, 1 if the work "
        "failed, 2 if the command line is wrong.")
    parser.add_argument("source", help="folder of a 2-D or 3-D Zarr array of float32 or float64")
    parser.add_argument("target", help="folder to write, which must not exist")
    parser.add_argument("-k", "--threshold", type=float, required=True,
                        help="gradient threshold, in the units of the elements")
    parser.add_argument("-n", "--iterations", type=int, default=1, help="number of steps (1)")
    parser.add_argument("--connectivity", default="minimal", choices=("minimal", "maximal"))
    parser.add_argument("--conduction", default="quadratic", choices=("quadratic", "exponential"))
    parser.add_argument("--instruction-set", default="auto", choices=("auto", *INSTRUCTION_SETS))
    parser.add_argument("--slabs", type=int, help="number of slabs (by the workers' memory)")
    parser.add_argument("--scheduler", metavar="ADDRESS",
                        help="of a running cluster, like tcp://host:8786; one on this machine is "
                        "started without it")
    parser.add_argument("--workers", type=int, default=2, help="of the cluster started here (2)")
    parser.add_argument("--memory-limit", default="auto", metavar="BYTES",
                        help="of each worker of the cluster started here, like 2GB (its share)")
    return parser.parse_args(arguments)


def _client_of(options: argparse.Namespace) -> distributed.Client:
    if options.scheduler:
        return distributed.Client(options.scheduler)
    # The workers inherit this: Ctrl-C reaches all processes of a terminal, and one shall end it.
    handler = signal.signal(signal.SIGINT, signal.SIG_IGN)
    try:
        return local_client(options.workers, options.memory_limit)
    finally:
        signal.signal(signal.SIGINT, handler)


def main(arguments: Optional[list[str]] = None) -> int:
    options = _parse(arguments)
    # A failure is told in one line; with `info` in its place, Dask tells of it too.
    level = os.environ.setdefault("DASK_LOGGING__DISTRIBUTED", "critical")
    logging.getLogger("distributed").setLevel(level.upper())
    try:
        with _client_of(options) as client:
            filter_store(options.source, options.target, options.threshold, options.iterations,
                         options.connectivity, options.conduction, options.instruction_set,
                         client=client, slabs=options.slabs,
                         progress=lambda done, count: print(f"step {done} of {count}", flush=True))
    except KeyboardInterrupt:
        return 128 + signal.SIGINT
    except Exception as error:  # from Zarr, Dask or a worker, of any kind
        line = str(error).partition("\n")[0]
        print(f"diffusefilt.cluster: {line or type(error).__name__}", file=sys.stderr)
        return 1
    return 0
