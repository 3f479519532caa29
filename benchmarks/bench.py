"""Runs the programs of benchmarks/ and says what came of it. See scripts/bench."""
import argparse
import json
import pathlib
import subprocess
import sys

import docs
import instructions
import report
import shapes

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILD = ROOT / "build/bench"


def processor():
    fields = dict(line.split(":", 1) for line in open("/proc/cpuinfo") if ":" in line)
    fields = {key.strip(): value.strip() for key, value in fields.items()}
    return (f"{fields['model name']}, family {fields['cpu family']}, model {fields['model']}, "
            f"{fields['siblings']} processors")


def run(program, arguments, path):
    """Runs a program that writes a line of JSON for each result, and keeps all in `path`."""
    result = {"processor": processor(), "runs": []}
    command = [BUILD / "benchmarks" / program, *arguments]
    with subprocess.Popen(command, stdout=subprocess.PIPE, text=True) as process:
        for line in process.stdout:
            result["runs"].append(json.loads(line))
            latest = result["runs"][-1]
            print(f"bench: {latest['pipeline']}, {latest['group']}", file=sys.stderr)
    if process.returncode != 0 or not result["runs"]:
        sys.exit(f"bench: {program} failed or found nothing to run")
    path.write_text(json.dumps(result, indent=1) + "\n")
    return result


def speed(options):
    path = options.json or BUILD / "speed.json"
    result = run("speed", [options.regex or ".", str(options.seconds)], path)
    print(f"{result['processor']}; figures of every repetition: {path}\n")
    print(report.speed_table(result["runs"]))
    print(report.misses(report.aims(result["runs"])))
    return result


def sizes(options):
    path = options.json or BUILD / "sizes.json"
    regex = options.regex or "(quadratic|exponential_float32)_.*avx2$"
    result = run("sizes", [regex, str(options.seconds)], path)
    print(f"{result['processor']}; figures of every repetition: {path}\n")
    for title, table in shapes.tables(result["runs"]):
        print(f"{title}:\n\n{table}")
    print(report.misses(shapes.aims(result["runs"])))
    return result


def main():
    parser = argparse.ArgumentParser(prog="scripts/bench")
    parser.add_argument("regex", nargs="?", help="only the pipelines that match")
    parser.add_argument("--with-itk", action="store_true", help="beside ITK's filter too")
    parser.add_argument("--sizes", action="store_true", help="cost by size, stride and border")
    parser.add_argument("--instructions", action="store_true",
                        help="count instructions; fail where they grew by more than 3 %%")
    parser.add_argument("--store", action="store_true", help="store the counts anew")
    parser.add_argument("--write-docs", action="store_true",
                        help="measure all, also beside ITK, and write it into docs/performance.md")
    parser.add_argument("--seconds", type=float, default=2, help="for each pipeline (%(default)s)")
    parser.add_argument("--json", type=pathlib.Path, help="where the figures go")
    options = parser.parse_args()
    if options.instructions:
        instructions.check(BUILD / "benchmarks/counted", options.store)
    elif options.write_docs:
        if options.regex or options.json:
            parser.error("the documentation shows every pipeline")
        docs.write(ROOT / "docs", speed(options), sizes(options))
    elif options.sizes:
        sizes(options)
    elif report.reference_is_slow(speed(options)["runs"]):
        sys.exit(f"bench: {report.REFERENCE} takes more than {report.TOLERATED} times its limit")


if __name__ == "__main__":
    main()
