"""Reads what a watcher left behind, with no code of the program, and lists what is not as it must be."""

import collections
import json
import math
import pathlib

from books import LOCK, TABLE, Books, read_status

RESULT_FILES = ["workflow.yaml", "provenance.json", "metrics.json", "metrics.tsv", "masks/final.png"]


def same_number(found, wanted):
    """Whole numbers are equal; others but for the rounding of a sum of at most 10^5 terms about 1."""
    if isinstance(wanted, int):
        return found == wanted
    return math.isclose(found, wanted, rel_tol=1e-11, abs_tol=1e-11)


def wrong_numbers(found, answers):
    for metric, wanted in answers.items():
        try:
            is_right = same_number(float(found[metric]), wanted)
        except (KeyError, TypeError, ValueError):
            is_right = False
        if not is_right:
            yield f"{metric} is {found.get(metric)!r} and must be {wanted!r}"


class Known:
    """What the folder has held: contents with their answers, and half-written ones that stood for a while."""

    def __init__(self, plan, stood):
        self.captures = {capture.name: capture for capture in plan}
        self.contents = {
            (capture.name, content.shas()): content
            for capture in plan
            if capture.kind != "incomplete"
            for content in capture.contents
        }
        self.stood = stood

    def could_be_taken(self, name, shas):
        """Half-written, but it stood there for as long as a watcher wants to see a file unchanged."""
        capture = self.captures.get(name)
        if capture is None:
            return False
        whole = {sha for content in capture.contents for sha in content.shas()}
        half = set().union(*(self.stood.get(file, set()) for file in capture.contents[0].files))
        return any(sha in half for sha in shas) and all(sha in half or sha in whole for sha in shas)

    def must_be_done(self):
        return {key for key, content in self.contents.items() if content.answers is not None and self.is_due(key)}

    def must_be_failed(self):
        return {key for key, content in self.contents.items() if content.answers is None}

    def is_due(self, key):
        capture, content = self.captures[key[0]], self.contents[key]
        return content.is_sure or content is capture.contents[-1]


class Findings(list):
    def note(self, about, what):
        self.append(f"{about}: {what}")


def read_results(output, findings):
    """(name, SHA-256 of the inputs) -> folders, for all that can be seen in the output folder."""
    folders = collections.defaultdict(list)
    for entry in sorted(pathlib.Path(output).iterdir()):
        if entry.name.startswith(".") or not entry.is_dir():
            continue
        lacks = [name for name in RESULT_FILES if not (entry / name).is_file()]
        if lacks:
            findings.note(entry.name, f"a results folder without {', '.join(lacks)}")
            continue
        try:
            inputs = json.loads((entry / "provenance.json").read_text())["inputs"]
            name = pathlib.Path(inputs[0]["path"]).name
            folders[name, tuple(one["sha256"] for one in inputs)].append(entry)
        except (ValueError, LookupError, TypeError) as problem:
            findings.note(entry.name, f"provenance.json cannot be read: {problem!r}")
    return folders


def check_folders(folders, known, findings):
    for key, entries in folders.items():
        name, shas = key
        names = ", ".join(entry.name for entry in entries)
        if len(entries) > 1:
            findings.note(name, f"one content has {len(entries)} results folders: {names}")
        if key not in known.contents:
            if not known.could_be_taken(name, shas):
                findings.note(name, f"{names} was made from a content that never stood there (SHA-256 {shas})")
        elif known.contents[key].answers is None:
            findings.note(name, f"{names}: results of a capture that cannot be measured")
        else:
            for entry in entries:
                check_numbers(entry, known.contents[key].answers, findings)
    for key in sorted(known.must_be_done() - set(folders)):
        findings.note(key[0], f"no results folder ({known.captures[key[0]].kind}, SHA-256 {key[1]})")


def check_numbers(folder, answers, findings):
    try:
        document = json.loads((folder / "metrics.json").read_text())
        whole = {}
        for operation in document["results"].values():
            whole.update(operation["metrics"])
        regions = {name: region["metrics"] for name, region in document["regions"].items()}
    except (ValueError, LookupError, TypeError, AttributeError) as problem:
        findings.note(folder.name, f"metrics.json cannot be read: {problem!r}")
        return
    for wrong in wrong_numbers(whole, answers):
        findings.note(folder.name, f"metrics.json: {wrong}")
    if set(regions) != {"ROI_1"}:
        findings.note(folder.name, f"metrics.json has the regions {sorted(regions)} and must have ROI_1 alone")
    for metrics in regions.values():
        for wrong in wrong_numbers(metrics, answers):
            findings.note(folder.name, f"metrics.json, region: {wrong}")


def check_leftovers(output, findings):
    for entry in pathlib.Path(output).rglob(".*"):
        if entry.name != LOCK or entry.parent != output:
            findings.note(entry.relative_to(output), "a hidden left-over")


