"""What a run of `speed` says: its table, and the aims that it misses.

A ratio is the median of the ratios within each repetition; a time is the median over the
repetitions, in nanoseconds for one element.
"""
from statistics import median
from typing import NamedTuple

REFERENCE = "diffusefilt2_minimal_quadratic_float64_none"
TOLERATED = 1.25  # times its limit: what the reference pipeline may take before a run fails


def ratio(run, above, below):
    """None where one of the two was not measured."""
    ns = run["ns"]
    if above not in ns or below not in ns:
        return None
    return median(a / b for a, b in zip(ns[above], ns[below]))


def columns(run):
    return {
        "pipeline": run["pipeline"],
        "ns": median(run["ns"]["pipeline"]),
        "least": min(run["ns"]["pipeline"]),
        "time / limit": ratio(run, "pipeline", "limit"),
        "time / Halide": ratio(run, "pipeline", "halide"),
        "scalar / time": ratio(run, "scalar", "pipeline"),
        "ITK / time": ratio(run, "itk", "pipeline"),
        "one thread / two": ratio(run, "pipeline", "pipeline, 2 threads"),
        "two / copy": ratio(run, "pipeline, 2 threads", "copy, 2 threads"),
    }


def cell(value):
    if value is None:
        return "-"
    if isinstance(value, float):
        return f"{value:.3g}" if abs(value) >= 100 else f"{value:.2f}"
    return str(value)


def table(rows):
    """Dictionaries with the same keys, as Markdown that also reads well as it is."""
    lines = [list(rows[0])] + [[cell(value) for value in row.values()] for row in rows]
    widths = [max(len(line[i]) for line in lines) for i in range(len(lines[0]))]
    rule = ["-" * (widths[0])] + ["-" * (width - 1) + ":" for width in widths[1:]]
    lines.insert(1, rule)
    return "\n".join(
        "| " + " | ".join([line[0].ljust(widths[0])] +
                          [text.rjust(width) for text, width in zip(line[1:], widths[1:])]) + " |"
        for line in lines) + "\n"


def speed_table(runs):
    rows = [columns(run) for run in runs]
    absent = [key for key in rows[0] if all(row[key] is None for row in rows)]
    return table([{key: row[key] for key in row if key not in absent} for row in rows])


class Aim(NamedTuple):
    run: dict
    words: str
    value: float
    met: bool


def aims(runs):
    for run in runs:
        shown = columns(run)
        is_double = "_float64_" in run["pipeline"]
        is_exponential = "_exponential_" in run["pipeline"]
        limit, halide = shown["time / limit"], shown["time / Halide"]
        if limit is not None:
            yield Aim(run, "time at most 1.10 of the limit", limit, limit <= 1.10)
        if is_exponential and not is_double and not run["pipeline"].endswith("_none"):
            yield Aim(run, "time at most 0.85 of natural Halide's", halide, halide <= 0.85)
        else:
            yield Aim(run, "time at most 1.00 of natural Halide's (1.03 counts as noise)", halide,
                      halide <= 1.03)
        threads, copy = shown["one thread / two"], shown["two / copy"]
        yield Aim(run, "two threads 1.9 times one, or within 1.10 of the parallel copy", threads,
                  threads >= 1.9 or copy <= 1.10)
        itk = shown["ITK / time"]
        if itk is not None:
            least = 4 if is_double else 40
            yield Aim(run, f"ITK takes at least {least} times as long", itk, itk >= least)


def misses(checked):
    """A table of the aims that are missed, or a line that says that none is."""
    checked = list(checked)
    missed = [{"pipeline": aim.run["pipeline"], "aim": aim.words, "measured": aim.value}
              for aim in checked if not aim.met]
    if not missed:
        return f"All {len(checked)} aims are met.\n"
    return f"{len(missed)} of {len(checked)} aims are missed:\n\n" + table(missed)


def reference_is_slow(runs):
    return any(run["pipeline"] == REFERENCE and ratio(run, "pipeline", "limit") > TOLERATED
               for run in runs)
