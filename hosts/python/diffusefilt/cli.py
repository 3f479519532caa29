# SPDX-License-Identifier: MIT
"""The command `python3 -m diffusefilt`: denoise from one file of NumPy to another."""
from __future__ import annotations

import argparse
import os
import sys
import uuid
from typing import Optional, Union

import numpy

import diffusefilt
from diffusefilt import _axes


def main(arguments: Optional[list[str]] = None) -> int:
    options = _parse(arguments)
    partial = f"{options.target}.{uuid.uuid4().hex[:8]}.partial"
    try:
        smooth = diffusefilt.denoise(
            numpy.load(options.source, mmap_mode="r"), options.threshold, options.iterations,
            connectivity=options.connectivity, conduction=options.conduction,
            instruction_set=options.instruction_set, channel_axis=options.channel_axis,
            dtype=options.type)
        try:
            with open(partial, "xb") as file:
                numpy.save(file, smooth)
            os.replace(partial, options.target)
        except BaseException:
            if os.path.exists(partial):
                os.remove(partial)
            raise
    except Exception as error:  # of the file, the arguments or the library
        line = str(error).partition("\n")[0]
        print(f"diffusefilt: {line or type(error).__name__}", file=sys.stderr)
        return 1
    return 0


def _number_or_auto(text: str) -> Union[float, str]:
    return text if text == "auto" else float(text)


def _parse(arguments: Optional[list[str]]) -> argparse.Namespace:
    parser = argparse.ArgumentParser(
        prog="diffusefilt", description="Smooths noise in a file of NumPy (.npy) and keeps edges, "
        "as diffusefilt.denoise does. Files of pictures and volumes are filtered by `diffuse`, "
        "Zarr stores by `python3 -m diffusefilt.cluster`. Exit status: 0, 1 if the work failed, 2 "
        "if the command line is wrong.")
    version = (f"diffusefilt {diffusefilt.__version__}, {diffusefilt.LIBRARY}, "
               f"{diffusefilt.best_instruction_set()}")
    parser.add_argument("--version", action="version", version=version)
    parser.add_argument("source", help="file of an image or a volume")
    parser.add_argument("target", help="file to write, replaced if it exists")
    parser.add_argument("-k", "--threshold", type=_number_or_auto, default="auto",
                        help="gradient threshold, in the units of the elements, or auto (auto)")
    parser.add_argument("-n", "--iterations", type=int, default=3, help="number of steps (3)")
    parser.add_argument("--connectivity", default=_axes.MINIMAL, choices=_axes.CONNECTIVITIES)
    parser.add_argument("--conduction", default=_axes.QUADRATIC, choices=_axes.CONDUCTIONS)
    parser.add_argument("--type", choices=("float32", "float64"),
                        help="of the arithmetic (by the elements)")
    parser.add_argument("--instruction-set", default="auto", choices=("auto", *_axes.INSTRUCTION_SETS))
    parser.add_argument("--channel-axis", type=int, help="axis of channels (none)")
    return parser.parse_args(arguments)


if __name__ == "__main__":
    sys.exit(main())
