# SPDX-License-Identifier: MIT
"""What a call costs by the shape of its picture: groups of shapes, their tables and aims.

Each group is set beside one figure of its own; see report.py for what a run is.
"""
import math
from typing import NamedTuple

from report import Aim, is_3d, ratio, table, times

BEYOND_CACHE = 8 << 20  # bytes of input and output: more than a core's own caches hold
NARROW = (2, 3, 4)      # vectors in a row


def bytes_of(name):
    return 8 if "_float64_" in name else 4


def lanes(name):
    return (16 if name.endswith("_none") else 32) // bytes_of(name)


def size_contenders(name):
    if is_3d(name):
        shapes = [f"{n}x{n}x{n}" for n in (16, 32, 64, 128)] + ["256x256x128", "512x512x128"]
    else:
        shapes = [f"{n}x{n}" for n in (16, 64, 256, 1024, 2048, 4096, 8192)]
    return {shape: f"pipeline/{shape}" for shape in shapes}


def size_row(run):
    row = times(run)
    large = [time for shape, time in row.items()
             if 2 * bytes_of(run["pipeline"]) * math.prod(map(int, shape.split("x")))
             >= BEYOND_CACHE]
    return row | {"growth": max(large) / min(large)}


def stride_contenders(name):
    shapes = (["256x256x64", "1024x64x64"] if is_3d(name)
              else ["1024x1024", "2048x512", "8192x128"])
    return {shape + padding: f"pipeline/{shape}{padding}"
            for shape in shapes for padding in ("", "+16")}


def stride_row(run):
    return {shape: ratio(run, shape, shape + "+16")
            for shape in run["ns"] if not shape.endswith("+16")}


def row_contenders(name):
    """In 2-D a row is a task, and its start the parallel loop's."""
    return {"192": "pipeline/192x96x32", "1920": "pipeline/1920x20x16"} if is_3d(name) else {}


def row_row(run):
    return {"192 over 1920": ratio(run, "192", "1920")}


def pool_contenders(name):
    shape = "64x64x8" if is_3d(name) else "64x64"
    return {"TBB, one thread": f"pipeline/{shape}", "TBB, two threads": f"pipeline/{shape}/2",
            "runtime's pool, two threads": f"pool/{shape}/2"}


def small_contenders(name):
    """Small pictures as parts of one that is as wide, whose height is theirs together."""
    rows = "x16x2048" if is_3d(name) else "x4096"
    found = {"large": "pipeline/" + ("192x192x64" if is_3d(name) else "1024x1024")}
    for width in (16, 64):
        for kind, threads in (("each", 1), ("tasks", 1), ("each", 2), ("tasks", 2)):
            found[f"{width}, {kind}/{threads}"] = f"{kind}/{width}{rows}/{threads}"
    return found


def small_row(run):
    """Over the large picture on one thread."""
    return {label: ratio(run, label, "large") for label in run["ns"] if label != "large"}


def clamp_contenders(name):
    if is_3d(name):
        shapes = {"interior": "512x128x64", "one plane": "4096x64x1", "two planes": "4096x32x2",
                  "one row a plane": "4096x1x64"}
        rows = "64x64"
    else:
        shapes = {"interior": "4096x256", "one row": "65536x1", "two rows": "65536x2"}
        rows = "4096"
    found = {label: f"pipeline/{shape}" for label, shape in shapes.items()}
    for vectors in NARROW:
        shape = f"{vectors * lanes(name)}x{rows}"
        found |= {f"{vectors} vectors": f"pipeline/{shape}", f"{vectors} empty": f"empty/{shape}"}
    return found


def clamp_row(run):
    """Narrow rows are short tasks: what the parallel loop takes for empty ones is taken off."""
    row = times(run)
    interior = row.pop("interior")
    for vectors in NARROW:
        row[f"{vectors} vectors"] -= row.pop(f"{vectors} empty")
    return {label: time / interior for label, time in row.items()}


def in_line_contenders(name):
    shape = f"{lanes(name)}x64x64" if is_3d(name) else f"{lanes(name)}x4096"
    return {kind: f"{kind}/{shape}" for kind in ("pipeline", "scalar")}


def in_line_row(run):
    row = times(run)
    return {"time": row["pipeline"], "scalar": row["scalar"],
            "time / scalar": ratio(run, "pipeline", "scalar")}


class Group(NamedTuple):
    title: str
    contenders: callable
    row: callable
    most: float = math.inf    # for the columns below, or for all
    columns: tuple = ()


GROUPS = {
    "size": Group("ns for one element by size; growth is the dearest size over the cheapest, of "
                  "those of at least 8 MiB for input and output",
                  size_contenders, size_row, 1.15, ("growth",)),
    "stride": Group("strides that are powers of two, over those that are 16 elements longer",
                    stride_contenders, stride_row, 1.15),
    "rows": Group("rows of 192 elements over rows of 1920, for one element",
                  row_contenders, row_row, 1.04),
    "pool": Group("ns for one element of 64 x 64, or 64 x 64 x 8", pool_contenders, times),
    "small": Group("small pictures over a large one on one thread, for one element: by width, each "
                   "call after another or all as tasks, and by threads",
                   small_contenders, small_row),
    "clamp": Group("clamped forms over the interior", clamp_contenders, clamp_row, 2),
    "in line": Group("in line (pictures one vector wide), ns for one element",
                     in_line_contenders, in_line_row, 1.5, ("time / scalar",)),
}


def tables(runs):
    """(title, table) for each group, pictures and volumes apart."""
    for name, group in GROUPS.items():
        for volumes in (False, True):
            rows = [{"pipeline": run["pipeline"]} | group.row(run) for run in runs
                    if run["group"] == name and is_3d(run["pipeline"]) == volumes]
            if rows:
                yield f"{'3-D' if volumes else '2-D'}, {group.title}", table(rows)


def aims(run):
    group = GROUPS[run["group"]]
    for label, value in group.row(run).items():
        if group.most != math.inf and (not group.columns or label in group.columns):
            yield Aim(run["pipeline"], f"{run['group']}, {label}: at most {group.most}", value,
                      value <= group.most)
