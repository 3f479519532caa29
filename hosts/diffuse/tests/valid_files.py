# SPDX-License-Identifier: MIT
"""Small valid files of every format and kind of samples that the program reads."""
import gzip
import io
import tempfile
import pathlib
from typing import NamedTuple

import nibabel
import numpy as np
import PIL.Image
import pydicom
import pydicom.encaps
import tifffile
from pydicom.pixel_data_handlers.rle_handler import rle_encode_frame
from pydicom.uid import ExplicitVRLittleEndian, RLELossless, generate_uid


class Valid(NamedTuple):
    name: str
    given: str  # the file, or folder, that the program is given
    files: dict  # bytes of each


def noise(*shape, kind="u1"):
    """Over the whole range of an integer type."""
    random = np.random.default_rng(len(shape) + shape[0])
    lowest, highest = (np.iinfo(kind).min, np.iinfo(kind).max) if np.dtype(kind).kind in "iu" \
        else (-1000, 1000)
    return random.uniform(lowest, highest, shape).astype(kind)


def saved(write, suffix):
    """The bytes of the files that write(path) makes."""
    with tempfile.TemporaryDirectory() as folder:
        write(pathlib.Path(folder, "a" + suffix))
        return {path.name: path.read_bytes() for path in sorted(pathlib.Path(folder).iterdir())}


def pictures():
    colours = PIL.Image.fromarray(noise(20, 30, 3))
    grey = colours.convert("L")
    exif = PIL.Image.Exif()
    exif[274] = 6  # its top is at the right
    for name, suffix, image, options in (
            ("png tiny", ".png", PIL.Image.fromarray(noise(3, 4)), {}),
            ("png 16", ".png", PIL.Image.fromarray(noise(9, 7, kind="u2")), {}),
            ("png alpha", ".png", PIL.Image.fromarray(noise(20, 30, 4)), {}),
            ("png grey alpha", ".png", grey.convert("LA"), {}),
            ("png palette", ".png", colours.quantize(16), {}),
            ("png bit", ".png", grey.convert("1"), {}),
            ("jpg tiny", ".jpg", grey.crop((0, 0, 8, 8)), {}),
            ("jpg", ".jpg", colours, {"quality": 80}),
            ("jpg progressive", ".jpg", colours, {"progressive": True, "comment": b"words"}),
            ("jpg on its side", ".jpg", colours, {"exif": exif.tobytes()}),
            ("bmp tiny", ".bmp", colours.crop((0, 0, 5, 3)), {}),
            ("bmp rgb", ".bmp", colours, {}),
            ("bmp grey", ".bmp", grey, {}),
            ("bmp palette", ".bmp", colours.quantize(16), {})):
        yield name, suffix, saved(lambda path: image.save(path, **options), suffix)["a" + suffix]


