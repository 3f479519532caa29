# SPDX-License-Identifier: MIT
"""What was done and how long it took."""
from __future__ import annotations

import dataclasses


@dataclasses.dataclass
class Tally:
    """Sums over tasks: elements computed, bytes of chunks as they are stored, seconds."""
    tasks: int = 0
    computed: int = 0
    bytes_read: int = 0
    bytes_written: int = 0
    reading: float = 0
    filtering: float = 0
    writing: float = 0
    waiting: float = 0

    def add(self, other: Tally) -> None:
        for field in dataclasses.fields(self):
            setattr(self, field.name, getattr(self, field.name) + getattr(other, field.name))


@dataclasses.dataclass(frozen=True)
class Report:
    """steps: of each round. block: the extents of a block. blocks: their number. elements: of the
    array. seconds: from the first task to the last. tally: of the tasks whose workers lived. Its
    `waiting` is the time in which a task waited for another one of its worker to end the same
    kind of work."""
    steps: tuple[int, ...]
    block: tuple[int, ...]
    blocks: int
    elements: int
    seconds: float
    tally: Tally

    @property
    def redundancy(self) -> float:
        """Elements computed for each one that was asked for."""
        return self.tally.computed / (self.elements * sum(self.steps))

    def __str__(self) -> str:
        t = self.tally
        return (f"{len(self.steps)} rounds of {self.steps[0]} steps at most, {self.blocks} blocks "
                f"of {' x '.join(map(str, self.block))}, {t.tasks} tasks\n"
                f"{t.bytes_read / 1e6:.1f} MB read, {t.bytes_written / 1e6:.1f} MB written, "
                f"{100 * (self.redundancy - 1):.1f} % of the work done twice\n"
                f"{self.seconds:.2f} s; all workers together: {t.reading:.2f} s reading, "
                f"{t.filtering:.2f} s filtering, {t.writing:.2f} s writing, {t.waiting:.2f} s "
                "waiting")
