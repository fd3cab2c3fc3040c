#!/usr/bin/env python3
"""Drops captures into a watched folder piece by piece, kills the watcher, and checks that each was done exactly once.

Exit codes: 0 all is as it must be; 1 something is not, and it is listed; 2 wrong usage.
"""

import argparse
import pathlib
import random
import shutil
import signal
import subprocess
import sys
import tempfile
import time

import books as journal_books
from books import STATUS, TABLE, Books
from check import check_all
from drops import Folder, drop
from plans import PICTURE_WORKFLOW, plan_captures, plan_pictures, read_samples
from self_test import self_test

POLL_SECONDS = 0.05
# Between two looks a file may be seen at the end of the one and at the beginning of the other.
STANDS_AFTER_SECONDS = POLL_SECONDS / 2
RESTART_SECONDS = 5.0
PATIENCE_SECONDS = 120.0  # without anything new, before the soak gives up
EXIT_INTERRUPTED = 130


class Watcher:
    """The watching process, started and ended again and again."""

    def __init__(self, command, log):
        self.command = command
        self.log = log
        self.process = None
        self.peak_kilobytes = 0
        self.starts = 0
        self.started_ns = 0

    def start(self):
        self.starts += 1
        with open(self.log, "ab") as log:
            log.write(f"--- start {self.starts}\n".encode())
            log.flush()
            self.started_ns = time.time_ns() + 20_000_000  # files have the time of the last tick of the system
            self.process = subprocess.Popen(self.command, stdout=log, stderr=log)

    def has_ended(self):
        return self.process.poll() is not None

    def end(self, number):
        """@return the exit code."""
        self._note_memory()
        self.process.send_signal(number)
        return self.process.wait(timeout=60)

    def _note_memory(self):
        try:
            for line in pathlib.Path(f"/proc/{self.process.pid}/status").read_text().splitlines():
                if line.startswith("VmHWM:"):
                    self.peak_kilobytes = max(self.peak_kilobytes, int(line.split()[1]))
        except OSError:
            pass


