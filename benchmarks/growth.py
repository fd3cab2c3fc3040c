#!/usr/bin/env python3
"""Prints how the time of each operation grows with the picture, with a parameter and with the number of regions.

usage: growth.py RESULTS.json    (made with --benchmark_filter='mask/|result/|reach/' --benchmark_format=json)

From 1 to 12 megapixels the time of an operation of linear cost grows by 12, or by more where the mask of a small picture
stays in the processor's cache and that of a large one does not; from 12 to 24, where neither does, it grows by 2. A large
parameter may cost 20 times a small one, 5,000 regions 3 times one.
"""

import statistics
import sys

from table import megapixels, runs_of, threads


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    times = {}
    for run in runs_of(sys.argv[1]):
        if threads(run["name"]) == 1:
            name = run["name"].split("/megapixels")[0]
            times.setdefault((name, megapixels(run["name"])), []).append(run["real_time"])
    median = {key: statistics.median(values) for key, values in times.items()}
    print("| operation | ms at 1 megapixel | ms at 12 | 12 : 1 | 24 : 12 | 5,000 regions : 1 |")
    print("|---|---:|---:|---:|---:|---:|")
    for name, size in sorted(median):
        if size != 1:
            continue
        large = median[name, 12]
        many = median.get((name.replace("/1_regions", "/5000_regions"), 12)) if name.endswith("/1_regions") else None
        print(f"| {name.removesuffix('/1_regions')} | {median[name, 1]:.2f} | {large:.2f} | {large / median[name, 1]:.1f} "
              f"| {median[name, 24] / large:.2f} | {'' if many is None else f'{many / large:.2f}'} |")
    print("\n| operation | ms with a small parameter, 12 megapixels | with a large one | large : small |")
    print("|---|---:|---:|---:|")
    for name, size in sorted(median):
        if name.startswith("reach/") and name.endswith("/small"):
            large = median[name.replace("/small", "/large"), size]
            print(f"| {name.removeprefix('reach/').removesuffix('/small')} | {median[name, size]:.1f} | {large:.1f} "
                  f"| {large / median[name, size]:.1f} |")


if __name__ == "__main__":
    main()
