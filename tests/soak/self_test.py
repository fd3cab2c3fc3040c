"""Sees that the checks find what is wrong: each test spoils one thing in an output folder made up here."""

import json
import pathlib
import shutil
import tempfile

from books import JOURNAL, LOCK, STATUS, TABLE
from check import RESULT_FILES, check_all
from drops import Capture, Content, sha256

ANSWERS = {"area": 12, "area_fraction": 0.1}


def made_up_plan():
    """Two contents one after the other, one that fails, one that waits, and two with equal pixels."""

    def files(name, pixels=b"pixels"):
        return {f"HDR_{name}.INF": b"Image A = " + name.encode(), f"{name}_A.tif": pixels}

    return [
        Capture("other pixels", [Content(files("a"), ANSWERS), Content(files("a", b"more"), {**ANSWERS, "area": 13})]),
        Capture("plain", [Content(files("b"), ANSWERS)]),
        Capture("broken", [Content(files("c", b"pi"))]),
        Capture("incomplete", [Content(files("d"), ANSWERS)], absent=frozenset(["d_A.tif"])),
        Capture("plain", [Content(files("e"), ANSWERS)]),
    ]


def write_output(output, plan):
    """What a watcher without fault leaves."""
    journal = [{"journal": "orvexa watch", "format": 1}]
    table = ["\t".join(["Key", "Capture", "Region", "Date", "Time", *ANSWERS])]
    failed, incomplete = [], []
    for capture in plan:
        if capture.kind == "incomplete":
            incomplete.append({"file": capture.name, "missing": sorted(capture.absent)})
            continue
        for number, content in enumerate(capture.contents, 1):
            key = f"{capture.name}#{number}"
            names = list(content.files)
            if content.answers is None:
                error = f"{names[1]} ends too early."
                journal.append({"event": "failed", "key": key, "name": capture.name, "error": error, "is_last": True})
                failed.append({"file": capture.name, "error": error})
                continue
            inputs = [{"name": name, "sha256": sha256(data)} for name, data in content.files.items()]
            folder = f"{capture.name[4:5]}_{number}"
            journal.append({"event": "started", "key": key, "name": capture.name, "files": inputs, "folder": folder})
            journal.append({"event": "done", "key": key, "folder": folder})
            table.append("\t".join([key, folder, "ROI_1", "", "", *map(str, content.answers.values())]))
            for name in RESULT_FILES:
                (output / folder / name).parent.mkdir(parents=True, exist_ok=True)
                (output / folder / name).write_text("")
            provenance = {"inputs": [{"path": "/in/" + one["name"], "sha256": one["sha256"]} for one in inputs]}
            (output / folder / "provenance.json").write_text(json.dumps(provenance))
            metrics = {
                "results": {"area": {"metrics": content.answers}},
                "regions": {"ROI_1": {"metrics": content.answers}},
            }
            (output / folder / "metrics.json").write_text(json.dumps(metrics))
    (output / JOURNAL).write_text("".join(json.dumps(line) + "\n" for line in journal))
    (output / TABLE).write_text("\n".join(table) + "\n")
    status = {"done": 4, "waiting": 1, "failed": failed, "incomplete": incomplete, "problems": [], "stopped": "now"}
    (output / STATUS).write_text(json.dumps(status))
    (output / LOCK).write_text("")


def replace(file, old, new):
    text = file.read_text()
    assert old in text, f"{old} is not in {file}"
    file.write_text(text.replace(old, new, 1))


def without_line(file, part):
    lines = file.read_text().splitlines(keepends=True)
    kept = [line for line in lines if part not in line]
    assert len(kept) < len(lines), f"{part} is not in {file}"
    file.write_text("".join(kept))


def again(file, part):
    file.write_text(file.read_text() + next(line for line in file.read_text().splitlines(True) if part in line))


def fail_of_another(output):
    again(output / JOURNAL, '"failed"')
    replace(output / JOURNAL, '"name": "HDR_c', '"name": "HDR_e')


