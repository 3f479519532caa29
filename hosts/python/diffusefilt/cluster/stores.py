# SPDX-License-Identifier: MIT
"""Zarr arrays on any file system that fsspec opens.

An array that is being written has no metadata in its store, so nobody takes it for a whole one:
the metadata of all arrays of a job stand in the job (jobs.py) and are written last.
"""
from __future__ import annotations

import concurrent.futures
import contextlib
import json
import os
import shutil
import socket
import threading
import uuid
from typing import Any, Callable, Iterable, Iterator, Mapping, Optional, TypeVar

import fsspec
import zarr
from fsspec.implementations.local import LocalFileSystem
from numcodecs.compat import ensure_contiguous_ndarray

AT_ONCE = 16  # chunks that a task asks another machine for
PARTIAL = ".partial"  # a folder in a store: it holds the job of an unfinished one


Result = TypeVar("Result")


class MissingChunk(OSError):
    """A chunk that must be there is not."""


class _Traffic(threading.local):
    """Bytes of chunks that this thread has read and written."""
    read = 0
    written = 0


traffic = _Traffic()


class Folder:
    """A folder of a file system, or the common beginning of names in an object store."""

    def __init__(self, url: str, root: Optional[Folder] = None) -> None:
        self.fs, path = fsspec.core.url_to_fs(url)
        self.path = path.rstrip("/")
        self.local = isinstance(self.fs, LocalFileSystem)
        self.partial: str = root.partial if root else os.path.join(self.path, PARTIAL)

    def __str__(self) -> str:
        return str(self.path if self.local else self.fs.unstrip_protocol(self.path))

    def sub(self, name: str) -> Folder:
        return Folder(f"{self}/{name}", self)

    def read(self, name: str) -> bytes:
        """FileNotFoundError if it is not there."""
        if self.local:  # an fsspec file costs more than a small chunk
            with open(f"{self.path}/{name}", "rb") as file:
                return file.read()
        return bytes(self.fs.cat_file(f"{self.path}/{name}"))

    def write(self, name: str, data: Any) -> None:
        """Whole or not at all: local files get their name at the end, and in an object store
        that is so anyway."""
        path = f"{self.path}/{name}"
        if not self.local:
            self.fs.pipe_file(path, bytes(data))
            return
        # Only what make() made is made again here: a worker that was lost and goes on after the
        # end must not bring a folder back.
        pieces = os.path.join(self.partial, f"{socket.gethostname()}-{os.getpid()}")
        with contextlib.suppress(FileExistsError):
            os.mkdir(pieces)
        piece = os.path.join(pieces, uuid.uuid4().hex)
        with open(piece, "wb") as file:
            file.write(data)
        try:
            os.replace(piece, path)
        except FileNotFoundError:
            os.makedirs(os.path.dirname(path), exist_ok=True)
            os.replace(piece, path)

    def map(self, work: Callable[..., Result], *names: Iterable[Any]) -> list[Result]:
        """work(*names) of this folder for each of its names: at once where an answer is waited
        for longer than it is worked on."""
        if self.local:
            return list(map(work, *names))
        with concurrent.futures.ThreadPoolExecutor(AT_ONCE) as pool:
            return list(pool.map(work, *names))

    def exists(self, name: str) -> bool:
        if self.local:
            return os.path.lexists(f"{self.path}/{name}")
        return bool(self.fs.exists(f"{self.path}/{name}"))

    def delete(self, name: str) -> None:
        """Nothing if it is not there."""
        try:
            if self.local:
                os.remove(f"{self.path}/{name}")
            else:
                self.fs.rm_file(f"{self.path}/{name}")
        except FileNotFoundError:
            pass

    def taken(self) -> bool:
        """Whether anything but an empty folder has this name."""
        if self.local:
            return os.path.lexists(self.path) and not (os.path.isdir(self.path) and
                                                       not os.listdir(self.path))
        self.fs.invalidate_cache()
        try:
            return bool(self.fs.ls(self.path))
        except FileNotFoundError:
            return False

    def make(self) -> None:
        """Before the first write. The folder above a local one must be there."""
        if self.local:
            for path in self.path, self.partial:
                with contextlib.suppress(FileExistsError):
                    os.mkdir(path)

    def remove(self) -> None:
        """With all that is in it. Errors pass: a worker that was lost may still write."""
        if self.local:
            shutil.rmtree(self.path, ignore_errors=True)
        else:
            with contextlib.suppress(FileNotFoundError):
                self.fs.rm(self.path, recursive=True)

    def remove_partial(self) -> None:
        """What killed workers left of local files that they were writing, then what make() made
        for such files, unless the job is still there."""
        if self.local:
            with contextlib.suppress(OSError):
                for entry in os.scandir(self.partial):
                    if entry.is_dir():
                        shutil.rmtree(entry.path, ignore_errors=True)
                os.rmdir(self.partial)


