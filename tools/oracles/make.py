#!/usr/bin/python3
"""Computes the expected values of operations with independent programs.

usage: make.py [KEY...]

Writes `tests/golden/oracles/{mask,result}/<key>.json` and the pictures beside them, for the named operations or for all.
Needs python3-numpy, python3-scipy, python3-skimage and python3-opencv, some families imagej too, and the folder of real
pictures; the tests need none of them.
"""

import importlib
import pathlib
import sys

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))
sys.dont_write_bytecode = True

import cases  # noqa: E402  (the folder must be on the path first)


def main():
    for module in sorted(HERE.glob("*.py")):
        if module.stem not in ("cases", "make", "table"):
            importlib.import_module(module.stem)
    known = {operation.key for operation, _ in cases.OPERATIONS}
    unknown = set(sys.argv[1:]) - known
    if unknown:
        sys.exit(f"There is no oracle for {', '.join(sorted(unknown))}.")
    for operation, add_cases in cases.OPERATIONS:
        if len(sys.argv) == 1 or operation.key in sys.argv[1:]:
            add_cases(operation)
            operation.write()
            print(f"{operation.kind} {operation.key}: {len(operation.record['cases'])} cases")


if __name__ == "__main__":
    main()