class Round:
    """One folder, one plan, one watcher."""

    def __init__(self, name, place, plan, workflow, kills, options, rng):
        self.name = name
        self.rng = rng
        self.plan = plan
        place = place / name
        self.input, self.output = place / "input", place / "output"
        self.input.mkdir(parents=True)
        self.folder = Folder(self.input, STANDS_AFTER_SECONDS)
        self.books = Books(self.output)
        self.command = [options.orvexa, "watch", str(workflow), str(self.input), "-o", str(self.output)]
        self.command += ["--poll", str(POLL_SECONDS), "--json"]
        self.watcher = Watcher(self.command, place / "watch.log")
        # By how much is done, so that they spread over the round however fast the machine is.
        self.kills = sorted(rng.sample(range(len(plan)), min(kills, len(plan))))
        self.counts = {"SIGKILL": 0, "SIGTERM": 0}
        self.findings = []
        self.restart_seconds = 0.0

    def run(self):
        first = next(capture for capture in self.plan if capture.kind == "plain")
        for _ in drop(self.folder, first, self.books, self.rng):
            pass
        self.watcher.start()
        self._drop_all([capture for capture in self.plan if capture is not first])
        self._wait_for("everything is done", self._is_all_settled)
        self._end_cleanly()
        self.findings += check_all(self.output, self.plan, self.folder.stood)
        self._start_once_more()

    # ---- Dropping and killing

    def _drop_all(self, captures):
        waiting = list(reversed(captures))
        active = []  # [steps, goes on at, condition]
        ahead = 0
        last_progress = time.monotonic()
        while waiting or active:
            self._look()
            if not active:
                # Now the watcher has nothing left to do, now it has a queue.
                ahead = self.rng.choice([1, 5, 40, 150])
            is_far_ahead = len(self.plan) - len(waiting) - len(self.books.done) > ahead
            while waiting and len(active) < 12 and not is_far_ahead:
                active.append([drop(self.folder, waiting.pop(), self.books, self.rng), 0.0, None])
                is_far_ahead = len(self.plan) - len(waiting) - len(self.books.done) > ahead
            now = time.monotonic()
            ready = [one for one in active if one[1] <= now and (one[2] is None or one[2]())]
            if not ready:
                if now - last_progress > PATIENCE_SECONDS:
                    self.findings.append(f"nothing new for {PATIENCE_SECONDS:.0f} s, {len(active)} captures under way")
                    return
                time.sleep(0.005)
                continue
            last_progress = now
            for _ in range(self.rng.randint(1, 200)):
                self._step(self.rng.choice(ready), active, ready)
                if not ready:
                    break

    def _step(self, one, active, ready):
        one[1], one[2] = 0.0, None
        try:
            wish = next(one[0])
        except StopIteration:
            active.remove(one)
            ready.remove(one)
            return
        if callable(wish):
            one[2] = wish
        elif wish is not None:
            one[1] = time.monotonic() + wish
        if wish is not None:
            ready.remove(one)

    def _look(self):
        self.books.read_on()
        if self.watcher.has_ended():
            code = self.watcher.process.returncode
            self.findings.append(f"the watcher ended by itself with exit code {code} (start {self.watcher.starts})")
            self.watcher.start()
        if self.kills and len(self.books.done) >= self.kills[0]:
            self.kills.pop(0)
            time.sleep(self.rng.uniform(0, 0.15))
            self._interrupt()

    def _interrupt(self):
        """Ends the watcher somehow, spoils what a crash may spoil, and starts it again, perhaps to end it at once."""
        while True:
            is_kill = self.rng.random() < 0.75
            number = signal.SIGKILL if is_kill else signal.SIGTERM
            self.counts[number.name] += 1
            code = self.watcher.end(number)
            # A start of so short a life that it has no handler yet ends by the signal.
            if code not in ((-number,) if is_kill else (EXIT_INTERRUPTED, -number)):
                self.findings.append(f"exit code {code} after {number.name} (start {self.watcher.starts})")
            if is_kill:
                self._spoil()
            self.watcher.start()
            if self.rng.random() < 0.7:
                return
            time.sleep(self.rng.uniform(0, 0.4))

    def _spoil(self):
        deeds = []
        if self.rng.random() < 0.4:
            deeds.append(journal_books.tear_journal(self.output, self.rng))
            self.books.forget()
        if self.rng.random() < 0.2:
            deeds.append(journal_books.tear_another(self.output, self.rng))
        for deed in filter(None, deeds):
            kind = deed.split(":")[0].split(" ")[0] + " torn"
            self.counts[kind] = self.counts.get(kind, 0) + 1

    # ---- The end

    def _is_all_settled(self):
        return all(
            self.books.has_failed(capture.name)
            if capture.contents[-1].answers is None
            else self.books.is_done(capture.name, capture.contents[-1].shas())
            for capture in self.plan
            if capture.kind != "incomplete"
        ) and self._has_reported_the_rest()

    def _has_reported_the_rest(self):
        """The watcher that runs now has looked at everything: after a restart what fails is tried once more."""
        incomplete = sum(1 for one in self.plan if one.kind == "incomplete")
        failing = sum(1 for one in self.plan if one.contents[-1].answers is None)
        try:
            if (self.output / STATUS).stat().st_mtime_ns < self.watcher.started_ns:
                return False  # of the one before it
            status = journal_books.read_status(self.output)
            counts = status["waiting"], len(status["incomplete"]), len(status["failed"])
            return counts == (incomplete, incomplete, failing)
        except (OSError, ValueError, LookupError):
            return False

    def _wait_for(self, what, condition):
        done, since = -1, time.monotonic()
        while not condition():
            self._look()
            if len(self.books.done) != done:
                done, since = len(self.books.done), time.monotonic()
            if time.monotonic() - since > PATIENCE_SECONDS:
                self.findings.append(f"not in time: {what}")
                return
            time.sleep(0.02)

    def _end_cleanly(self):
        code = self.watcher.end(signal.SIGTERM)
        if code != EXIT_INTERRUPTED:
            self.findings.append(f"exit code {code} at the clean end")

    def _start_once_more(self):
        """Everything is known: nothing may be done again."""
        for capture in self.plan:
            if capture.kind in ("incomplete", "broken"):
                (self.input / capture.name).unlink()
        before = self._state()
        began = time.monotonic()
        with open(self.watcher.log, "ab") as log:
            once = subprocess.run(self.command + ["--once"], stdout=log, stderr=log, check=False, timeout=600)
        self.restart_seconds = time.monotonic() - began
        if once.returncode != 0:
            self.findings.append(f"exit code {once.returncode} with --once and everything known")
        if self.restart_seconds > RESTART_SECONDS:
            self.findings.append(f"a start with everything known took {self.restart_seconds:.1f} s")
        for what, old, new in zip(("results folders", "done lines", "table"), before, self._state()):
            if old != new:
                self.findings.append(f"a start with everything known changed the {what}")

    def _state(self):
        books = Books(self.output)
        books.read_on()
        return sorted(self.output.iterdir()), books.done, (self.output / TABLE).read_bytes()

    def summary(self):
        books = Books(self.output)
        books.read_on()
        kinds = ", ".join(f"{count} {kind}" for kind, count in sorted(self.counts.items()))
        half_written = sum(len(shas) for shas in self.folder.stood.values())
        return (
            f"{self.name}: {len(self.plan)} dropped, {len(books.done)} contents done, {len(books.failed)} captures "
            f"failed at some time; {self.watcher.starts} starts ({kinds}); {half_written} half-written states stood "
            f"long enough to be taken; peak memory {self.watcher.peak_kilobytes / 1024:.0f} MiB; "
            f"{self.restart_seconds:.1f} s for a start with everything known"
        )


