# SPDX-License-Identifier: MIT
"""filter_store: from the question to the finished target."""
from __future__ import annotations

import dataclasses
import math
import operator
import os
import time
import uuid
from collections import Counter
from typing import Any, Callable, Optional, Sequence

import distributed
import numcodecs
import numpy

from diffusefilt import _steps
from diffusefilt._axes import (INSTRUCTION_SETS, MINIMAL, QUADRATIC, Conduction, Connectivity,
                               InstructionSet)
from diffusefilt._library import best_instruction_set
from diffusefilt._samples import arithmetic_of
from diffusefilt.cluster import plan as plans
from diffusefilt.cluster import pyramid, rounds, tasks
from diffusefilt.cluster.costs import SAMPLE, measure, sample_of
from diffusefilt.cluster.jobs import Job, Question, load
from diffusefilt.cluster.plan import Costs, Index, Plan, Room
from diffusefilt.cluster.report import Report, Tally
from diffusefilt.cluster.sources import Source, open_source
from diffusefilt.cluster.stores import Folder

Progress = Callable[[int, int], Any]


def filter_store(source: str, target: str, threshold: float, iterations: int,
                 connectivity: Connectivity = MINIMAL,
                 conduction: Conduction = QUADRATIC,
                 instruction_set: InstructionSet = "auto", *,
                 client: Optional[distributed.Client] = None, slabs: Optional[int] = None,
                 block: Optional[Sequence[int]] = None, steps_per_task: Optional[int] = None,
                 scratch: Optional[str] = None, scratch_compressor: Optional[str] = None,
                 dtype: Optional[str] = None, resume: bool = False,
                 progress: Optional[Progress] = None) -> Report:
    """Filters the Zarr array or OME-Zarr group at `source` into a new one at `target`: paths, or
    addresses that fsspec opens, which gets the settings of its file systems from its files and
    its environment variables, on each worker.

    source: an array of 2 or 3 dimensions, or an OME-Zarr group (NGFF 0.4), of floats or
        integers. The target gets its shape, dtype, chunks, chunk names and attributes, and its
        compressor if that is known to lose nothing. Of a group the finest array is filtered, each
        time and channel by itself, and the coarser ones are made from the result; labels are left
        out. Integers are rounded and saturated as by the command line host.
    threshold, connectivity, conduction: as in diffusefilt.step.
    iterations: number of steps, at least 1.
    instruction_set: "auto" is the best one that all workers of now can run.
    client: of the cluster to use; by default local_client(), for the time of the call.
    slabs, block: the number of blocks along the slowest axis in space, or the extents of a block,
        made of whole chunks. By default what takes least time by costs measured at the start,
        and fits into the workers' memory.
    steps_per_task: steps of a block in one task; by default likewise.
    scratch: folder for what is stored between rounds, beside the target by default.
    scratch_compressor: for that, an id of numcodecs like "zstd"; by default nothing is compressed.
    dtype: in which it is filtered, "float64" or "float32"; by default floats in their own type (of
        16 bits in float32) and integers in float64.
    resume: goes on with a target that an earlier call with the same source and parameters left
        unfinished, with its blocks, scratch and instruction set; and this call leaves one if it
        is interrupted or fails. Without it, a call that fails removes what it has written.
    progress: called with (done, total), both in elements times steps, at
        the start and after each task.

    Returns a Report. Errors: FileExistsError if `target` exists and cannot be gone on with;
    MemoryError, with figures and before anything is read, if no block fits into a worker;
    FileNotFoundError, TypeError and ValueError for the arguments; OSError for a chunk that cannot
    be read, or that is missing where the fill value is null; those of the workers,
    distributed.KilledWorker among them; ConnectionError if the scheduler is lost.
    """
    found = open_source(source)
    question = _question(found, threshold, iterations, connectivity, conduction, dtype)
    _check_counts(slabs=slabs, steps_per_task=steps_per_task)
    place = Folder(target)
    left = load(str(place))
    if left is not None:
        _check_same(question, left, resume)
    elif place.taken():
        raise FileExistsError(f"{place} exists")
    if client is None:
        from diffusefilt.cluster.local import local_client
        with local_client() as own:
            return _run(own, found, question, left, place, instruction_set, slabs, block,
                        steps_per_task, scratch, scratch_compressor, resume, progress)
    return _run(client, found, question, left, place, instruction_set, slabs, block,
                steps_per_task, scratch, scratch_compressor, resume, progress)


