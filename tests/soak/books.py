"""What a watcher writes about itself into its output folder: journal, running table and status."""

import json
import pathlib

JOURNAL = "watch_journal.jsonl"
TABLE = "watch_table.tsv"
STATUS = "watch_status.json"
LOCK = ".watch_lock"


class Books:
    """The journal, read on while it grows."""

    def __init__(self, output):
        self.output = pathlib.Path(output)
        self.forget()

    def forget(self):
        """Begins again at the start of the journal: somebody has cut it."""
        self._read = 0
        self.bad_lines = 0
        self.contents = {}  # key -> (name, SHA-256 of its files)
        self.done = []  # (key, folder), once for each line
        self._done_contents = set()
        self.failed = {}  # name -> sentences of those that are not tried again

    def read_on(self):
        try:
            with open(self.output / JOURNAL, "rb") as journal:
                journal.seek(self._read)
                news = journal.read()
        except FileNotFoundError:
            return
        end = news.rfind(b"\n") + 1
        self._read += end
        for line in news[:end].splitlines():
            try:
                self._take(json.loads(line))
            except (ValueError, LookupError, TypeError):
                self.bad_lines += 1

    def _take(self, line):
        event = line.get("event")
        if event in ("started", "known"):
            self.contents[line["key"]] = (line["name"], tuple(file["sha256"] for file in line["files"]))
        elif event == "done":
            self.done.append((line["key"], line["folder"]))
            self._done_contents.add(self.contents[line["key"]])
        elif event == "failed" and line["is_last"]:
            self.failed.setdefault(line["name"], []).append(line["error"])

    def is_done(self, name, shas):
        return (name, shas) in self._done_contents

    def has_failed(self, name):
        return name in self.failed


def last_line(journal):
    """(start of the last whole line, the line) or None."""
    data = pathlib.Path(journal).read_bytes()
    end = data.rfind(b"\n") + 1
    start = data.rfind(b"\n", 0, max(end - 1, 0)) + 1
    return (start, data[start:end]) if end > start > 0 else None


def tear_journal(output, rng):
    """Leaves the journal as a crash in the middle of a write can leave it. @return what was done, or None."""
    journal = pathlib.Path(output) / JOURNAL
    if not journal.exists() or (last := last_line(journal)) is None:
        return None
    start, line = last
    document = json.loads(line)
    if rng.random() < 0.4:
        with open(journal, "ab") as out:
            out.write(line[: rng.randrange(1, len(line))])
        return "journal: a torn line more"
    # A start is on the disk before its run makes the folder: with that folder there, its line cannot be torn.
    if document["event"] == "started" and (pathlib.Path(output) / document["folder"]).exists():
        return None
    with open(journal, "r+b") as out:
        out.truncate(start + rng.randrange(len(line)))
    return f"journal: the line \"{document['event']}\" torn"


def tear_another(output, rng):
    """Spoils what can be made anew from the rest."""
    name = rng.choice([TABLE, STATUS])
    file = pathlib.Path(output) / name
    if not file.exists():
        return None
    if rng.random() < 0.3:
        file.unlink()
        return f"{name} removed"
    size = file.stat().st_size
    with open(file, "r+b") as out:
        out.truncate(rng.randrange(size + 1))
    return f"{name} cut"


def read_status(output):
    return json.loads((pathlib.Path(output) / STATUS).read_text())