class ChunkStore(zarr.storage.Store):
    """The chunks of one array, with its metadata from elsewhere. For mode "r" an absent chunk is
    an error; for "fill" Zarr takes it for the fill value; for "w" all are absent, since whole ones
    are written, and Zarr would read those that reach beyond the end of the array."""

    def __init__(self, folder: Folder, metadata: Mapping[str, Any], mode: str) -> None:
        self.folder, self.mode = folder, mode
        self.separator = metadata.get("dimension_separator", ".")
        self._metadata = json.dumps(metadata).encode()

    def __getitem__(self, key: str) -> bytes:
        if key == ".zarray":
            return self._metadata
        if key.startswith(".") or self.mode == "w":
            raise KeyError(key)
        data = self._read(key)
        if data is None:
            raise KeyError(key)
        traffic.read += len(data)
        return data

    def _read(self, key: str) -> Optional[bytes]:
        try:
            return self.folder.read(key)
        except FileNotFoundError:
            if self.mode == "r":
                raise MissingChunk(f"{self.folder}/{key} is missing") from None
            return None

    def __setitem__(self, key: str, value: Any) -> None:
        data = memoryview(ensure_contiguous_ndarray(value)).cast("B")
        self.folder.write(key, data)
        traffic.written += len(data)

    def __delitem__(self, key: str) -> None:
        self.folder.delete(key)

    def __contains__(self, key: object) -> bool:
        return key == ".zarray" or self.folder.exists(str(key))

    def __iter__(self) -> Iterator[str]:
        raise NotImplementedError("chunks are not listed: there may be too many")

    def __len__(self) -> int:
        raise NotImplementedError("chunks are not counted: there may be too many")


class _RemoteChunkStore(ChunkStore):
    """Zarr hands over all chunks of a selection to a store with these two."""

    def getitems(self, keys: list[str], **_: Any) -> dict[str, bytes]:
        found = dict(zip(keys, self.folder.map(self._read, keys)))
        chunks = {key: data for key, data in found.items() if data is not None}
        traffic.read += sum(map(len, chunks.values()))
        return chunks

    def setitems(self, values: Mapping[str, Any]) -> None:
        data = [memoryview(ensure_contiguous_ndarray(v)).cast("B") for v in values.values()]
        self.folder.map(self.folder.write, values, data)
        traffic.written += sum(map(len, data))


def open_array(folder: Folder, metadata: Mapping[str, Any], mode: str = "r") -> zarr.Array:
    """mode: of a ChunkStore. Without a fill value no chunk may be absent."""
    if mode == "fill" and metadata["fill_value"] is None:
        mode = "r"
    store = ChunkStore if folder.local else _RemoteChunkStore
    return zarr.Array(store(folder, metadata, mode), write_empty_chunks=True)


def read_json(folder: Folder, name: str) -> Optional[dict[str, Any]]:
    """None if it is not there. ValueError if it is not JSON."""
    try:
        content: dict[str, Any] = json.loads(folder.read(name))
        return content
    except (FileNotFoundError, NotADirectoryError):
        return None
    except ValueError as error:
        raise ValueError(f"{folder}/{name} is not JSON: {error}") from None


def write_json(folder: Folder, name: str, content: Any) -> None:
    folder.write(name, json.dumps(content, indent=4).encode())
