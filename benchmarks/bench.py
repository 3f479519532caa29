# SPDX-License-Identifier: MIT
"""Runs the programs of benchmarks/ and says what came of it. See scripts/bench."""
import argparse
import json
import pathlib
import re
import subprocess
import sys

import docs
import instructions
import report
import shapes

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILD = ROOT / "build/bench"
MEASURE = BUILD / "benchmarks/measure"
ROUNDS = 3  # spread over the whole run, so that no pipeline meets one loud minute alone


def processor():
    fields = dict(line.split(":", 1) for line in open("/proc/cpuinfo") if ":" in line)
    fields = {key.strip(): value.strip() for key, value in fields.items()}
    return (f"{fields['model name']}, family {fields['cpu family']}, model {fields['model']}, "
            f"{fields['siblings']} processors")


def run(path, regex, seconds, groups):
    """Measures the pipelines that match; `groups` are functions from a name to contenders."""
    names = subprocess.run([MEASURE], check=True, stdout=subprocess.PIPE, text=True).stdout.split()
    runs = [{"pipeline": name, "group": group, "ns": {label: [] for label in contenders(name)}}
            for name in filter(re.compile(regex).search, names)
            for group, contenders in groups.items() if contenders(name)]
    if not runs:
        sys.exit(f"bench: no pipeline matches {regex}")
    for number in range(1, ROUNDS + 1):
        for each in runs:
            name, group = each["pipeline"], each["group"]
            print(f"bench: {number} of {ROUNDS}, {name}, {group}", file=sys.stderr)
            labels = groups[group](name)
            measured = subprocess.run([MEASURE, name, str(seconds / ROUNDS), *labels.values()],
                                      check=True, stdout=subprocess.PIPE, text=True).stdout
            ns = json.loads(measured)
            for label, contender in labels.items():
                each["ns"][label] += ns[contender]
    result = {"processor": processor(), "runs": runs}
    path.write_text(json.dumps(result, indent=1) + "\n")
    print(f"{result['processor']}; the figures of every repetition: {path}\n")
    return result


def speed(options):
    result = run(options.json or BUILD / "speed.json", options.regex or ".", options.seconds,
                 {"speed": lambda name: report.contenders(name, options.with_itk)})
    print(report.speed_table(result["runs"]))
    print(report.misses(result["runs"], report.speed_aims))
    return result


def sizes(options):
    regex = options.regex or "(quadratic|exponential_float32)_.*avx2$"
    result = run(options.json or BUILD / "sizes.json", regex, options.seconds,
                 {name: group.contenders for name, group in shapes.GROUPS.items()})
    for title, table in shapes.tables(result["runs"]):
        print(f"{title}:\n\n{table}")
    print(report.misses(result["runs"], shapes.aims))
    return result


def main():
    parser = argparse.ArgumentParser(prog="scripts/bench")
    parser.add_argument("regex", nargs="?", help="only the pipelines that match")
    parser.add_argument("--with-itk", action="store_true", help="beside ITK's filter too")
    parser.add_argument("--sizes", action="store_true", help="cost by size, stride and border")
    parser.add_argument("--instructions", action="store_true",
                        help="count instructions; fail where they grew by more than 3 %%")
    parser.add_argument("--orders", action="store_true",
                        help="what the orders take in which a limit can have its operations")
    parser.add_argument("--store", action="store_true", help="store the counts anew")
    parser.add_argument("--write-docs", action="store_true",
                        help="measure all, also beside ITK, and write it into docs/performance.md")
    parser.add_argument("--seconds", type=float, default=2,
                        help="for each pipeline, or group of shapes (%(default)s)")
    parser.add_argument("--json", type=pathlib.Path, help="where the figures go")
    options = parser.parse_args()
    if options.instructions:
        instructions.check(BUILD / "benchmarks/counted", options.store)
    elif options.orders:
        subprocess.run([BUILD / "benchmarks/orders", *filter(None, [options.regex])], check=True)
    elif options.write_docs:
        if options.regex or options.json:
            parser.error("--write-docs measures every pipeline")
        options.with_itk = True
        docs.write(ROOT / "docs", speed(options), sizes(options))
    elif options.sizes:
        sizes(options)
    elif report.reference_is_slow(speed(options)["runs"]):
        sys.exit(f"bench: {report.REFERENCE} takes more than {report.TOLERATED} times its limit")


if __name__ == "__main__":
    main()
