# SPDX-License-Identifier: MIT
"""What can be filtered: a Zarr array of 2 or 3 dimensions, or an OME-Zarr group, whose finest
array is filtered and whose coarser ones are made anew."""
from __future__ import annotations

import dataclasses
import math
from typing import Any

import numcodecs
import numpy

from diffusefilt._samples import arithmetic_of
from diffusefilt.cluster.jobs import Level
from diffusefilt.cluster.plan import Shape
from diffusefilt.cluster.stores import Folder, read_json

LOSSLESS = ("blosc", "bz2", "gzip", "lz4", "lzma", "zlib", "zstd")  # compressors; filters may round


@dataclasses.dataclass(frozen=True)
class Source:
    """array, metadata: place and .zarray of what is filtered. spatial: number of its last axes
    that are filtered together. levels, documents: of the target, as a Job has them."""
    array: str
    metadata: dict[str, Any]
    spatial: int
    levels: tuple[Level, ...]
    documents: dict[str, Any]

    @property
    def shape(self) -> Shape:
        return tuple(self.metadata["shape"])

    @property
    def chunks(self) -> Shape:
        return tuple(self.metadata["chunks"])

    @property
    def dtype(self) -> "numpy.dtype[Any]":
        return numpy.dtype(self.metadata["dtype"])


def open_source(url: str) -> Source:
    """Errors: FileNotFoundError, TypeError, ValueError, all in one line."""
    folder = Folder(url)
    metadata = read_json(folder, ".zarray")
    if metadata is not None:
        _check(folder, metadata)
        if len(metadata["shape"]) not in (2, 3):
            raise ValueError(f"{folder} has {len(metadata['shape'])} dimensions, not 2 or 3; more "
                             "than that takes an OME-Zarr group, which tells what they are")
        return Source(str(folder), metadata, len(metadata["shape"]), (_level("", metadata),),
                      _documents(folder, [("", metadata)]))
    if read_json(folder, ".zgroup") is not None:
        return _open_group(folder, read_json(folder, ".zattrs") or {})
    raise FileNotFoundError(f"{folder} is no Zarr array or OME-Zarr group")


def _open_group(folder: Folder, attributes: dict[str, Any]) -> Source:
    multiscales = attributes.get("multiscales", [])
    if len(multiscales) != 1:
        raise ValueError(f"{folder} is a group with {len(multiscales)} multiscale images, not 1; "
                         "name the group of an image" + (", such as its 0" if
                                                         not multiscales else ""))
    image = multiscales[0]
    paths = [str(dataset["path"]).strip("/") for dataset in image["datasets"]]
    arrays = []
    for path in paths:
        metadata = read_json(folder.sub(path), ".zarray")
        if metadata is None:
            raise FileNotFoundError(f"{folder}/{path} is no Zarr array")
        _check(folder.sub(path), metadata)
        arrays.append((path, metadata))
    finest = arrays[0][1]
    spatial = _spatial_axes(folder, image, finest["shape"])
    for (path, metadata), (_, before) in zip(arrays[1:], arrays):
        shape, previous = metadata["shape"], before["shape"]
        if (len(shape) != len(previous) or any(n > p for n, p in zip(shape, previous))
                or shape[:-spatial] != previous[:-spatial]):
            raise ValueError(f"{folder}/{path} is no coarser copy of the array before it")
    if spatial == 3 and finest["shape"][-3] == 1:
        spatial = 2  # as the command line host takes a volume of one slice
    return Source(str(folder.sub(paths[0])), finest, spatial,
                  tuple(_level(path, metadata) for path, metadata in arrays),
                  _documents(folder, arrays))


def _spatial_axes(folder: Folder, image: dict[str, Any], shape: list[int]) -> int:
    """The number of axes in space, which are the last ones. Until version 0.2 there was but one
    order, in 0.3 axes were but names."""
    axes = image.get("axes", list("tczyx"))
    kinds = [axis.get("type") if isinstance(axis, dict) else
             "space" if axis in tuple("zyx") else axis for axis in axes]
    spatial = kinds.count("space")
    if len(kinds) != len(shape) or spatial not in (2, 3) or "space" in kinds[:-spatial]:
        raise ValueError(f"{folder} has the axes {axes} for an array of {len(shape)} dimensions; "
                         "the last 2 or 3, and no others, must be of the type space")
    return spatial


def _check(folder: Folder, metadata: dict[str, Any]) -> None:
    if metadata.get("zarr_format") != 2:
        raise ValueError(f"{folder} is of Zarr format {metadata.get('zarr_format')}, not 2")
    told = metadata["dtype"]
    dtype: "numpy.dtype[Any]" = numpy.dtype(told if isinstance(told, str) else "O")
    try:
        arithmetic_of(dtype.newbyteorder("="), None)
    except TypeError as error:
        raise TypeError(f"{folder} holds {told}: {error}") from None
    if math.prod(metadata["shape"]) == 0:
        raise ValueError(f"{folder} is empty")


def _level(path: str, source: dict[str, Any]) -> Level:
    """The same shape, type and chunks, and the compressor if that is known to lose nothing."""
    compressor = source["compressor"]
    if compressor is not None and compressor["id"] not in LOSSLESS:
        compressor = numcodecs.Blosc().get_config()
    fill = 0 if source["fill_value"] is None else source["fill_value"]
    return Level(path, {**source, "compressor": compressor, "filters": None, "fill_value": fill})


def _documents(folder: Folder, arrays: list[tuple[str, dict[str, Any]]]) -> dict[str, Any]:
    """The metadata of the target, that of the whole last."""
    documents: dict[str, Any] = {}
    for path, metadata in reversed(arrays):
        parts = path.split("/") if path else []
        place = folder.sub(path) if path else folder
        attributes = read_json(place, ".zattrs")
        if attributes is not None:
            documents["/".join([*parts, ".zattrs"])] = attributes
        documents["/".join([*parts, ".zarray"])] = _level(path, metadata).metadata
        for depth in range(len(parts)):
            group = folder.sub("/".join(parts[:depth])) if depth else folder
            for name in (".zattrs", ".zgroup"):
                document = read_json(group, name)
                if document is not None:
                    key = "/".join([*parts[:depth], name])
                    documents.pop(key, None)
                    documents[key] = document
    return documents