# Name, samples and options of tifffile.
TIFFS = (
    ("tiny", noise(3, 4), {}),
    ("strips", noise(33, 20, kind="u2"), {"rowsperstrip": 5}),
    ("signed", noise(33, 20, kind="i1"), {}),
    ("big endian", noise(33, 20, kind="u4"), {"byteorder": ">"}),
    ("rgba", noise(33, 20, 4, kind="u2"), {"photometric": "rgb", "extrasamples": ["unassalpha"]}),
    ("planes", noise(3, 33, 20), {"photometric": "rgb", "planarconfig": "separate"}),
    ("tiles", noise(3, 33, 40, kind="u2"), {"tile": (16, 16)}),
    ("tiles rgb", noise(33, 40, 3), {"tile": (16, 16), "photometric": "rgb"}),
    ("tiles float", noise(33, 40, kind="f4"), {"tile": (16, 16)}),
    ("pages", noise(4, 21, 20), {}),
    ("pages rgb", noise(4, 21, 20, 3), {"photometric": "rgb"}),
    ("two channels", noise(33, 20, 2, kind="f4"), {"planarconfig": "contig"}),
    ("five channels", noise(33, 20, 5), {"planarconfig": "contig"}),
    ("bits", noise(33, 20) > 99, {}),
    ("pages of bits", noise(4, 21, 20) > 99, {}),
    ("white is zero", noise(33, 20), {"photometric": "miniswhite"}),
    ("palette", noise(33, 20), {"photometric": "palette",
                                "colormap": noise(3, 256, kind="u2") // 256 * 257}),
    ("deflate", noise(33, 20, kind="i2"), {"compression": "zlib"}),
    ("deflated tiles", noise(33, 40, kind="i4"), {"compression": "zlib", "tile": (16, 16)}),
    ("pyramid", noise(33, 40, kind="u2"), {"subifds": 1, "tile": (16, 16)}),
    ("big", noise(33, 20, kind="f4"), {"bigtiff": True}),
)


def tiff(samples, options):
    def write(path):
        with tifffile.TiffWriter(path, bigtiff="bigtiff" in options,
                                 byteorder=options.get("byteorder")) as file:
            file.write(samples, **how)
            if how.pop("subifds", 0):
                file.write(samples[::2, ::2], subfiletype=1, **how)

    how = {"photometric": "minisblack", "metadata": None, "software": False, **options}
    how = {name: value for name, value in how.items() if name not in ("bigtiff", "byteorder")}
    return saved(write, ".tif")["a.tif"]


TURNED = np.array([[-2, 0, 0, 10], [0, 1.2, 1.8, -20], [0, -0.9, 2.4, 30], [0, 0, 0, 1.0]])


def niftis():
    for name, suffix, samples in (
            ("nii tiny", ".nii", noise(3, 2, 1)),
            ("nii float", ".nii", noise(5, 4, 3, kind="f4")),
            ("nii big endian", ".nii", noise(5, 4, 3, kind=">i2")),
            ("nii.gz", ".nii.gz", noise(5, 4, 3, kind="u2"))):
        header = nibabel.Nifti1Header(endianness=">" if samples.dtype.byteorder == ">" else "<")
        header.set_data_dtype(samples.dtype)
        files = saved(nibabel.Nifti1Image(samples, TURNED, header).to_filename, suffix)
        yield Valid(name, "a" + suffix, files)


def nrrds():
    samples = noise(3, 4, 5, kind="<i2")
    raw = samples.tobytes()
    place = ("space: left-posterior-superior\nspace directions: (2,0,0) (0,1.5,0.5) (0,-0.5,3)\n"
             "space origin: (1,-2,3)\n")

    def head(encoding, more="", kind="int16", sizes="5 4 3", dimension=3):
        return (f"NRRD0004\ntype: {kind}\ndimension: {dimension}\nsizes: {sizes}\n"
                f"endian: little\nencoding: {encoding}\n{more}").encode()

    for name, files in (
            ("nrrd tiny", {"a.nrrd": head("raw", kind="uint8", sizes="3 2", dimension=2) + b"\n123456"}),
            ("nrrd", {"a.nrrd": head("raw", place) + b"\n" + raw}),
            ("nrrd gzip", {"a.nrrd": head("gzip", place) + b"\n" + gzip.compress(raw, mtime=0)}),
            ("nrrd rgb", {"a.nrrd": head("raw", "kinds: RGB-color domain domain\n", "uint8",
                                         "3 5 4") + b"\n" + noise(4, 5, 3).tobytes()}),
            ("nrrd apart", {"a.nhdr": head("raw", place + "data file: a.raw\n"), "a.raw": raw})):
        yield Valid(name, min(files), files)


def metas():
    samples = noise(3, 4, 5, kind="<i2")
    raw = samples.tobytes()

    def head(file, more="", kind="MET_SHORT", sizes="5 4 3", count=3):
        return (f"ObjectType = Image\nNDims = {count}\nBinaryData = True\n"
                f"BinaryDataByteOrderMSB = False\n{more}DimSize = {sizes}\nElementType = {kind}\n"
                f"ElementDataFile = {file}\n").encode()

    place = ("TransformMatrix = 1 0 0 0 0.8 0.6 0 -0.6 0.8\nOffset = 1 -2 3\n"
             "ElementSpacing = 2 1.5 3\n")
    for name, files in (
            ("mha tiny", {"a.mha": head("LOCAL", "", "MET_UCHAR", "3 2", 2) + b"123456"}),
            ("mha", {"a.mha": head("LOCAL", place) + raw}),
            ("mha rgb", {"a.mha": head("LOCAL", "ElementNumberOfChannels = 3\n", "MET_UCHAR",
                                       "5 4", 2) + noise(4, 5, 3).tobytes()}),
            ("mhd", {"a.mhd": head("a.raw", place), "a.raw": raw})):
        yield Valid(name, min(files), files)


def dicom(samples, position=0, packed=False, **more):
    """A slice of MR."""
    series, study, own = (generate_uid(entropy_srcs=[word]) for word in ("a", "b", str(position)))
    bits = samples.dtype.itemsize * 8
    data = pydicom.Dataset()
    for name, value in {
            "SOPClassUID": "1.2.840.10008.5.1.4.1.1.4", "SOPInstanceUID": own, "SeriesInstanceUID": series,
            "StudyInstanceUID": study, "Modality": "MR", "PatientID": "1",
            "InstanceNumber": position + 1, "ImageOrientationPatient": [1, 0, 0, 0, 0.8, 0.6],
            "ImagePositionPatient": [1, 2 - 1.8 * position, 3 + 2.4 * position],
            "PixelSpacing": [2, 1.5], "SpacingBetweenSlices": 3, "PlanarConfiguration": 0,
            "SamplesPerPixel": samples.shape[2] if samples.ndim == 3 else 1,
            "PhotometricInterpretation": "RGB" if samples.ndim == 3 else "MONOCHROME2",
            "Rows": samples.shape[0], "Columns": samples.shape[1],
            "BitsAllocated": bits, "BitsStored": bits, "HighBit": bits - 1,
            "PixelRepresentation": int(samples.dtype.kind == "i"),
            "PixelData": pydicom.encaps.encapsulate([rle_encode_frame(samples)]) if packed
            else samples.tobytes() + b"\0" * (samples.nbytes % 2), **more}.items():
        setattr(data, name, value)
    data["PixelData"].is_undefined_length = packed
    data.is_little_endian, data.is_implicit_VR = True, False
    data.file_meta = pydicom.dataset.FileMetaDataset()
    data.file_meta.TransferSyntaxUID = RLELossless if packed else ExplicitVRLittleEndian
    file = io.BytesIO()
    pydicom.dcmwrite(file, data, write_like_original=False)
    return file.getvalue()


def dicoms():
    for name, content in (
            ("dcm tiny", dicom(noise(3, 4))),
            ("dcm", dicom(noise(9, 8, kind="i2"))),
            ("dcm rescaled", dicom(noise(9, 8, kind="u2"), RescaleSlope=2, RescaleIntercept=-1024)),
            ("dcm rgb", dicom(noise(9, 8, 3))),
            ("dcm packed", dicom(noise(16, 8), packed=True))):
        yield Valid(name, "a.dcm", {"a.dcm": content})
    slices = noise(3, 9, 8, kind="i2")
    yield Valid("dcm series", "series", {f"series/{i}.dcm": dicom(slices[i], i) for i in range(3)})


def valid_files():
    files = [Valid(name, "a" + suffix, {"a" + suffix: content})
             for name, suffix, content in pictures()]
    files += [Valid("tif " + name, "a.tif", {"a.tif": tiff(samples, options)})
              for name, samples, options in TIFFS]
    return [*files, *niftis(), *nrrds(), *metas(), *dicoms()]