def check_journal(books, folders, known, findings):
    """The journal says the same as the folders."""
    if books.bad_lines:
        findings.note("journal", f"{books.bad_lines} lines cannot be read")
    lines = collections.Counter(key for key, _ in books.done)
    for key, count in lines.items():
        if count > 1:
            findings.note(key, f"{count} lines \"done\" in the journal")
    by_folder = {entry.name: content for content, entries in folders.items() for entry in entries}
    promised = {folder: books.contents.get(key) for key, folder in books.done}
    for folder, content in promised.items():
        if folder not in by_folder:
            findings.note(folder, "done in the journal, and there is no such results folder")
        elif by_folder[folder] != content:
            findings.note(folder, f"the journal has it for {content}, its provenance.json for {by_folder[folder]}")
    for folder in sorted(set(by_folder) - set(promised)):
        findings.note(folder, "a results folder that the journal does not call done")
    failing = {name for name, _ in known.must_be_failed()}
    for name in sorted(failing - set(books.failed)):
        findings.note(name, "cannot be measured, and the journal does not say so")
    for name, errors in books.failed.items():
        capture = known.captures.get(name)
        half_written = capture and any(known.stood.get(file) for file in capture.contents[0].files)
        if name not in failing and not half_written:
            findings.note(name, f"failed, though nothing was wrong with it: {errors[0]}")


def check_table(file, books, known, findings):
    """Every region of everything done once, with the known numbers."""
    try:
        text = pathlib.Path(file).read_text()
    except OSError as problem:
        findings.note("table", f"cannot be read: {problem}")
        return
    header, *rows = text.removesuffix("\n").split("\n")
    columns = header.split("\t")
    if columns[:3] != ["Key", "Capture", "Region"]:
        findings.note("table", f"begins with the columns {columns[:3]}")
        return
    if not text.endswith("\n"):
        findings.note("table", "its last line has no end")
    seen = collections.Counter()
    for row in rows:
        fields = dict(zip(columns, row.split("\t")))
        if row.count("\t") != len(columns) - 1:
            findings.note("table", f"a row with {row.count(chr(9)) + 1} fields below {len(columns)} columns: {row}")
            continue
        seen[fields["Key"], fields["Region"]] += 1
        content = known.contents.get(books.contents.get(fields["Key"]))
        if content is not None and content.answers is not None:
            for wrong in wrong_numbers(fields, content.answers):
                findings.note(f"table, {fields['Key']}", wrong)
    wanted = {(key, "ROI_1") for key, _ in books.done}
    for row, count in seen.items():
        if row not in wanted:
            findings.note("table", f"a row for {row}, which is not done")
        elif count > 1:
            findings.note("table", f"{count} rows for {row}")
    for row in sorted(wanted - set(seen)):
        findings.note("table", f"no row for {row}")


def check_status(output, books, known, findings):
    """After a clean end, with nothing left to do."""
    try:
        status = read_status(output)
        last = {capture.name: capture for capture in known.captures.values()}
        failed = sorted(
            name
            for name, capture in last.items()
            if capture.kind != "incomplete" and capture.contents[-1].answers is None
        )
        incomplete = {name: sorted(capture.absent) for name, capture in last.items() if capture.kind == "incomplete"}
        wanted = {"done": len(books.done), "waiting": len(incomplete), "failed": failed, "incomplete": incomplete}
        found = {
            "done": status["done"],
            "waiting": status["waiting"],
            "failed": sorted(one["file"] for one in status["failed"]),
            "incomplete": {one["file"]: sorted(one["missing"]) for one in status["incomplete"]},
        }
        for what, value in wanted.items():
            if found[what] != value:
                findings.note("status", f"{what} is {found[what]} and must be {value}")
        if status["problems"]:
            findings.note("status", f"problems: {status['problems']}")
        if not status["stopped"]:
            findings.note("status", "does not say that the watcher ended")
        for one in status["failed"]:
            if not one["error"].endswith("."):
                findings.note("status", f"{one['file']}: no sentence: {one['error']!r}")
    except (OSError, ValueError, LookupError, TypeError) as problem:
        findings.note("status", f"cannot be read: {problem!r}")


def check_all(output, plan, stood):
    """What is wrong in the output folder of a watcher that ended cleanly with nothing left to do."""
    output = pathlib.Path(output)
    findings = Findings()
    known = Known(plan, stood)
    books = Books(output)
    books.read_on()
    folders = read_results(output, findings)
    check_folders(folders, known, findings)
    check_leftovers(output, findings)
    check_journal(books, folders, known, findings)
    check_table(output / TABLE, books, known, findings)
    check_status(output, books, known, findings)
    return findings
