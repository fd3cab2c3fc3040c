"""How the soak drops captures into the watched folder: in pieces, side by side, with replacements."""

import dataclasses
import hashlib
import os
import pathlib
import time


def sha256(data):
    return hashlib.sha256(data).hexdigest()


@dataclasses.dataclass
class Content:
    """One content of a capture, by file name, the header first; later ones replace it under the same names."""

    files: dict
    answers: dict = None  # metric -> value; None: it cannot be measured and must be listed as failed
    is_sure: bool = True  # stands long enough: exactly one result. Otherwise it may be replaced too early: at most one

    def shas(self):
        return tuple(sha256(data) for data in self.files.values())


@dataclasses.dataclass
class Capture:
    """Files of one name that belong together, and how they arrive."""

    kind: str
    contents: list
    absent: frozenset = frozenset()  # images that do not come with this capture, but with another one or never

    @property
    def name(self):
        return next(iter(self.contents[0].files))


class Folder:
    """Writes into the watched folder and remembers which half-written contents stood there long enough to be taken."""

    def __init__(self, path, stands_after_seconds):
        self.path = pathlib.Path(path)
        self.stands_after_seconds = stands_after_seconds
        self.stood = {}  # file name -> SHA-256 of half-written contents
        self._now = {}  # file name -> (since when, bytearray or None) while it is half-written

    def _change(self, name, act, half_written):
        """`half_written`: what stands there after `act`, or None when that is no half-written content."""
        before = time.monotonic()
        result = act()
        after = time.monotonic()
        since, content = self._now.pop(name, (after, None))
        # The clock is read outside the two changes, so this is the longest that the content can have stood.
        if content is not None and after - since >= self.stands_after_seconds:
            self.stood.setdefault(name, set()).add(sha256(content))
        if half_written is not None:
            self._now[name] = (before, half_written)
        return result

    def write(self, name, data, pieces):
        """In place, one piece after the other; yields after each."""
        so_far = b""
        out = self._change(name, lambda: open(self.path / name, "wb", buffering=0), so_far)
        with out:
            yield
            for piece in pieces:
                so_far += piece
                ends = len(so_far) == len(data)
                self._change(name, lambda: out.write(piece), None if ends else so_far)
                yield

    def rename(self, temporary, name):
        self._change(name, lambda: os.replace(self.path / temporary, self.path / name), None)

    def remove(self, name):
        self._change(name, lambda: os.unlink(self.path / name), None)


def pieces_of(data, rng):
    """The data cut into pieces: at once, a few bytes each, or some hundreds to thousands."""
    style = rng.random()
    if style < 0.15:
        return [data]
    smallest, largest = (1, 9) if style < 0.35 or len(data) < 1000 else (200, 5000)
    pieces = []
    start = 0
    while start < len(data):
        size = rng.randint(smallest, largest)
        pieces.append(data[start : start + size])
        start += size
    return pieces


def write_somehow(folder, name, data, rng):
    """In place, or under a temporary name that is no image's and no header's."""
    if rng.random() < 0.3:
        temporary = rng.choice([f".{name}.tmp", f"{name}.part", f"upload-{rng.getrandbits(32):08x}"])
        yield from folder.write(temporary, data, pieces_of(data, rng))
        folder.rename(temporary, name)
        yield
    else:
        yield from folder.write(name, data, pieces_of(data, rng))


def write_all(folder, files, rng):
    """All files, in random order or side by side."""
    names = list(files)
    rng.shuffle(names)
    writers = [write_somehow(folder, name, files[name], rng) for name in names]
    together = rng.choice([1, len(writers)])
    while writers:
        writer = rng.choice(writers[:together])
        try:
            next(writer)
            yield
        except StopIteration:
            writers.remove(writer)


def drop(folder, capture, books, rng):
    """The steps in which a capture arrives. Yields None to go on, seconds to pause, or a condition to wait for."""
    first = capture.contents[0]
    files = {name: data for name, data in first.files.items() if name not in capture.absent}
    if capture.kind == "stalled in an image":
        late = list(files)[-1]
        cut = rng.randrange(len(files[late]))
        yield from write_all(folder, {name: data for name, data in files.items() if name != late}, rng)
        writer = folder.write(late, files[late], [files[late][:cut], files[late][cut:]])
        next(writer), next(writer)
        yield rng.uniform(0.1, 1.0)
        yield from writer
    elif capture.kind == "late image":
        late = list(files)[-1]
        yield from write_all(folder, {name: data for name, data in files.items() if name != late}, rng)
        yield rng.uniform(0.2, 1.5)
        yield from write_somehow(folder, late, files[late], rng)
    else:
        yield from write_all(folder, files, rng)

    if capture.kind == "touched":
        yield lambda: books.is_done(capture.name, first.shas())
        for name in files:
            os.utime(folder.path / name)
    for old, new in zip(capture.contents, capture.contents[1:]):
        if old.is_sure:
            yield lambda: books.is_done(capture.name, old.shas()) or books.has_failed(capture.name)
        yield from replace(folder, capture.name, old, new, rng)


def replace(folder, header, old, new, rng):
    changed = {name: data for name, data in new.files.items() if data != old.files[name]}
    if set(changed) == {header} and len(changed[header]) == len(old.files[header]) and rng.random() < 0.7:
        # Neither size nor time tells the two apart.
        time_before = os.stat(folder.path / header)
        yield from folder.write(f".{header}.new", changed[header], pieces_of(changed[header], rng))
        os.utime(folder.path / f".{header}.new", ns=(time_before.st_atime_ns, time_before.st_mtime_ns))
        folder.rename(f".{header}.new", header)
    elif len(changed) == 1:
        (name,) = changed
        yield from write_somehow(folder, name, changed[name], rng)
    else:
        # The header goes first and comes last, so that no mixture of old and new images is a capture.
        folder.remove(header)
        yield rng.choice([None, 0.2])
        yield from write_all(folder, {name: data for name, data in changed.items() if name != header}, rng)
        yield from write_somehow(folder, header, new.files[header], rng)
