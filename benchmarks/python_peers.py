#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Time and PSNR of diffusefilt.denoise beside the filters that scikit-image and SimpleITK have for
the same purpose, on pictures with Gaussian noise; prints the table of docs/python.md.

    PYTHONPATH=hosts/python benchmarks/python_peers.py

Needs python3-skimage and mricron-data (scripts/install-deps peers); SimpleITK has no
package in Debian 12 and is taken if it can be imported. denoise finds its threshold by itself; each
parameter of a peer is the best of a grid, chosen by the clean picture, so that none loses by its
setting. Time is what all threads of the process take of the processors, the least of several calls
with the parameter chosen, in float32.
"""
import gzip
import itertools
import pathlib
import time

import numpy
import skimage.io
from skimage.restoration import denoise_bilateral, denoise_tv_chambolle

import diffusefilt

ROOT = pathlib.Path(__file__).resolve().parent.parent
VOLUME = "/usr/share/mricron/templates/ch2.nii.gz"
SIGMA = 20
MOST_ROUNDS, ENOUGH = 100, 15  # the latter in seconds


def head():
    """The grey values as [z, y, x]."""
    data = gzip.open(VOLUME).read()
    x, y, z = numpy.frombuffer(data[42:48], "<i2")
    start = int(numpy.frombuffer(data[108:112], "<f4")[0])
    return numpy.frombuffer(data[start:], "u1").reshape(z, y, x).astype("f4")


def pictures():
    """By name: clean samples of 0 to 255, and the axis of channels."""
    volume = head()
    portrait = skimage.io.imread(ROOT / "docs/images/portrait.jpg").astype("f4")
    portrait = portrait[:, :portrait.shape[1] // 3]  # the clean one of three
    yield "slice of the head", volume[90], None
    yield "the head", volume, None
    yield "photograph", portrait, -1


def total_variation(picture, axis, weight, steps=200):
    return 255 * denoise_tv_chambolle(picture / 255, weight=weight, max_num_iter=steps,
                                      channel_axis=axis)


def bilateral(picture, axis, sigma_color, sigma_spatial):
    return 255 * denoise_bilateral(picture.clip(0, 255) / 255, sigma_color=sigma_color,
                                   sigma_spatial=sigma_spatial, channel_axis=axis)


def simple_itk(picture, axis, conductance, steps):
    import SimpleITK
    result = SimpleITK.GradientAnisotropicDiffusion(
        SimpleITK.GetImageFromArray(picture, isVector=axis is not None), timeStep=0.0625,
        conductanceParameter=conductance, numberOfIterations=steps)
    return SimpleITK.GetArrayFromImage(result)


def psnr(clean, found):
    return 10 * numpy.log10(255**2 / numpy.mean((found.astype("f8") - clean)**2))


def least_seconds(calls):
    """Of each call, all in turn so that a loud moment meets all of them."""
    least = dict.fromkeys(calls, float("inf"))
    begin = time.perf_counter()
    for done in range(MOST_ROUNDS):
        for name, call in calls.items():
            start = time.process_time()
            call()
            least[name] = min(least[name], time.process_time() - start)
        if done >= 2 and time.perf_counter() - begin > ENOUGH:
            break
    return least


def best(clean, call, grid):
    """The arguments of the highest PSNR."""
    return max(grid, key=lambda arguments: psnr(clean, call(*arguments)))


def peers(picture, clean, axis, limit):
    """Names with calls, the parameters chosen; the second has no more than `limit` seconds."""
    weights = [(w,) for w in numpy.geomspace(0.03, 0.5, 10)]
    weight, = best(clean, lambda w: total_variation(picture, axis, w), weights)
    yield ("scikit-image denoise_tv_chambolle",
           lambda: total_variation(picture, axis, weight))
    times = least_seconds({n: lambda n=n: total_variation(picture, axis, weight, n)
                           for n in (1, 2, 3, 5, 10)})
    steps = max((n for n in times if times[n] <= limit), default=1)
    short, = best(clean, lambda w: total_variation(picture, axis, w, steps), weights)
    yield (f"in the same time, {steps} step{'s' * (steps > 1)}",
           lambda: total_variation(picture, axis, short, steps))
    if picture.ndim - (axis is not None) == 2:
        grid = list(itertools.product((0.1, 0.2, 0.4, 0.8), (1, 2)))
        chosen = best(clean, lambda *a: bilateral(picture, axis, *a), grid)
        yield "scikit-image denoise_bilateral", lambda: bilateral(picture, axis, *chosen)
    try:
        import SimpleITK  # noqa: F401
    except ImportError:
        return
    grid = list(itertools.product((0.5, 1, 2, 4, 8), (5, 10, 20)))
    found = best(clean, lambda *a: simple_itk(picture, axis, *a), grid)
    yield "SimpleITK GradientAnisotropicDiffusion", lambda: simple_itk(picture, axis, *found)


def main():
    print("| picture | filter | processor time | as many times | PSNR |\n|---|---|---|---|---|")
    for name, clean, axis in pictures():
        noisy = clean + numpy.random.default_rng(1).normal(0, SIGMA, clean.shape).astype("f4")
        calls = {f"denoise, {conduction}": lambda conduction=conduction: diffusefilt.denoise(
            noisy, conduction=conduction, channel_axis=axis)
            for conduction in ("quadratic", "exponential")}
        own = "denoise, quadratic"
        calls.update(peers(noisy, clean, axis, least_seconds(calls)[own]))
        times = least_seconds(calls)
        sizes = " x ".join(map(str, clean.shape))
        print(f"| {name}, {sizes} | as it is | | | {psnr(clean, noisy):.1f} dB |")
        for label, call in calls.items():
            print(f"| | {label} | {1000 * times[label]:.1f} ms | {times[label] / times[own]:.1f} | "
                  f"{psnr(clean, call()):.1f} dB |", flush=True)


if __name__ == "__main__":
    main()
