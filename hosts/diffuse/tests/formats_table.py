#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Gives the program a valid file of every kind, which it has to read and to write again as every
format that can hold it, and files that it has to refuse in certain words; compares the tables of
both with docs/formats.md.

    formats_table.py PROGRAM [--write-docs]
"""
import concurrent.futures
import os
import pathlib
import re
import sys
import tempfile

import nibabel
import numpy as np
import PIL.Image
import tifffile

import program
import readers
from valid_files import TURNED, dicom, noise, saved, tiff, valid_files

DOCS = pathlib.Path(__file__).parents[3] / "docs/formats.md"
OUTPUTS = (".png", ".tif", ".nii", ".nii.gz", ".nrrd", ".mha")


def nifti(change=None, samples=noise(5, 4, 3), kind=nibabel.Nifti1Image, suffix=".nii"):
    image = kind(samples, TURNED)
    if change:
        change(image.header)
    return saved(image.to_filename, suffix)


def text(suffix, head, data=b"123456"):
    return {"a" + suffix: head.encode() + data}


def nrrd(more, kind="uint8", end="\n"):
    return text(".nrrd", f"NRRD0004\ntype: {kind}\ndimension: 2\nsizes: 3 2\nendian: little\n"
                         f"{more}{end}")


def meta(more, file="LOCAL"):
    return text(".mha", "NDims = 2\nDimSize = 3 2\nElementType = MET_UCHAR\n"
                        f"{more}ElementDataFile = {file}\n")


def series(changes, **others):
    """Three slices; `changes` are those of the last."""
    slices = noise(3, 9, 8, kind="i2")
    files = [dicom(slices[i], i, **(changes if i == 2 else {})) for i in range(3)]
    return {**{f"series/{i}.dcm": file for i, file in enumerate(files)}, **others}


def picture(mode, suffix, **options):
    image = PIL.Image.fromarray(noise(20, 30, 3)).convert(mode)
    return saved(lambda path: image.save(path, **options), suffix)


def two_pages(path):
    with tifffile.TiffWriter(path) as file:
        for shape in ((33, 20), (20, 33)):
            file.write(noise(*shape), photometric="minisblack", metadata=None)


# What is refused, and words of the refusal.
REFUSED = (
    ("PNG, an animation", picture("L", ".png", save_all=True, append_images=[
        PIL.Image.fromarray(noise(20, 30))]), "an animation"),
    ("JPEG of inks", picture("CMYK", ".jpg"), "its pixels are inks"),
    ("BMP of 1 bit", picture("1", ".bmp"), "not of 8 or 24 bits"),
    ("TIFF, pages of two sizes", saved(two_pages, ".tif"), "page 2 is not like the first"),
    ("TIFF of 64 bits", {"a.tif": tiff(noise(9, 8, kind="f8"), {})}, "64 bits"),
    ("TIFF, colours times opacity", {"a.tif": tiff(noise(9, 8, 4), {
        "photometric": "rgb", "extrasamples": ["assocalpha"]})}, "multiplied by their opacity"),
    ("TIFF, planes that are no colours", {"a.tif": tiff(noise(5, 9, 8), {
        "planarconfig": "separate"})}, "stand in planes and are no colours"),
    ("NIfTI in two files", nifti(kind=nibabel.Nifti1Pair, suffix=".hdr"), "read in one file"),
    ("NIfTI of five dimensions", nifti(samples=noise(5, 4, 3, 2, 2)), "5 dimensions"),
    ("NIfTI in metres", nifti(lambda h: h.set_xyzt_units("meter")), "not in mm"),
    ("NIfTI with an extension", nifti(lambda h: h.extensions.append(
        nibabel.nifti1.Nifti1Extension("comment", b"words"))), "its header has extensions"),
    ("NIfTI with NaN in its samples", nifti(samples=np.full((2, 2, 2), np.nan, "f4")),
     "infinite or no numbers"),
    ("NRRD as text", nrrd("encoding: ascii\n"), "its encoding is 'ascii'"),
    ("NRRD with other fields", nrrd("encoding: raw\nthicknesses: 1 1\n"), "which would be lost"),
    ("NRRD in micrometres", nrrd('encoding: raw\nspace units: "um" "um"\n'), "not in mm"),
    ("NRRD of complex numbers", nrrd("encoding: raw\nkinds: complex domain\n"), "but complex"),
    ("NRRD with a place that spans nothing", nrrd(
        "encoding: raw\nspace dimension: 2\nspace directions: (1,0) (1,0)\n"), "makes no sense"),
    ("NRRD, data of another folder", nrrd("encoding: raw\ndata file: ../a.raw\n"),
     "outside its folder"),
    ("MetaImage, packed", meta("CompressedData = True\n"), "its compresseddata is 'True'"),
    ("MetaImage as text", meta("BinaryData = False\n"), "its binarydata is 'False'"),
    ("MetaImage with other fields", meta("Comment = words\n"), "which would be lost"),
    ("MetaImage, a field twice", meta("NDims = 2\n"), "twice"),
    ("MetaImage, data of another folder", meta("", "/etc/passwd"), "outside its folder"),
    ("DICOM, greys from white to black", {"a.dcm": dicom(
        noise(9, 8), PhotometricInterpretation="MONOCHROME1")}, "its colours are 'MONOCHROME1'"),
    ("DICOM of several frames", {"a.dcm": dicom(noise(9, 8), NumberOfFrames=2)}, "several frames"),
    ("DICOM, colours in planes", {"a.dcm": dicom(noise(9, 8, 3), PlanarConfiguration=1)},
     "its colours stand in planes"),
    ("DICOM, a dose", {"a.dcm": dicom(
        noise(9, 8), SOPClassUID="1.2.840.10008.5.1.4.1.1.481.2")}, "a dose"),
    ("DICOM series with a gap", series({"ImagePositionPatient": [1, -7.0, 15.0]}), "missing"),
    ("DICOM, two slices in one place", series({"ImagePositionPatient": [1, 2.0, 3.0]}),
     "stand in the same place"),
    ("DICOM, a tilted gantry", series({"ImagePositionPatient": [1, -0.8, 8.4]}), "tilted gantry"),
    ("DICOM, two series", series({"SeriesInstanceUID": "1.2.3"}), "another series"),
    ("DICOM, two spacings", series({"PixelSpacing": [2, 2]}), "another spacing or direction"),
    ("DICOM, two scales", series({"RescaleSlope": 2}), "another type or scale"),
    ("DICOM series with another file", series({}, **{"series/a.txt": b"words"}),
     "a.txt is no DICOM file"),
    ("DICOM series with a cut slice", series({}, **{"series/9.dcm": dicom(noise(9, 8))[:-9]}),
     "9.dcm: the file ends too early"),
)


def given_of(files):
    return min(pathlib.PurePath(name).parts[0] for name in files)


def run(path, folder, given, output):
    before = program.contents(folder)
    ran = program.run(path, [given, "--volume", "-n", "0", "-o", output], folder)
    return ran, program.broken_promise(ran, folder, before, output)


def row_of_valid(path, valid):
    """The formats that it is written as and comes back equal from; raises for any fault."""
    held = []
    for suffix in OUTPUTS:
        with tempfile.TemporaryDirectory() as name:
            folder = pathlib.Path(name)
            put(folder, valid.files)
            ran, fault = run(path, folder, valid.given, "out" + suffix)
            assert not fault, f"{valid.name}: {fault}"
            if ran.status:
                assert " holds no " in ran.complaint, f"{valid.name}: {ran}"
                continue
            whole, written = (readers.read(folder / n) for n in (valid.given, "out" + suffix))
            same = whole.same_samples(written) or written.same_samples(whole)
            assert same, f"{valid.name}: other samples in out{suffix}"
            assert whole.same_place(written), f"{valid.name}: another place in out{suffix}"
            held.append(suffix)
    assert held, "held by no format"
    return f"| {valid.name} | {' '.join(held)} |"


def row_of_refused(path, refused):
    kind, files, words = refused
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        put(folder, files)
        ran, fault = run(path, folder, given_of(files), "out.nrrd")
    assert not fault, fault
    assert ran.status == 1 and words in ran.complaint, f"{kind}: {ran}"
    return f"| {kind} | {ran.complaint.strip().removeprefix('diffuse: ')} |"


def put(folder, files):
    for name, content in files.items():
        folder.joinpath(name).parent.mkdir(exist_ok=True)
        folder.joinpath(name).write_bytes(content)


def main():
    path = os.path.abspath(sys.argv[1])
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        held = list(pool.map(lambda valid: row_of_valid(path, valid), valid_files()))
        refused = list(pool.map(lambda row: row_of_refused(path, row), REFUSED))
    table = "\n".join(["| file | comes back equal from |", "|---|---|", *held, "",
                       "| refused | in the words |", "|---|---|", *refused, ""])
    before = DOCS.read_text(encoding="utf-8")
    after = re.sub(r"(?s)(<!-- tables, .*?-->\n).*?(<!-- end of tables -->)",
                   lambda found: found[1] + table + found[2], before)
    if "--write-docs" in sys.argv:
        DOCS.write_text(after, encoding="utf-8")
    elif after != before:
        sys.exit("docs/formats.md has other tables: write them with --write-docs")
    print(f"{len(held)} kinds of files read and written, {len(refused)} refused")


if __name__ == "__main__":
    main()
