# SPDX-License-Identifier: MIT
"""The shared object below diffusefilt: where it is found, its records, calls and error handler,
and which of its instruction sets this processor can run. Hosts import diffusefilt."""
from __future__ import annotations

import atexit
import ctypes
import itertools
import os
import pathlib
import sysconfig
import threading
import warnings
from typing import Any, Optional

from diffusefilt import _threads
from diffusefilt._axes import FEATURES, INSTRUCTION_SETS

FILE_NAME = "libdiffusefilt_halide.so"


class Error(RuntimeError):
    """A call that the library refused: the `pipeline`, its negative `status` and the `words` with
    which it did so, empty where another error handler of the process received them."""

    def __init__(self, pipeline: str, status: int, words: str) -> None:
        super().__init__(pipeline, status, words)
        self.pipeline, self.status, self.words = pipeline, status, words

    def __str__(self) -> str:
        line = f"{self.pipeline} failed with status {self.status}"
        return f"{line}: {self.words}" if self.words else line


class halide_type_t(ctypes.Structure):
    """As in HalideRuntime.h."""
    _fields_ = [("code", ctypes.c_uint8), ("bits", ctypes.c_uint8), ("lanes", ctypes.c_uint16)]


class halide_dimension_t(ctypes.Structure):
    """As in HalideRuntime.h."""
    _fields_ = [("min", ctypes.c_int32), ("extent", ctypes.c_int32), ("stride", ctypes.c_int32),
                ("flags", ctypes.c_uint32)]


class halide_buffer_t(ctypes.Structure):
    """As in HalideRuntime.h."""
    _fields_ = [("device", ctypes.c_uint64), ("device_interface", ctypes.c_void_p),
                ("host", ctypes.c_void_p), ("flags", ctypes.c_uint64), ("type", halide_type_t),
                ("dimensions", ctypes.c_int32), ("dim", ctypes.POINTER(halide_dimension_t)),
                ("padding", ctypes.c_void_p)]


BufferPointer = ctypes.POINTER(halide_buffer_t)


def candidates(file_name: str) -> list[pathlib.Path]:
    """Where a shared object of this package may stand, the first that exists counts."""
    here = pathlib.Path(__file__).resolve().parent
    folders = [here]
    top = here.parent.parent.parent  # the root of the file system, where that is nearer
    if top.name == "lib":  # PREFIX/lib/python3/dist-packages/diffusefilt
        folders += [top, top / (sysconfig.get_config_var("MULTIARCH") or "."), top.parent / "lib64"]
    if here.parts[-3:] == ("hosts", "python", "diffusefilt"):
        folders += [top / "build" / preset for preset in ("release", "bench", "package", "debug")]
    return [folder / file_name for folder in folders]


def _load() -> tuple[str, ctypes.CDLL]:
    chosen = os.environ.get("DIFFUSEFILT_LIBRARY")
    path = chosen or str(next((f for f in candidates(FILE_NAME) if f.is_file()), FILE_NAME))
    try:
        return path, ctypes.CDLL(path)
    except OSError as error:
        hint = "" if chosen else f"; DIFFUSEFILT_LIBRARY may hold the path of {FILE_NAME}"
        raise ImportError(f"diffusefilt cannot load its library: {error}{hint}") from None


#: Path or name under which the library was loaded.
LIBRARY, _library = _load()

# One error handler serves the whole process. This one keeps the words of a call made here for the
# thread that makes it, and passes those of any other call on to the handler found.
_Handler = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.c_char_p)
_call = threading.local()


def _receive_words(user_context: Any, message: bytes) -> None:
    if getattr(_call, "words", None) is None:
        _handler_found(user_context, message)
    else:
        _call.words = message.decode(errors="replace")


_library.halide_set_error_handler.argtypes = [_Handler]
_library.halide_set_error_handler.restype = _Handler
_handler = _Handler(_receive_words)  # lives as long as the library may call it
_handler_found = _library.halide_set_error_handler(_handler)
# A process that embeds the interpreter may outlive it.
atexit.register(_library.halide_set_error_handler, _handler_found)


_entries: dict[str, Any] = {}
_first_call = threading.Lock()


def call(pipeline: str, image: halide_buffer_t, threshold: float, out: halide_buffer_t) -> None:
    """Calls an exported pipeline, without the interpreter's lock. Error if it returns not 0."""
    entry = _entries.get(pipeline) or _entry(pipeline)
    _call.words = ""
    try:
        status = entry(image, threshold, out)
        if status != 0:
            raise Error(pipeline, status, _call.words)
    finally:
        _call.words = None


def _entry(pipeline: str) -> Any:
    with _first_call:
        if not _entries:
            _require_threads()
        entry = getattr(_library, pipeline)
        entry.argtypes = [BufferPointer, ctypes.c_double, BufferPointer]
        entry.restype = ctypes.c_int
        return _entries.setdefault(pipeline, entry)


def address(pipeline: str) -> Any:
    """Of an exported pipeline, for code in C that calls it."""
    return ctypes.cast(_entries.get(pipeline) or _entry(pipeline), ctypes.c_void_p)


def _require_threads() -> None:
    """One thread, and a RuntimeWarning, where the system refuses the library its others: the
    loop of the runtime's own pool, which starts none for one."""
    reason = _threads.refusal()
    if reason is None:
        return
    _library.halide_set_num_threads(1)
    _library.halide_set_custom_do_par_for.argtypes = [ctypes.c_void_p]
    _library.halide_set_custom_do_par_for.restype = ctypes.c_void_p
    _library.halide_set_custom_do_par_for(
        ctypes.cast(_library.halide_default_do_par_for, ctypes.c_void_p))
    warnings.warn(f"diffusefilt runs on one thread, the system refuses it others: {reason}",
                  RuntimeWarning, stacklevel=2)


def best_instruction_set(cpuinfo: Optional[str] = None) -> str:
    """The highest instruction set that this processor and its operating system can run; or the processor that `cpuinfo` describes, in the form of /proc/cpuinfo."""
    if cpuinfo is None:
        cpuinfo = pathlib.Path("/proc/cpuinfo").read_text()
    # The kernel lists avx, and what builds on it, only where it keeps the AVX state.
    lines = (line.split() for line in cpuinfo.splitlines() if line.startswith("flags"))
    flags = set(next(lines, []))
    possible = itertools.takewhile(lambda each: FEATURES[each] <= flags, INSTRUCTION_SETS)
    return str([*possible][-1])


_best = best_instruction_set()


def resolve_instruction_set(instruction_set: str) -> str:
    """Turns "auto" into the best instruction set, and any other into itself. ValueError for one
    that does not exist or that this processor cannot run."""
    if instruction_set == "auto":
        return _best
    require_one_of("instruction_set", instruction_set, ("auto", *INSTRUCTION_SETS))
    if INSTRUCTION_SETS.index(instruction_set) > INSTRUCTION_SETS.index(_best):
        raise ValueError(f"this processor or its operating system cannot run the {instruction_set}"
                         " pipelines, instruction_set 'auto' finds those that it can")
    return instruction_set


def require_one_of(parameter: str, value: str, known: tuple[str, ...]) -> None:
    """ValueError in one line if `value` is not among those `known`."""
    if value not in known:
        raise ValueError(f"{parameter} must be one of {', '.join(known)}, not {value!r}")
