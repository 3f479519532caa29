# SPDX-License-Identifier: MIT
"""Reads picture and volume files without the program: with Pillow, tifffile, nibabel and pydicom,
NRRD and MetaImage with the few lines below. What a file does not plainly say raises."""
import gzip
import logging
import pathlib
import re
import threading
import warnings
import zlib
from typing import NamedTuple, Optional

import nibabel
import numpy as np
import PIL.Image
import PIL.ImageFile
import PIL.ImageOps
import pydicom
import tifffile
from pydicom.uid import ExplicitVRBigEndian, ExplicitVRLittleEndian, ImplicitVRLittleEndian

LPS = np.diag([-1.0, -1.0, 1.0])  # from right, anterior, superior; and back
# What GDCM's bindings decode, the program has from GDCM too: it comes last.
pydicom.config.settings.reading_validation_mode = pydicom.config.IGNORE
pydicom.config.pixel_data_handlers.sort(key=lambda handler: "gdcm" in handler.__name__)


class Image(NamedTuple):
    samples: np.ndarray  # [page, row, column, channel]
    origin: Optional[np.ndarray] = None  # of the first sample, in left, posterior, superior
    steps: Optional[np.ndarray] = None  # a column from sample to sample of each axis: x, y, z
    # Or "rescaled" by a slope; "high bytes", all that Pillow keeps; "greys are colours", in palettes.
    likeness: str = "exact"

    def same_samples(self, other):
        """Whether `other`, as the program wrote it, has these samples."""
        mine, theirs = self.samples, other.samples
        if self.likeness == "greys are colours" and mine.shape[:3] == theirs.shape[:3]:
            mine, theirs = np.broadcast_arrays(mine, theirs)
        if mine.shape != theirs.shape:
            return False
        if self.likeness == "high bytes":
            return theirs.dtype == "u2" and np.array_equal(mine, theirs >> 8)
        if self.likeness == "rescaled":
            return np.allclose(mine, theirs, rtol=1e-6, atol=1e-6 * np.abs(mine).max(initial=0))
        if mine.dtype.newbyteorder("=") != theirs.dtype.newbyteorder("="):
            return False
        return np.array_equal(mine, theirs, equal_nan=mine.dtype.kind == "f")

    def same_place(self, other):
        """Whether `other` lies in the same place, as far as both tell."""
        if self.origin is None or other.origin is None:
            return True
        axes = [a for a, extent in enumerate(self.samples.shape[2::-1]) if extent > 1]
        dimensions = min(len(self.origin), len(other.origin))
        mine, theirs = (
            np.column_stack([i.origin[:dimensions], i.steps[:dimensions, axes]])
            for i in (self, other))
        return np.allclose(mine, theirs, rtol=1e-4, atol=1e-4)


def in_pages(samples, channels=False):
    """[[page,] row, column[, channel]] as [page, row, column, channel]."""
    samples = samples if channels else samples[..., None]
    return samples[None] if samples.ndim == 3 else samples


def oriented(samples, orientation):
    """Exif's orientation, 1 to 8, undone; rows and columns are the second and third axis."""
    if orientation > 4:
        samples = samples.swapaxes(1, 2)
    if orientation in (3, 4, 7, 8):
        samples = samples[:, ::-1]
    if orientation in (2, 3, 6, 7):
        samples = samples[:, :, ::-1]
    return samples


PILLOW = threading.Lock()  # of its global options


def read_pillow(path, lenient=False):
    """`lenient` reads on where the data of a JPEG end before its last block is told to be done."""
    head = path.read_bytes()[:26]
    with PILLOW, PIL.Image.open(path) as image:
        PIL.ImageFile.LOAD_TRUNCATED_IMAGES = lenient
        image.load()
        deep = image.format == "PNG" and head[24] == 16
        image = PIL.ImageOps.exif_transpose(image)
        opaque = "transparency" not in image.info
        kind = {"1": "L", "P": "RGB" if opaque else "RGBA"}.get(image.mode, image.mode)
        if not opaque:
            kind = {"L": "LA", "RGB": "RGBA"}.get(kind, kind)
        samples = np.asarray(image if kind == image.mode else image.convert(kind))
    if deep and samples.ndim == 3:
        return Image(in_pages(samples, True), likeness="high bytes")
    return Image(in_pages(samples.astype("u2") if deep else samples, samples.ndim == 3),
                 likeness="greys are colours" if path.suffix == ".bmp" else "exact")


class Refusal(logging.Handler):
    """What tifffile logs of a page and goes on after is an error here; a tag need not count."""

    def emit(self, record):
        if "TiffTag" not in record.getMessage():
            raise ValueError(record.getMessage())


logging.getLogger("tifffile").handlers = [Refusal()]
logging.getLogger("tifffile").propagate = False