def _question(found: Source, threshold: float, iterations: int, connectivity: str,
              conduction: str, dtype: Optional[str]) -> Question:
    iterations = operator.index(iterations)
    if iterations < 1:
        raise ValueError(f"iterations must be at least 1, not {iterations}")
    arithmetic = arithmetic_of(found.dtype.newbyteorder("="), dtype).name
    _steps.pipeline_name(numpy.empty((0,) * found.spatial, arithmetic), threshold, connectivity,
                         conduction, "none")
    return Question(found.array, found.metadata, float(threshold), iterations, connectivity,
                    conduction, arithmetic)


def _check_counts(**counts: Optional[int]) -> None:
    for name, count in counts.items():
        if count is not None and operator.index(count) < 1:
            raise ValueError(f"{name} must be at least 1, not {count}")


def _check_same(question: Question, left: Job, resume: bool) -> None:
    if not resume:
        raise FileExistsError(f"{left.target} is unfinished, and resume goes on with it")
    for field in dataclasses.fields(Question):
        was, wanted = getattr(left.question, field.name), getattr(question, field.name)
        if was != wanted:
            raise ValueError(f"{left.target} was begun with {field.name} {was}, not {wanted}")


def _run(client: distributed.Client, found: Source, question: Question, left: Optional[Job],
         place: Folder, instruction_set: str, slabs: Optional[int],
         block: Optional[Sequence[int]], steps_per_task: Optional[int], scratch: Optional[str],
         scratch_compressor: Optional[str], resume: bool, progress: Optional[Progress]) -> Report:
    room = _room(client)
    if left is not None:
        plans.require_room(left.plan.block, max(left.plan.steps), found.shape, found.chunks,
                           found.spatial, numpy.dtype(question.arithmetic).itemsize, room)
        return _work(client, left, True, resume, progress)
    if instruction_set == "auto":
        best = client.run(best_instruction_set).values()
        instruction_set = min(best, key=INSTRUCTION_SETS.index)
    compressor = numcodecs.get_codec({"id": scratch_compressor}) if scratch_compressor else None
    choose = _chooser(found, question, room, slabs, block, steps_per_task)
    plan = choose(Costs())  # refuses what does not fit
    between = Folder(f"{scratch}/{os.path.basename(place.path)}" if scratch else str(place))
    between = Folder(f"{between}.{question.digest}.scratch")
    job = Job(question, instruction_set, plan, str(place), str(between),
              _scratch_metadata(plan, question.arithmetic, compressor), found.levels,
              found.documents)
    place.make()
    try:
        between.make()
        if not (steps_per_task and (slabs or block)):
            plan = choose(_costs(client, job))
            job = dataclasses.replace(job, plan=plan, scratch_metadata=_scratch_metadata(
                plan, question.arithmetic, compressor))
        job.save()
    except BaseException:
        job.abandon()
        raise
    return _work(client, job, False, resume, progress)


def _room(client: distributed.Client) -> Room:
    workers = client.scheduler_info()["workers"].values()
    if not workers:
        raise RuntimeError("the cluster has no workers")
    limits = [worker["memory_limit"] for worker in workers if worker["memory_limit"]]
    return Room(len(workers), min(limits, default=None),
                max(worker["nthreads"] for worker in workers),
                min(client.run(os.cpu_count).values()) / _sharing(client))


def _sharing(client: distributed.Client) -> int:
    """How many workers the fullest machine has."""
    workers = client.scheduler_info()["workers"].values()
    return max(Counter(worker["host"] for worker in workers).values())


