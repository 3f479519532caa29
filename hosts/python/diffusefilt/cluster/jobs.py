# SPDX-License-Identifier: MIT
"""What all tasks of one call share. It stands as JSON in the folder .partial of the target until
that is whole: tasks receive its place and the index of a block, and a call that goes on where
another stopped takes it from there."""
from __future__ import annotations

import dataclasses
import functools
import hashlib
import itertools
import json
from typing import Any, Optional

import zarr

from diffusefilt.cluster.plan import Index, Plan
from diffusefilt.cluster.stores import PARTIAL, Folder, open_array, read_json, write_json

MARKER = f"{PARTIAL}/job.json"


@dataclasses.dataclass(frozen=True)
class Level:
    """An array of the target: `path` in it, "" for itself, and its .zarray."""
    path: str
    metadata: dict[str, Any]


@dataclasses.dataclass(frozen=True)
class Question:
    """What is asked for: it names the job, and an unfinished target with another one is not
    taken up. source: the array, with its .zarray. arithmetic: the type that steps compute in."""
    source: str
    source_metadata: dict[str, Any]
    threshold: float
    iterations: int
    connectivity: str
    conduction: str
    arithmetic: str

    @property
    def digest(self) -> str:
        text = json.dumps(dataclasses.asdict(self), sort_keys=True)
        return hashlib.sha256(text.encode()).hexdigest()[:12]


@dataclasses.dataclass(frozen=True)
class Job:
    """levels: the arrays of the target, the filtered one first, each further one a coarser copy
    of the one before. documents: what is written into the target at its end, by name."""
    question: Question
    instruction_set: str
    plan: Plan
    target: str
    scratch: str
    scratch_metadata: dict[str, Any]
    levels: tuple[Level, ...]
    documents: dict[str, Any]

    @property
    def rounds(self) -> int:
        return len(self.plan.steps)

    def input(self, number: int) -> zarr.Array:
        """What round `number` reads."""
        if number == 0:
            return open_array(Folder(self.question.source), self.question.source_metadata, "fill")
        return self.output(number - 1)

    def output(self, number: int, mode: str = "r") -> zarr.Array:
        """What round `number` writes."""
        if number == self.rounds - 1:
            return self.level(0, mode)
        return open_array(Folder(self.scratch).sub(f"round{number + 1}"), self.scratch_metadata,
                          mode)

    def level(self, number: int, mode: str = "r") -> zarr.Array:
        level, folder = self.levels[number], Folder(self.target)
        return open_array(folder.sub(level.path) if level.path else folder, level.metadata, mode)

    def delete(self, number: int, index: Index) -> None:
        """A block of what round `number` left, if that is not the target."""
        if 0 <= number < self.rounds - 1:
            array, block = self.output(number), self.plan.at(index)
            folder = array.store.folder
            folder.map(folder.delete, chunk_keys(array, block.start, block.stop))

    def save(self) -> None:
        write_json(Folder(self.target), MARKER, dataclasses.asdict(self))

    def finish(self) -> None:
        """The target becomes one that everybody can read."""
        Folder(self.scratch).remove()
        target = Folder(self.target)
        for name, document in self.documents.items():
            write_json(target, name, document)
        target.remove_partial()
        target.delete(MARKER)
        target.remove_partial()

    def abandon(self) -> None:
        Folder(self.scratch).remove()
        Folder(self.target).remove()


def is_there(array: zarr.Array, start: Index, stop: Index) -> bool:
    """Whether all chunks of a block exist: one that does is finished."""
    folder = array.store.folder
    return all(folder.map(folder.exists, chunk_keys(array, start, stop)))


def chunk_keys(array: zarr.Array, start: Index, stop: Index) -> list[str]:
    """Of the chunks that hold the elements start .. stop - 1."""
    ranges = [range(a // c, -(-b // c)) for a, b, c in zip(start, stop, array.chunks)]
    separator = array.store.separator
    return [separator.join(map(str, index)) for index in itertools.product(*ranges)]


def load(target: str) -> Optional[Job]:
    """The job of an unfinished target, None if there is none."""
    found = read_json(Folder(target), MARKER)
    if found is None:
        return None
    plan = {name: tuple(value) if isinstance(value, list) else value
            for name, value in found.pop("plan").items()}
    return Job(question=Question(**found.pop("question")), plan=Plan(**plan),
               levels=tuple(Level(**level) for level in found.pop("levels")), **found)


@functools.lru_cache(maxsize=4)
def load_once(target: str, digest: str, saved: str) -> Job:
    """The same for the tasks of a worker; `saved` tells apart the calls with one target."""
    job = load(target)
    if job is None:
        raise FileNotFoundError(f"{target}/{MARKER} is missing: the work has been given up")
    return job