def read_tiff_page(page):
    samples, meaning = page.asarray(), page.photometric.name
    if page.axes[0] == "S":
        samples = np.moveaxis(samples, 0, -1)
    if samples.dtype == bool:
        samples = samples.astype("u1") * 255
    if meaning == "MINISWHITE":
        samples = ~samples
    if meaning == "PALETTE":
        samples = np.moveaxis(page.colormap[:, samples] >> 8, 0, -1).astype("u1")
    elif meaning not in ("MINISBLACK", "RGB", "MINISWHITE", "SEPARATED"):
        raise ValueError(meaning)
    orientation = page.tags.get(274)
    return oriented(in_pages(samples, samples.ndim == 3), orientation.value if orientation else 1)


def read_tiff(path):
    with tifffile.TiffFile(path) as file:
        pages = [read_tiff_page(page) for page in file.pages]
    if len({(page.shape, page.dtype) for page in pages}) != 1:
        raise ValueError("pages of several kinds")
    return Image(np.concatenate(pages))


def read_only_page(path):
    """With Pillow, which minds other damage than tifffile."""
    with tifffile.TiffFile(path) as file:
        if len(file.pages) != 1:
            raise ValueError("several pages")
    return read_pillow(path)


def read_nifti(path):
    image = nibabel.load(path)
    samples = np.asanyarray(image.dataobj)
    shape = samples.shape + (1,) * (4 - samples.ndim)
    if samples.dtype.fields:
        samples = np.stack([samples[name] for name in samples.dtype.names], -1)
    samples = samples.reshape(shape + (-1,))
    if samples.ndim != 5:
        raise ValueError(f"of shape {samples.shape}")
    # The volumes of a series one after the other.
    samples = samples.transpose(3, 2, 1, 0, 4)
    slope = getattr(image.dataobj, "slope", 1), getattr(image.dataobj, "inter", 0)
    likeness = "exact" if slope == (1, 0) else "rescaled"
    found = Image(samples.reshape((-1,) + samples.shape[2:]), likeness=likeness)
    if not image.header["sform_code"] and not image.header["qform_code"]:
        return found
    return placed(found, image.affine[:3, 3], image.affine[:3, :3], True)


def read_slice(path):
    data = pydicom.dcmread(path, force=True)
    if "TransferSyntaxUID" not in data.file_meta:
        data.file_meta.TransferSyntaxUID = (
            ImplicitVRLittleEndian if data.is_implicit_VR else
            ExplicitVRLittleEndian if data.is_little_endian else ExplicitVRBigEndian)
    samples = data.pixel_array
    slope, intercept = float(data.get("RescaleSlope", 1)), float(data.get("RescaleIntercept", 0))
    rescaled = (slope, intercept) != (1, 0)
    image = Image(in_pages(samples * slope + intercept if rescaled else samples,
                           data.SamplesPerPixel > 1),
                  likeness="rescaled" if rescaled else "exact")
    if "ImagePositionPatient" not in data or "ImageOrientationPatient" not in data:
        return image
    row, column = np.reshape(data.ImageOrientationPatient, (2, 3)).astype(float)
    spacing = [float(value) for value in data.PixelSpacing]
    steps = np.column_stack([row * spacing[1], column * spacing[0], np.cross(row, column)])
    return image._replace(origin=np.array(data.ImagePositionPatient, float), steps=steps)


def read_dicom(path):
    if not path.is_dir():
        return read_slice(path)
    slices = [read_slice(file) for file in sorted(path.iterdir())]
    normal = np.cross(*slices[0].steps[:, :2].T)
    slices.sort(key=lambda s: normal @ s.origin)
    steps = slices[0].steps.copy()
    if len(slices) > 1:
        steps[:, 2] = slices[1].origin - slices[0].origin
    return slices[0]._replace(samples=np.concatenate([s.samples for s in slices]), steps=steps,
                              likeness=max(s.likeness for s in slices))


def beside(path, name):
    """The file of data that a header names: one that lies in the folder of the header."""
    if pathlib.PurePath(name).name != name:
        raise ValueError(f"data elsewhere: {name}")
    return (path.parent / name).read_bytes()


def unpack(data, kind, sizes, encoding):
    """The samples, the fastest axis last; `sizes` has it first."""
    count = int(np.prod(sizes, dtype=object))
    data = {"raw": bytes, "gzip": lambda d: zlib.decompress(d, wbits=47)}[encoding](data)
    return np.frombuffer(data, kind, count).reshape(sizes[::-1])


NRRD_TYPES = dict(zip(
    ("signed char,int8,uchar,unsigned char,uint8,short,int16,ushort,unsigned short,uint16,int,int32,"
     "uint,unsigned int,uint32,long long,int64,unsigned long long,uint64,float,double").split(","),
    "i1 i1 u1 u1 u1 i2 i2 u2 u2 u2 i4 i4 u4 u4 u4 i8 i8 u8 u8 f4 f8".split()))


