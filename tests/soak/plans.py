"""What the soak drops: captures of `orvexa sample` and pictures drawn here, all with known answers."""

import json
import pathlib
import struct
import zlib

from drops import Capture, Content

# How often a kind comes, in shares of 1000; the rest is plain.
CAPTURE_SHARES = {
    "touched": 40,  # gets a new time when it is done, and must not be done again
    "late image": 40,
    "stalled in an image": 30,
    "twin header": 30,  # two headers, the same to the byte, name the same images
    "equal pixels": 40,
    "rescaled": 50,  # another header of the same size takes its place
    "commented": 30,  # another header of another size
    "other pixels": 50,
    "broken": 15,
    "repaired": 15,
    "incomplete": 8,
}
PICTURE_SHARES = {
    "touched": 60,
    "stalled in an image": 60,
    "equal pixels": 60,
    "other pixels": 150,
    "broken": 30,
    "repaired": 30,
}


def draw_kind(shares, rng):
    return rng.choices([*shares, "plain"], [*shares.values(), 1000 - sum(shares.values())])[0]


# ---- Captures of several images


def read_samples(folder):
    """Of `orvexa sample --count`: (files with the header first, answers) of each capture, in the order of names."""
    folder = pathlib.Path(folder)
    expected = json.loads((folder / "expected.json").read_text())["captures"]
    samples = []
    for name in sorted(expected):
        header = folder / f"HDR_{name}.INF"
        images = [line.split("=")[1].strip() for line in header.read_text().splitlines() if line.startswith("Image ")]
        files = {header.name: header.read_bytes()}
        files.update((image, (folder / image).read_bytes()) for image in images)
        samples.append((files, expected[name]["metrics"]))
    return samples


def renamed(files, old, new):
    """The same pixels under other names."""
    return {
        name.replace(old, new): data.replace(old.encode(), new.encode()) if name.startswith("HDR_") else data
        for name, data in files.items()
    }


def rescaled(files, answers):
    """At 4 mm a pixel instead of 5; the header has as many bytes as before."""
    header = next(iter(files))
    text = files[header].replace(b"MillimetresPerPixel = 5\n", b"MillimetresPerPixel = 4\n")
    assert text != files[header]
    return {**files, header: text}, {**answers, "area_mm2": answers["area"] * 16.0}


def damaged(files, rng):
    """One image ends in the middle."""
    image = rng.choice(list(files)[-3:])
    return {**files, image: files[image][: len(files[image]) // 2]}


def second_content(kind, sample, samples, rng):
    files, answers = sample
    header, *images = files
    if kind == "rescaled":
        return Content(*rescaled(files, answers))
    if kind == "commented":
        return Content({**files, header: b"; measured twice\n" + files[header]}, answers)
    other, other_answers = rng.choice([one for one in samples if one is not sample])
    return Content({header: files[header], **dict(zip(images, list(other.values())[1:]))}, other_answers)


def plan_captures(samples, count, rng):
    """`count` captures in random order, the first of them complete as soon as it is there."""
    plan = []
    unused = list(samples)
    rng.shuffle(unused)
    while len(plan) < count:
        sample = unused.pop()
        files, answers = sample
        header, *images = files
        kind = draw_kind(CAPTURE_SHARES, rng)
        first = Content(files, answers)
        capture = Capture(kind, [first])
        plan.append(capture)
        if kind == "twin header":
            twin = {header.replace("HDR_", "HDR_twin_"): files[header], **{image: files[image] for image in images}}
            plan.append(Capture(kind, [Content(twin, answers)], absent=frozenset(images)))
        elif kind == "equal pixels":
            stem = header[len("HDR_") : -len(".INF")]
            plan.append(Capture(kind, [Content(renamed(files, stem, stem + "_again"), answers)]))
        elif kind in ("rescaled", "commented", "other pixels"):
            first.is_sure = rng.random() < 0.6
            capture.contents.append(second_content(kind, sample, samples, rng))
        elif kind in ("broken", "repaired"):
            bad = Content(damaged(files, rng))
            capture.contents = [bad] if kind == "broken" else [bad, first]
        elif kind == "incomplete":
            capture.absent = frozenset([rng.choice(images)])
    plan = plan[:count]
    rng.shuffle(plan)
    return plan


# ---- Ordinary pictures

PICTURE_WORKFLOW = """format: 1
title: Bright rectangles
mask_operations:
  - op: threshold_range
    params: {low: 0.5}
result_operations:
  - op: area
"""
WIDTH, HEIGHT = 80, 60


def random_rectangle(rng):
    x, y = rng.randrange(WIDTH - 20), rng.randrange(HEIGHT - 20)
    return x, y, rng.randint(1, WIDTH - x), rng.randint(1, HEIGHT - y)


def rows_with(rectangle):
    """Grey 200 inside and 40 outside."""
    x, y, width, height = rectangle
    bright = bytes([40] * x + [200] * width + [40] * (WIDTH - x - width))
    return [bright if y <= row < y + height else bytes([40] * WIDTH) for row in range(HEIGHT)]


def png(rows):
    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))

    header = struct.pack(">IIBBBBB", WIDTH, HEIGHT, 8, 0, 0, 0, 0)
    pixels = zlib.compress(b"".join(b"\0" + row for row in rows))
    return b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", pixels) + chunk(b"IEND", b"")


def bmp(rows):
    """8 bits a pixel with a grey palette: every picture has the same size in bytes."""
    palette = b"".join(bytes([level, level, level, 0]) for level in range(256))
    start = 14 + 40 + len(palette)
    pixels = b"".join(row + b"\0" * (-len(row) % 4) for row in reversed(rows))
    info = struct.pack("<IiiHHIIiiII", 40, WIDTH, HEIGHT, 1, 8, 0, len(pixels), 0, 0, 256, 0)
    return b"BM" + struct.pack("<IHHI", start + len(pixels), 0, 0, start) + info + palette + pixels


def draw_picture(name, rng):
    rectangle = random_rectangle(rng)
    area = rectangle[2] * rectangle[3]
    data = png(rows_with(rectangle)) if name.lower().endswith(".png") else bmp(rows_with(rectangle))
    return Content({name: data}, {"area": area, "area_fraction": area / (WIDTH * HEIGHT)})


def plan_pictures(count, rng):
    plan = []
    while len(plan) < count:
        name = f"picture_{len(plan):04}" + rng.choice([".png", ".bmp", ".PNG"])
        kind = draw_kind(PICTURE_SHARES, rng)
        first = draw_picture(name, rng)
        capture = Capture(kind, [first])
        plan.append(capture)
        if kind == "equal pixels":
            plan.append(Capture(kind, [Content({"again_" + name: first.files[name]}, first.answers)]))
        elif kind == "other pixels":
            first.is_sure = rng.random() < 0.6
            second = first
            while second.files[name] == first.files[name]:
                second = draw_picture(name, rng)
            capture.contents.append(second)
        elif kind in ("broken", "repaired"):
            bad = Content({name: first.files[name][: len(first.files[name]) // 2]})
            capture.contents = [bad] if kind == "broken" else [bad, first]
    plan = plan[:count]
    rng.shuffle(plan)
    return plan
