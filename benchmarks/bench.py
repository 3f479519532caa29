"""Runs the programs of benchmarks/ and says what came of it. See scripts/bench."""
import argparse
import json
import pathlib
import subprocess
import sys

import report

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
            print(f"bench: {result['runs'][-1]['pipeline']}", file=sys.stderr)
    if process.returncode != 0 or not result["runs"]:
        sys.exit(f"bench: {program} failed or found nothing to run")
    path.write_text(json.dumps(result, indent=1) + "\n")
    return result


def speed(options):
    path = options.json or BUILD / "speed.json"
    result = run("speed", [options.regex, str(options.seconds)], path)
    print(f"{result['processor']}; figures of every repetition: {path}\n")
    print(report.speed_table(result["runs"]))
    print(report.misses(result["runs"]))
    if report.reference_is_slow(result["runs"]):
        sys.exit(f"bench: {report.REFERENCE} takes more than {report.TOLERATED} times its limit")
    return result


def main():
    parser = argparse.ArgumentParser(prog="scripts/bench")
    parser.add_argument("regex", nargs="?", default=".", help="only the pipelines that match")
    parser.add_argument("--with-itk", action="store_true", help="beside ITK's filter too")
    parser.add_argument("--seconds", type=float, default=2, help="for each pipeline")
    parser.add_argument("--json", type=pathlib.Path, help="where the figures go")
    speed(parser.parse_args())


if __name__ == "__main__":
    main()
