#!/usr/bin/env python3
"""Turns the benchmarks' JSON into a Markdown table of times a megapixel and of ratios to the yardstick of the same run.

usage: table.py RESULTS.json    (made with --benchmark_repetitions=5 --benchmark_format=json)
"""

import json
import statistics
import sys


def megapixels(name):
    return int(name.split("megapixels:")[1].split("/")[0])


def threads(name):
    return int(name.split("threads:")[1].split("/")[0]) if "threads:" in name else 1


def runs_of(results):
    """The single runs of a results file; ends the program when one of them failed."""
    with open(results, encoding="utf-8") as file:
        runs = [run for run in json.load(file)["benchmarks"] if run["run_type"] == "iteration"]
    failed = sorted({run["name"] for run in runs if run.get("error_occurred")})
    if failed:
        sys.exit("These gave another answer than expected: " + ", ".join(failed))
    return runs


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    runs = runs_of(sys.argv[1])
    times = {}
    for run in runs:
        key = (run["name"].split("/megapixels")[0], megapixels(run["name"]), threads(run["name"]))
        times.setdefault(key, []).append(run["real_time"] / key[1])
    yardstick = statistics.median(times["yardstick/copy_picture", 12, 1])
    names = sorted({name for name, _, _ in times if not name.startswith("yardstick/")})
    print("| what | ms a megapixel, 1 thread (range) | times the yardstick | 12 against 3 (operations: 1) megapixels, a megapixel "
          "| 2 threads against 1 |")
    print("|---|---:|---:|---:|---:|")
    for name in names:
        one = times.get((name, 12, 1))
        if one is None:
            continue
        median = statistics.median(one)
        small = times.get((name, 3, 1)) or times.get((name, 1, 1))
        two = times.get((name, 12, 2))
        growth = f"{median / statistics.median(small):.2f}" if small else ""
        gain = f"{statistics.median(two) / median:.2f}" if two else ""
        print(f"| {name} | {median:.2f} ({min(one):.2f} to {max(one):.2f}) | {median / yardstick:.1f} | {growth} | {gain} |")
    print(f"\nThe yardstick took {yardstick:.2f} ms a megapixel.")


if __name__ == "__main__":
    main()
