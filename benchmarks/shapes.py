"""What a run of `sizes` says: a table for each group of shapes, and the aims that it misses."""
import math
from statistics import median

from report import Aim, ratio, table

BEYOND_CACHE = 8 << 20  # bytes of input and output: more than a core's own caches hold
TITLES = {
    "size": "ns for one element by size; growth is the dearest size over the cheapest, of those "
            "beyond the caches of a core (8 MiB for input and output)",
    "stride": "strides that are powers of two, over padded ones",
    "pool": "one call on 64 x 64, or 64 x 64 x 8, in microseconds",
    "clamp": "clamped forms over the interior, for one vector",
    "in line": "in line (input one vector wide), in ns for one element",
}


def size_row(run):
    times = {name: median(samples) for name, samples in run["ns"].items()}
    width = 8 if "_float64_" in run["pipeline"] else 4
    large = [time for name, time in times.items()
             if 2 * width * math.prod(map(int, name.split(" x "))) >= BEYOND_CACHE]
    return times | {"growth": max(large) / min(large)}


def stride_row(run):
    return {name: ratio(run, name, name + " padded")
            for name in run["ns"] if not name.endswith(" padded")}


def pool_row(run):
    return {name: median(samples) / 1000 for name, samples in run["ns"].items()}


def clamp_row(run):
    """Of narrow rows, the empty tasks of the parallel loop are taken off."""
    times = {name: median(samples) for name, samples in run["ns"].items()}
    empty, interior = times.pop("empty tasks for one row"), times.pop("interior")
    lanes = (2 if run["pipeline"].endswith("_none") else 4) * (
        1 if "_float64_" in run["pipeline"] else 2)
    row = {}
    for name, time in times.items():
        if name.endswith(" vectors"):
            time -= empty / (int(name.split()[0]) * lanes)
        row[name] = time / interior
    return row


def in_line_row(run):
    return {"time": median(run["ns"]["pipeline"]), "scalar": median(run["ns"]["scalar"]),
            "time / scalar": ratio(run, "pipeline", "scalar")}


ROWS = {"size": size_row, "stride": stride_row, "pool": pool_row, "clamp": clamp_row,
        "in line": in_line_row}


def tables(runs):
    """(title, table) for each group, pictures and volumes apart."""
    for group, title in TITLES.items():
        for dimensions in "23":
            rows = [{"pipeline": run["pipeline"]} | ROWS[group](run) for run in runs
                    if run["group"] == group and run["pipeline"][len("diffusefilt")] == dimensions]
            if rows:
                yield f"{dimensions}-D, {title}", table(rows)


def aims(runs):
    for run in runs:
        row = ROWS[run["group"]](run)
        if run["group"] == "size":
            yield Aim(run, "cost of an element within 1.15 of itself beyond the caches",
                      row["growth"], row["growth"] <= 1.15)
        elif run["group"] == "stride":
            for name, value in row.items():
                yield Aim(run, f"{name}: at most 1.15 of a padded stride", value, value <= 1.15)
        elif run["group"] == "clamp":
            for name, value in row.items():
                yield Aim(run, f"{name}: at most 2 times the interior", value, value <= 2)
        elif run["group"] == "in line":
            value = row["time / scalar"]
            yield Aim(run, "in line at most 1.5 times the scalar loop", value, value <= 1.5)
