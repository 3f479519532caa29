# SPDX-License-Identifier: MIT
"""Draws a run of `speed`: every pipeline with its limit and its peers."""
from statistics import median

import matplotlib

matplotlib.use("svg")
from matplotlib import pyplot  # noqa: E402

MARKS = [("scalar", "plain scalar loop", "x", "tab:gray"),
         ("itk", "ITK", "D", "tab:green"),
         ("halide", "natural Halide", "o", "tab:orange"),
         ("limit", "limit", "|", "black"),
         ("pipeline", "pipeline", ".", "tab:blue")]
SHAPES = ["diffusefilt2_minimal", "diffusefilt2_maximal",
          "diffusefilt3_minimal", "diffusefilt3_maximal"]


def draw(result, path):
    """`path` is that of an SVG file, the same for the same result."""
    matplotlib.rcParams["svg.hashsalt"] = "diffusefilt_halide"
    figure, panels = pyplot.subplots(2, 2, figsize=(12, 8), layout="constrained")
    for shape, panel in zip(SHAPES, panels.flat):
        runs = [run for run in result["runs"] if run["pipeline"].startswith(shape)]
        names = [run["pipeline"][len(shape) + 1:].replace("_", " ") for run in runs]
        for contender, label, marker, colour in MARKS:
            points = [(median(run["ns"][contender]), name)
                      for run, name in zip(runs, names) if contender in run["ns"]]
            panel.plot([x for x, _ in points], [names.index(name) for _, name in points],
                       marker, label=label, color=colour, linestyle="none",
                       fillstyle="full" if marker == "." else "none",
                       markersize=14 if marker == "|" else 8)
        panel.set_yticks(range(len(names)), names)
        panel.invert_yaxis()
        panel.set_xscale("log")
        panel.grid(axis="x", which="both", alpha=0.3)
        panel.set_title(shape[len("diffusefilt"):].replace("_", "-D "))
        panel.set_xlabel("ns for one element, one thread")
    panels[0, 0].legend(loc="lower right")
    figure.suptitle(result["processor"])
    figure.savefig(path, metadata={"Date": None})
    pyplot.close(figure)
