#!/usr/bin/python3
"""Prints the table of operations against their oracles as Markdown.

usage: table.py ORACLES.json

ORACLES.json is what the model's tests write with --gtest_filter='Oracles/*' --gtest_output=json:ORACLES.json.
"""

import fnmatch
import json
import pathlib
import sys

GOLDEN = pathlib.Path(__file__).resolve().parent.parent.parent / "tests" / "golden" / "oracles"


def cell(text):
    return text.replace("|", "\\|")


def reason_of(kind, case, where):
    """Why the case may differ in pixels or in a metric, as it says itself; empty when it does not."""
    if kind == "mask":
        return case.get("why", "")
    reasons = [entry["why"] for pattern, entry in case.get("looser", {}).items() if fnmatch.fnmatchcase(where, pattern)]
    return reasons[-1] if reasons else ""


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    tests = [test for suite in json.loads(pathlib.Path(sys.argv[1]).read_text())["testsuites"]
             for test in suite["testsuite"]]
    largest = {}
    for test in tests:
        if test.get("failures"):
            sys.exit(f"{test['name']} failed")
        if "operation" not in test:
            continue
        place = (test["kind"], test["operation"])
        case = test["name"].split("/", 1)[1].removeprefix(f"{test['kind']}_{test['operation']}_")
        found = (float(test["scientific"]), test["where"], case)
        count, worst = largest.get(place, (0, (-1.0, "", "")))
        largest[place] = (count + 1, max(worst, found))
    print("| operation | oracle | cases | largest difference | where | another convention, reason of a difference |")
    print("|---|---|---:|---:|---|---|")
    for (kind, key), (count, (difference, where, case)) in largest.items():
        record = json.loads((GOLDEN / kind / f"{key}.json").read_text(encoding="utf-8"))
        reason = ""
        if difference > 1e-9:
            reason = reason_of(kind, next(one for one in record["cases"] if one["name"] == case), where)
            if not reason:
                sys.exit(f"{kind} {key}: {case} differs by {difference} in {where} without a reason")
        remarks = [text.rstrip(".") for text in (record["convention"], reason) if text]
        if difference == 0:
            amount, place = "0", ""
        else:
            amount = f"{difference:.0f} px" if kind == "mask" else f"{difference:.1e}"
            place = f"`{where}` of {case}"
        print(f"| `{key}` ({kind}) | {cell(record['oracle'])} | {count} | {amount} | {cell(place)} | "
              f"{cell('; '.join(remarks))} |")


if __name__ == "__main__":
    main()
