# SPDX-License-Identifier: MIT
"""Builds the wheel: CMake makes the shared objects, setuptools packs them beside the modules.

    pip install --no-build-isolation .       # as pip wheel does

Needs `scripts/install-deps build`. Everything is built in build/wheel of the source tree.
"""
import pathlib
import runpy
import shutil
import subprocess
from typing import Tuple

import setuptools
from setuptools.command.build_py import build_py
from wheel.bdist_wheel import bdist_wheel

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = ROOT / "build" / "wheel"
PACKAGE = ROOT / "hosts" / "python" / "diffusefilt"


class Modules(build_py):  # type: ignore[misc]
    """The modules and the shared objects."""

    def run(self) -> None:
        package = pathlib.Path(self.build_lib, "diffusefilt")
        shutil.rmtree(package, ignore_errors=True)  # of a former build
        super().run()
        if self.editable_mode:
            return  # then the package finds what is built in its source tree
        for step in (["--preset", "wheel", "--log-level=WARNING"],
                     ["--build", str(BUILD), "--target", "diffusefilt_halide", "diffusefilt_noise"],
                     ["--install", str(BUILD), "--component", "wheel", "--prefix",
                      str(package.resolve())]):
            subprocess.run(["cmake", *step], cwd=ROOT, check=True)


class Platform(setuptools.Distribution):  # type: ignore[misc]
    """Not the same everywhere, though nothing is compiled by setuptools."""

    def has_ext_modules(self) -> bool:
        return True


class Wheel(bdist_wheel):  # type: ignore[misc]
    """For any interpreter, which loads the shared objects by ctypes, on this platform."""

    def get_tag(self) -> Tuple[str, str, str]:
        return "py3", "none", super().get_tag()[2]


if not (ROOT / "CMakePresets.json").is_file():
    raise SystemExit(f"setup.py must stand in the source tree that it builds, not in {ROOT}")
(BUILD / "python").mkdir(parents=True, exist_ok=True)
setuptools.setup(version=runpy.run_path(str(PACKAGE / "_version.py"))["VERSION"],
                 distclass=Platform, cmdclass={"build_py": Modules, "bdist_wheel": Wheel},
                 options={"build": {"build_base": str(BUILD / "python")},
                          "egg_info": {"egg_base": str(BUILD / "python")}})
