# SPDX-License-Identifier: MIT
"""Anisotropic diffusion of Zarr arrays that need not fit into memory, on the workers of a Dask
cluster. The command line:

    python3 -m diffusefilt.cluster SOURCE TARGET --threshold 20 --iterations 4
    python3 -m diffusefilt.cluster SOURCE TARGET ... --scheduler tcp://host:8786

and from Python, filter_store. Without a scheduler it starts a cluster of its own on this machine.

The array is cut into blocks, slabs along its slowest axis where these fit into memory. A task
reads a block with as many elements to each side as it does steps, and writes the block into the
target or, if there are more steps, into a store between two rounds. Tasks receive the place of the
job and the index of a block, no elements. The result has the bits of diffusefilt.iterate on the
whole array, however it is cut and chunked.

What a cluster needs: source, target and scratch under the same names on all workers and on this
machine; diffusefilt and the library installed on each; three threads for each worker
(`dask worker --nthreads 3 --nworkers N`): one reads, one filters, one writes. In float64
where exp is the conductance, all machines need the same math library and processor, or last bits
may differ.

Until the result is whole, its folder holds no metadata, so nobody takes it for an array, but a
folder .partial with the job. No round writes where an earlier one has written, so a task that Dask
repeats after it lost a worker, or that a lost worker goes on with, changes nothing.
"""
from __future__ import annotations

import importlib
from typing import TYPE_CHECKING, Any

if TYPE_CHECKING:
    from diffusefilt.cluster.command import main
    from diffusefilt.cluster.filtering import filter_store
    from diffusefilt.cluster.local import local_client
    from diffusefilt.cluster.report import Report, Tally

__all__ = ["Report", "Tally", "filter_store", "local_client", "main"]

_MODULES = {"Report": "report", "Tally": "report", "filter_store": "filtering",
            "local_client": "local", "main": "command"}


def __getattr__(name: str) -> Any:
    """Dask takes a second to import. The command line first sees to signals."""
    if name not in _MODULES:
        raise AttributeError(f"module {__name__!r} has no attribute {name!r}")
    return getattr(importlib.import_module(f"{__name__}.{_MODULES[name]}"), name)
