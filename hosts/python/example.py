# SPDX-License-Identifier: MIT
"""A program on diffusefilt, typed: smooths a volume of integers plane by plane and as a whole."""
from typing import Any

import numpy
import numpy.typing

import diffusefilt

Volume = numpy.typing.NDArray[numpy.int16]


def noisy_volume() -> Volume:
    planes = numpy.zeros((8, 40, 50))
    planes[:, :, 25:] = 900
    noise = numpy.random.default_rng(1).normal(0, 50, planes.shape)
    return (planes + noise).astype(numpy.int16)


def smooth(volume: Volume, conduction: diffusefilt.Conduction) -> Volume:
    threshold: float = diffusefilt.estimate_threshold(volume, 4, conduction=conduction)
    whole: Volume = diffusefilt.denoise(volume, threshold, 4, conduction=conduction)
    return whole


def report(done: int, count: int) -> None:
    print(f"step {done} of {count}")


def main() -> None:
    volume = noisy_volume()
    results = [smooth(volume, conduction) for conduction in diffusefilt.CONDUCTIONS]
    exact: diffusefilt.Array = diffusefilt.iterate(volume.astype("f8"), 200, 2, progress=report)
    plane: numpy.typing.NDArray[Any] = diffusefilt.step(exact, 200, region=numpy.s_[3:4])
    print(volume[:, :, :25].std(), *(each[:, :, :25].std() for each in results), plane[..., :25].std())


if __name__ == "__main__":
    main()