def _chooser(found: Source, question: Question, room: Room, slabs: Optional[int],
             wanted: Optional[Sequence[int]], steps_per_task: Optional[int]
             ) -> Callable[[Costs], Plan]:
    itemsize = numpy.dtype(question.arithmetic).itemsize
    vector = min(plans.VECTOR_BYTES // itemsize, found.shape[-1])
    leading = len(found.shape) - found.spatial
    if slabs is not None:
        if wanted is not None:
            raise ValueError("slabs and block say the same: give one")
        wanted = [*found.chunks[:leading], -(-found.shape[leading] // slabs),
                  *found.shape[leading + 1:]]
    block = None
    if wanted is not None:
        if len(wanted) != len(found.shape) or min(map(operator.index, wanted)) < 1:
            raise ValueError(f"block must have {len(found.shape)} extents of at least 1, "
                             f"not {tuple(wanted)}")
        block = plans.whole_chunks(wanted, found.shape, found.chunks, vector)

    def choose(costs: Costs) -> Plan:
        return plans.choose(found.shape, found.spatial, found.chunks, itemsize,
                            question.iterations, room, costs, block=block,
                            steps_per_task=steps_per_task)
    return choose


def _scratch_metadata(plan: Plan, arithmetic: str, compressor: Any) -> dict[str, Any]:
    return {"zarr_format": 2, "shape": list(plan.shape), "chunks": list(plan.scratch_chunks),
            "dtype": numpy.dtype(arithmetic).str, "order": "C", "filters": None, "fill_value": 0,
            "compressor": compressor and compressor.get_config(), "dimension_separator": "/"}


def _costs(client: distributed.Client, job: Job) -> Costs:
    """As one worker measures them now, but all that share a machine filter at once."""
    question, plan = job.question, job.plan
    if math.prod(plan.shape) * numpy.dtype(question.arithmetic).itemsize < SAMPLE[0]:
        return Costs()
    metadata = question.source_metadata
    sample = sample_of(plan.shape, tuple(metadata["chunks"]), plan.spatial,
                       numpy.dtype(question.arithmetic).itemsize)
    pipeline = _steps.pipeline_name(numpy.empty((0,) * plan.spatial, question.arithmetic),
                                    question.threshold, question.connectivity,
                                    question.conduction, "none")
    pipeline = pipeline.rpartition("_")[0] + "_" + job.instruction_set
    scratch = {**job.scratch_metadata, "chunks": metadata["chunks"]}
    costs: Costs = client.submit(measure, question, pipeline, plan.spatial, job.scratch, scratch,
                          job.levels[0].metadata, sample, pure=False).result()
    return dataclasses.replace(costs, step=costs.step * _sharing(client))


def _work(client: distributed.Client, job: Job, resumed: bool, keep: bool,
          progress: Optional[Progress]) -> Report:
    saved = uuid.uuid4().hex
    arguments = job.target, job.question.digest, saved
    try:
        began = time.perf_counter()
        tally = _filter(client, job, arguments, resumed, progress)
        for number, level in enumerate(job.levels[1:], 1):
            shape, chunks = tuple(level.metadata["shape"]), tuple(level.metadata["chunks"])
            rounds.each(client, pyramid.blocks_of(shape, chunks).grid, pyramid.run_coarser,
                        (*arguments, number), lambda _, result: tally.add(result))
        job.finish()
    except BaseException:
        _stop(client, saved)
        if not keep:
            job.abandon()
        raise
    return Report(job.plan.steps, job.plan.block, math.prod(job.plan.grid),
                  math.prod(job.plan.shape), time.perf_counter() - began, tally)


def _filter(client: distributed.Client, job: Job, arguments: tuple[str, str, str], resumed: bool,
            progress: Optional[Progress]) -> Tally:
    plan, tally = job.plan, Tally()
    done = numpy.zeros(plan.grid, "int32")
    if resumed:
        def note(index: Index, count: int) -> None:
            done[index] = count
        Folder(job.scratch).make()
        rounds.each(client, plan.grid, tasks.rounds_done, arguments, note)
    total = math.prod(plan.shape) * sum(plan.steps)
    finished = sum(plan.at(index).size * sum(plan.steps[:done[index]])
                   for index in numpy.ndindex(*plan.grid)) if resumed else 0

    if progress is not None:
        progress(finished, total)

    # After the last of several rounds one more deletes what the last but one has left.
    sweeps = job.rounds > 1
    frontier = rounds.Frontier(plan.grid, plan.reach, job.rounds + sweeps, done)

    def note_result(index: Index, result: Tally) -> None:
        nonlocal finished
        tally.add(result)
        number = frontier.done[index] - 1
        if progress is not None and number < job.rounds:
            finished += plan.at(index).size * plan.steps[number]
            progress(finished, total)

    rounds.walk(client, frontier, tasks.run_block, arguments, note_result)
    return tally


def _stop(client: distributed.Client, saved: str) -> None:
    """No task writes after this, unless its worker cannot be reached."""
    if client.status != "running":
        return  # workers end with their scheduler
    try:
        client.sync(client._run, tasks.give_up, saved, on_error="ignore", callback_timeout=60)
    except Exception:  # of a cluster that is gone
        pass
