# SPDX-License-Identifier: MIT
"""Whether the threads of the library's loop can be started here. TBB ends the process where the
system refuses it a thread, so this is tried out before the first call."""
from __future__ import annotations

import mmap
import os
import threading
from typing import Optional

STACK = 4 << 20  # bytes, of a worker of TBB
ALLOCATED = 16 << 20  # more than the caller, or a worker, allocates at its start


def refusal() -> Optional[str]:
    """Why the system does not let this process have as many threads as it may use processors;
    None if it does."""
    end = threading.Event()
    held: list[threading.Thread] = []
    memory: list[mmap.mmap] = []
    stack_size = threading.stack_size(STACK)
    try:
        memory.append(mmap.mmap(-1, ALLOCATED))
        for _ in range(len(os.sched_getaffinity(0)) - 1):
            # A thread that finds no memory for its first steps would never say that it runs.
            mmap.mmap(-1, STACK + 2 * ALLOCATED).close()
            thread = threading.Thread(target=end.wait)
            thread.start()
            held.append(thread)
            memory.append(mmap.mmap(-1, ALLOCATED))
    except (RuntimeError, MemoryError, OSError) as error:
        return str(error) or type(error).__name__
    finally:
        threading.stack_size(stack_size)
        end.set()
        for thread in held:
            thread.join()
        for block in memory:
            block.close()
    return None