# What is spoilt, how, and what the checks must say about it.
FAULTS = [
    ("a capture done twice", lambda o: shutil.copytree(o / "b_1", o / "b_2"), "one content has 2 results folders"),
    ("a capture not done", lambda o: shutil.rmtree(o / "e_1"), "no results folder (plain"),
    ("a content not done", lambda o: shutil.rmtree(o / "a_2"), "no results folder (other pixels"),
    ("a results folder that is not whole", lambda o: (o / "b_1" / "metrics.tsv").unlink(), "without metrics.tsv"),
    ("no JSON", lambda o: (o / "b_1" / "provenance.json").write_text("{"), "provenance.json cannot be read"),
    (
        "inputs that never stood there",
        lambda o: replace(o / "b_1" / "provenance.json", sha256(b"pixels"), sha256(b"pix")),
        "made from a content that never stood there",
    ),
    (
        "results of a capture that fails",
        lambda o: replace(o / "b_1" / "provenance.json", "/in/HDR_b", "/in/HDR_c")
        or replace(o / "b_1" / "provenance.json", sha256(b"Image A = b"), sha256(b"Image A = c"))
        or replace(o / "b_1" / "provenance.json", sha256(b"pixels"), sha256(b"pi")),
        "results of a capture that cannot be measured",
    ),
    (
        "results of a capture that is not complete",
        lambda o: replace(o / "b_1" / "provenance.json", "/in/HDR_b", "/in/HDR_d")
        or replace(o / "b_1" / "provenance.json", sha256(b"Image A = b"), sha256(b"Image A = d")),
        "made from a content that never stood there",
    ),
    ("a wrong count", lambda o: replace(o / "a_2" / "metrics.json", "13", "12"), "area is 12 and must be 13"),
    ("a number a little off", lambda o: replace(o / "b_1" / "metrics.json", "0.1", "0.1000001"), "area_fraction is"),
    ("a number missing", lambda o: replace(o / "b_1" / "metrics.json", '"area": 12', '"a": 12'), "area is None"),
    ("a region too many", lambda o: replace(o / "b_1" / "metrics.json", '"ROI_1"', '"ROI_2"'), "the regions ['ROI_2']"),
    ("a hidden left-over", lambda o: (o / ".b_1.partial-00000000").mkdir(), "a hidden left-over"),
    ("a hidden file inside", lambda o: (o / "b_1" / ".watch_lock").write_text(""), "a hidden left-over"),
    ("a done line missing", lambda o: without_line(o / JOURNAL, '"folder": "b_1"}'), "does not call done"),
    ("a done line twice", lambda o: again(o / JOURNAL, '"done"'), '2 lines "done"'),
    ("a journal line torn", lambda o: replace(o / JOURNAL, '{"event": "done"', '{"event": "do'), "1 lines cannot"),
    (
        "another content in the journal",
        lambda o: replace(o / JOURNAL, sha256(b"more"), sha256(b"mere")),
        "the journal has it for",
    ),
    ("a failure not written down", lambda o: without_line(o / JOURNAL, '"failed"'), "the journal does not say so"),
    ("a failure of what was right", fail_of_another, "though nothing was wrong with it"),
    ("a row missing", lambda o: without_line(o / TABLE, "HDR_b.INF#1"), "no row for ('HDR_b.INF#1', 'ROI_1')"),
    ("a row twice", lambda o: again(o / TABLE, "HDR_b.INF#1"), "2 rows for"),
    ("a row of nothing", lambda o: replace(o / TABLE, "HDR_b.INF#1", "HDR_b.INF#9"), "which is not done"),
    ("a torn row", lambda o: replace(o / TABLE, "\t12\t", "\t"), "a row with 6 fields"),
    ("a wrong number in the table", lambda o: replace(o / TABLE, "\t13\t", "\t12\t"), "area is '12' and must be 13"),
    ("a table without its last end", lambda o: (o / TABLE).write_text((o / TABLE).read_text()[:-1]), "has no end"),
    ("no table", lambda o: (o / TABLE).unlink(), "table: cannot be read"),
    ("a wrong count in the status", lambda o: replace(o / STATUS, '"done": 4', '"done": 5'), "done is 5 and must be 4"),
    ("one too many waits", lambda o: replace(o / STATUS, '"waiting": 1', '"waiting": 2'), "waiting is 2 and"),
    ("a failure not in the status", lambda o: replace(o / STATUS, "HDR_c", "HDR_b"), "failed is ['HDR_b.INF']"),
    ("another missing image", lambda o: replace(o / STATUS, "d_A.tif", "d_B.tif"), "incomplete is"),
    ("a problem", lambda o: replace(o / STATUS, '"problems": []', '"problems": ["No."]'), "problems: ['No.']"),
    ("no clean end", lambda o: replace(o / STATUS, '"now"', "null"), "does not say that the watcher ended"),
    ("no status", lambda o: (o / STATUS).unlink(), "status: cannot be read"),
]


def findings_after(spoil, plan, stood):
    with tempfile.TemporaryDirectory(prefix="orvexa_soak_test_") as place:
        output = pathlib.Path(place)
        write_output(output, plan)
        spoil(output)
        return check_all(output, plan, stood)


def self_test():
    wrong = []
    plan = made_up_plan()
    clean = findings_after(lambda output: None, plan, {})
    if clean:
        wrong.append(f"an output without fault: {clean}")
    for name, spoil, expected in FAULTS:
        findings = findings_after(spoil, plan, {})
        if not any(expected in finding for finding in findings):
            wrong.append(f"{name}: expected \"{expected}\", found {findings}")
    # A half-written image that stood long enough may be taken, and may fail.
    half_written = {"b_A.tif": {sha256(b"pix")}, "e_A.tif": {sha256(b"pi")}}
    if taken := findings_after(fail_of_another, plan, half_written):
        wrong.append(f"a half-written image that stood long enough failed: {taken}")
    for one in wrong:
        print(f"WRONG  {one}")
    print(f"{len(FAULTS) + 2} cases, {len(wrong)} wrong")
    return 1 if wrong else 0
