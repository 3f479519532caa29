# SPDX-License-Identifier: MIT
"""A cluster on this machine."""
from __future__ import annotations

import importlib.util
from typing import Any

import dask
import distributed

from diffusefilt.cluster import tasks
from diffusefilt.cluster.plan import IN_FLIGHT

# Dask has malloc give all free memory back at once, and a chunk then costs more in page faults than
# in its compressor: with these a worker keeps some MB, and writes in half the time.
_MALLOC = {"MALLOC_TRIM_THRESHOLD_": 32 << 20, "MALLOC_MMAP_THRESHOLD_": 16 << 20}


def local_client(workers: int = 2, memory_limit: Any = "auto") -> distributed.Client:
    """A client with a cluster of its own on this machine: processes with as many threads as tasks
    that a worker runs at once. `memory_limit` of a worker: bytes, a text like "2GB", or "auto"
    for its share. Used as a context, it closes both. Only this machine can reach its pages; the
    dashboard among them needs bokeh."""
    here = "127.0.0.1:0"
    with dask.config.set({f"distributed.nanny.pre-spawn-environ.{name}": value
                          for name, value in _MALLOC.items()}):
        client = distributed.Client(n_workers=workers, threads_per_worker=IN_FLIGHT,
                                    memory_limit=memory_limit, host="127.0.0.1",
                                    dashboard_address=here, worker_dashboard_address=here)
    client.run(tasks.be_ready)
    return client


def has_dashboard() -> bool:
    """Whether Dask can show one here."""
    return importlib.util.find_spec("bokeh") is not None