def soak(options):
    place = pathlib.Path(options.keep or tempfile.mkdtemp(prefix="orvexa_soak_"))
    place.mkdir(parents=True, exist_ok=True)
    rng = random.Random(options.seed)
    print(f"seed {options.seed}, in {place}", flush=True)
    findings = []
    began = time.monotonic()
    try:
        samples = place / "samples"
        make = [options.orvexa, "sample", str(samples), "--count", str(options.captures), "--quiet", "--force"]
        subprocess.run(make, check=True)
        pictures = max(20, options.captures // 10)
        workflow = place / "pictures.yaml"
        workflow.write_text(PICTURE_WORKFLOW)
        captures = plan_captures(read_samples(samples / "series"), options.captures, rng)
        rounds = [
            Round("captures", place, captures, samples / "series" / "series.yaml", options.kills, options, rng),
            Round("pictures", place, plan_pictures(pictures, rng), workflow, options.kills // 4, options, rng),
        ]
        for one in rounds:
            try:
                one.run()
            finally:
                if one.watcher.process is not None and not one.watcher.has_ended():
                    one.watcher.process.kill()
                    one.watcher.process.wait()
            print(one.summary(), flush=True)
            findings += [f"{one.name}: {finding}" for finding in one.findings]
    finally:
        if findings or options.keep or sys.exc_info()[0] is not None:
            print(f"Everything is still in {place}.")
        else:
            shutil.rmtree(place)
    for finding in findings:
        print(f"WRONG  {finding}")
    verdict = f"{len(findings)} deviations" if findings else "every capture was done exactly once"
    print(f"seed {options.seed}: {verdict}, {time.monotonic() - began:.0f} s")
    return 1 if findings else 0


def main():
    root = pathlib.Path(__file__).resolve().parents[2]
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--captures", type=int, default=2000, help="how many; a tenth of it as pictures besides")
    parser.add_argument("--kills", type=int, default=60, help="how often the watcher is ended in between, at least")
    parser.add_argument("--seed", type=int, default=random.randrange(1_000_000), help="of the order and the pieces")
    parser.add_argument("--orvexa", default=str(root / "build/release/src/orvexa/orvexa"), help="the program")
    parser.add_argument("--keep", metavar="DIR", help="a new folder to work in, which stays")
    parser.add_argument("--self-test", action="store_true", help="only see that the checks find what is wrong")
    options = parser.parse_args()
    if options.self_test:
        return self_test()
    if options.captures < 20 or options.kills < 0:
        parser.error("at least 20 captures and no kills below 0")
    if not pathlib.Path(options.orvexa).is_file():
        parser.error(f"{options.orvexa} is not there: cmake --workflow --preset release, or --orvexa PATH")
    if options.keep and pathlib.Path(options.keep).exists() and any(pathlib.Path(options.keep).iterdir()):
        parser.error(f"{options.keep} is not empty")
    options.orvexa = str(pathlib.Path(options.orvexa).resolve())
    return soak(options)


if __name__ == "__main__":
    sys.exit(main())
