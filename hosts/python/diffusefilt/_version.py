# SPDX-License-Identifier: MIT
"""The version: in a source tree that of its CMakeLists.txt, elsewhere that which was installed."""
import importlib.metadata
import pathlib
import re


def _version() -> str:
    lists = pathlib.Path(__file__).resolve().parent.parent.parent.parent / "CMakeLists.txt"
    if lists.is_file():
        found = re.search(r"^project\(diffusefilt_halide VERSION ([0-9.]+)", lists.read_text(), re.M)
        if found:
            return found[1]
    try:
        return importlib.metadata.version("diffusefilt")
    except importlib.metadata.PackageNotFoundError:
        return "0+unknown"  # a copied folder


VERSION = _version()
