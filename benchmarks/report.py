# SPDX-License-Identifier: MIT
"""What the pipelines are set beside, the tables of that, and the aims that are missed.

A run is {"pipeline": name, "group": name, "ns": {label: [ns for one element, ...]}}, with one
figure for each repetition. A time is their median; a ratio is the median of the ratios within
each repetition.
"""
from statistics import median
from typing import NamedTuple

REFERENCE = "diffusefilt2_minimal_quadratic_float64_none"
TOLERATED = 1.25  # times its limit: what the reference pipeline may take before a run fails


def is_3d(name):
    return name.startswith("diffusefilt3")


def contenders(name, with_itk):
    """What `measure` is to time for the pipeline, by label."""
    shape = "192x192x128" if is_3d(name) else "2048x2048"
    kinds = ["pipeline", "limit", "copy", "halide", "scalar", "pipeline/2", "halide/2", "copy/2"]
    if with_itk and "_minimal_exponential_" in name and name.endswith("_avx2"):
        kinds.append("itk")
    parts = {kind: kind.partition("/") for kind in kinds}
    return {label: f"{kind}/{shape}{slash}{threads}"
            for label, (kind, slash, threads) in parts.items()}


def times(run):
    return {label: median(samples) for label, samples in run["ns"].items()}


def ratio(run, above, below, of_least=False):
    """The median, or the ratio of the least times, which a machine that does nothing else comes
    near to. None where one of the two was not measured."""
    ns = run["ns"]
    if above not in ns or below not in ns:
        return None
    if of_least:
        return min(ns[above]) / min(ns[below])
    return median(a / b for a, b in zip(ns[above], ns[below]))


def over_limit(run, of_least=False):
    """The limit is the operations or the bytes, whichever take longer."""
    return min(ratio(run, "pipeline", kind, of_least) for kind in ("limit", "copy"))


def speed_row(run):
    return {
        "pipeline": run["pipeline"],
        "ns": times(run)["pipeline"],
        "least": min(run["ns"]["pipeline"]),
        "limit": min(run["ns"]["limit"]),
        "copy": min(run["ns"]["copy"]),
        "time / limit": over_limit(run),
        "least / limit's": over_limit(run, of_least=True),
        "time / Halide": ratio(run, "pipeline", "halide"),
        "scalar / time": ratio(run, "scalar", "pipeline"),
        "ITK / time": ratio(run, "itk", "pipeline"),
        "one thread / two": ratio(run, "pipeline", "pipeline/2"),
        "Halide's one / two": ratio(run, "halide", "halide/2"),
        "two / copy": ratio(run, "pipeline/2", "copy/2"),
    }


def cell(value):
    if value is None:
        return "-"
    return f"{value:.3g}" if isinstance(value, float) and value >= 100 else (
        f"{value:.2f}" if isinstance(value, float) else str(value))


def table(rows):
    """Dictionaries with the same keys, as Markdown that also reads well as it is."""
    lines = [list(rows[0])] + [[cell(value) for value in row.values()] for row in rows]
    widths = [max(map(len, column)) for column in zip(*lines)]
    lines.insert(1, ["-" * widths[0]] + ["-" * (width - 1) + ":" for width in widths[1:]])
    aligned = [[line[0].ljust(widths[0])] +
               [text.rjust(width) for text, width in zip(line[1:], widths[1:])] for line in lines]
    return "\n".join(f"| {' | '.join(line)} |" for line in aligned) + "\n"


def speed_table(runs):
    rows = [speed_row(run) for run in runs]
    shown = [key for key in rows[0] if any(row[key] is not None for row in rows)]
    return table([{key: row[key] for key in shown} for row in rows])


class Aim(NamedTuple):
    pipeline: str
    words: str
    measured: float
    met: bool


def speed_aims(run):
    name, row = run["pipeline"], speed_row(run)
    limit, halide, itk = row["least / limit's"], row["time / Halide"], row["ITK / time"]
    threads, copy = row["one thread / two"], row["two / copy"]
    yield Aim(name, "at most 1.15 of the limit", limit, limit <= 1.15)
    if "exponential_float32_avx" in name:
        yield Aim(name, "at most 0.85 of natural Halide", halide, halide <= 0.85)
    else:
        yield Aim(name, "at most 1.00 of natural Halide (and noise of 0.03)", halide,
                  halide <= 1.03)
    yield Aim(name, "two threads 1.9 times one, or within 1.10 of the copy", threads,
              threads >= 1.9 or copy <= 1.10)
    if itk is not None:
        least = 40 if "float32" in name else 4
        yield Aim(name, f"ITK takes at least {least} times as long", itk, itk >= least)


def misses(runs, aims_of):
    """A table of the aims that are missed, or a line that says that none is."""
    aims = [aim for run in runs for aim in aims_of(run)]
    missed = [{"pipeline": aim.pipeline, "aim": aim.words, "measured": aim.measured}
              for aim in aims if not aim.met]
    if not missed:
        return f"All {len(aims)} aims are met.\n"
    return f"{len(missed)} of {len(aims)} aims are missed:\n\n" + table(missed)


def reference_is_slow(runs):
    return any(run["pipeline"] == REFERENCE and over_limit(run) > TOLERATED
               for run in runs)