def read_nrrd(path):
    head, data = re.fullmatch(rb"(.*?)(?:\r?\n\r?\n(.*))?", path.read_bytes(), re.S).groups()
    lines = head.decode("latin-1").splitlines()
    if not lines[0].startswith("NRRD000"):
        raise ValueError("no NRRD")
    fields = dict(re.split(r": *", line.rstrip(), maxsplit=1) for line in lines[1:]
                  if line and line[0] != "#" and ":=" not in line)
    fields = {name.strip().lower(): value for name, value in fields.items()}
    sizes = [int(word) for word in fields["sizes"].split()]
    name = fields.get("data file", fields.get("datafile"))
    if len(sizes) != int(fields["dimension"]) or "line skip" in fields or "byte skip" in fields:
        raise ValueError("not plain")
    order = {"big": ">", "little": "<"}[fields.get("endian", "little").lower()]
    samples = unpack(beside(path, name) if name else data,
                     order + NRRD_TYPES[fields["type"].lower()], sizes,
                     {"gz": "gzip"}.get(fields["encoding"], fields["encoding"]))
    kinds = fields.get("kinds", "domain").split()
    vectors = kinds[0] not in ("domain", "space", "none", "???")
    image = Image(in_pages(samples, vectors))
    if "space directions" not in fields:
        return image
    steps = vectors_in(fields["space directions"])
    origin = vectors_in(fields["space origin"])[0] if "space origin" in fields else 0 * steps[0]
    return placed(image, origin, np.transpose(steps), "right" in fields.get("space", ""))


def vectors_in(text):
    """NRRD's (x,y,z) (x,y,z) ..."""
    return [np.array(vector.split(","), float) for vector in re.findall(r"\(([^)]*)\)", text)]


def placed(image, origin, steps, mirrored=False):
    origin, steps = np.array(origin, float), np.array(steps, float)
    mirror = LPS[:len(origin), :len(origin)] if mirrored else np.eye(len(origin))
    return image._replace(origin=mirror @ origin, steps=mirror @ steps)


META_TYPES = {"MET_CHAR": "i1", "MET_UCHAR": "u1", "MET_SHORT": "i2", "MET_USHORT": "u2",
              "MET_INT": "i4", "MET_UINT": "u4", "MET_LONG": "i4", "MET_ULONG": "u4",
              "MET_LONG_LONG": "i8", "MET_ULONG_LONG": "u8", "MET_FLOAT": "f4",
              "MET_DOUBLE": "f8"}


def read_meta(path):
    content, at, fields = path.read_bytes(), 0, {}
    while "ElementDataFile" not in fields:
        end = content.find(b"\n", at) + 1 or len(content)
        name, sign, value = content[at:end].decode("latin-1").partition("=")
        if not sign:
            raise ValueError("no MetaImage")
        fields[name.strip()], at = value.strip(), end
    name, sizes = fields["ElementDataFile"], [int(w) for w in fields["DimSize"].split()]
    channels = int(fields.get("ElementNumberOfChannels", 1))
    if len(sizes) != int(fields["NDims"]) or fields.get("HeaderSize", "0") != "0":
        raise ValueError("not plain")
    is_true = [fields.get(word, default)[:1] in "Tt1" for word, default in
               (("BinaryDataByteOrderMSB", "False"), ("ElementByteOrderMSB", "False"),
                ("CompressedData", "False"), ("BinaryData", "True"))]
    samples = unpack(content[at:] if name.upper() == "LOCAL" else beside(path, name),
                     "<>"[is_true[0] or is_true[1]] + META_TYPES[fields["ElementType"]],
                     [channels] * (channels > 1) + sizes,
                     "gzip" if is_true[2] else "raw" if is_true[3] else "text")
    image, count = Image(in_pages(samples, channels > 1)), len(sizes)
    if not fields.keys() & {"TransformMatrix", "Offset"}:
        return image

    def numbers(name, default):
        return np.array(fields[name].split() if name in fields else default, float)

    matrix = numbers("TransformMatrix", np.eye(count).ravel()).reshape(count, count)
    return placed(image, numbers("Offset", [0] * count),
                  matrix.T * numbers("ElementSpacing", [1] * count))


READERS = {".png": read_pillow, ".jpg": read_pillow, ".bmp": read_pillow, ".tif": read_tiff,
           ".nii": read_nifti, ".nii.gz": read_nifti, ".hdr": read_nifti, ".img": read_nifti,
           ".nrrd": read_nrrd, ".nhdr": read_nrrd, ".mha": read_meta, ".mhd": read_meta}


def suffix_of(path):
    suffix = "".join(path.suffixes[-2:]) if path.suffix == ".gz" else path.suffix
    return suffix.lower().replace("tiff", "tif").replace("jpeg", "jpg")


def read(path):
    """The file as Image; raises if it is damaged, or of a kind that no reader here knows."""
    path = pathlib.Path(path)
    with warnings.catch_warnings(), np.errstate(all="ignore"):
        warnings.simplefilter("ignore")
        return READERS.get(suffix_of(path), read_dicom)(path)


def readings(path):
    """What those readers make of it that can read it."""
    others = {".tif": read_only_page, ".jpg": lambda path: read_pillow(path, lenient=True)}
    found = []
    for reader in (read, others.get(suffix_of(path), read)):
        try:
            found.append(reader(path))
        except Exception:  # whatever they make of a damaged file
            continue
    return found
