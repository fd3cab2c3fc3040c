"""Cases of operations whose answers come from independent programs, and the files that keep them.

A family of operations has a module beside this one. Its functions, marked with `operation`, compute the answers:

    @operation("result", "area", oracle="numpy.sum")
    def area(op):
        mask = blobs() > 128
        op.result_case("blobs", {"GRY.GRY": picture("blobs", blobs())}, {"area": int(mask.sum())}, mask=mask)

`make.py` runs them and writes `tests/golden/oracles/{mask,result}/<key>.json` with the inputs and expected masks beside.
Pictures are arrays height x width, or height x width x 3 in RGB order, of uint8, uint16 or float32.
"""

import hashlib
import json
import pathlib
import platform
import subprocess

import cv2
import numpy as np
import scipy
import skimage

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
GOLDEN = ROOT / "tests" / "golden" / "oracles"
DATA = ROOT.parent / "shared" / "data"

OPERATIONS = []


def versions():
    """Which programs the answers come from."""
    found = {"python3": platform.python_version(), "numpy": np.__version__, "scipy": scipy.__version__,
             "skimage": skimage.__version__, "cv2": cv2.__version__}
    java = subprocess.run(["dpkg-query", "-W", "-f", "${Version}", "imagej"], capture_output=True, text=True)
    if java.returncode == 0:
        found["imagej"] = java.stdout
    return found


class Input:
    """A picture that an operation reads: `place` as the golden file names it, and its pixels."""

    def __init__(self, place, pixels):
        self.place = place
        self.pixels = pixels


def _write_picture(place, pixels):
    file = GOLDEN / place
    file.parent.mkdir(parents=True, exist_ok=True)
    stored = pixels[:, :, ::-1] if pixels.ndim == 3 else pixels
    if not cv2.imwrite(str(file), np.ascontiguousarray(stored), [cv2.IMWRITE_TIFF_COMPRESSION, 1]):
        raise RuntimeError(f"{file} cannot be written")


def picture(name, pixels, folder="inputs"):
    """A synthetic picture, kept under `inputs/`."""
    place = f"{folder}/{name}.{'tif' if pixels.dtype == np.float32 else 'png'}"
    _write_picture(place, pixels)
    return Input(place, pixels)


def real(path):
    """A picture of the folder of real data, which is not kept here: tests of it skip where that folder is missing."""
    stored = cv2.imread(str(DATA / path), cv2.IMREAD_UNCHANGED)
    if stored is None:
        raise RuntimeError(f"{DATA / path} cannot be read")
    if stored.ndim == 3:
        stored = stored[:, :, 2::-1]
    return Input(f"data:{path}", np.ascontiguousarray(stored))


def _as_input(pixels, prefix, folder="inputs"):
    if isinstance(pixels, Input):
        return pixels
    if pixels.dtype == bool:
        pixels = pixels.astype(np.uint8) * 255
    digest = hashlib.sha256(str(pixels.shape).encode() + pixels.tobytes()).hexdigest()[:12]
    return picture(f"{prefix}_{digest}", pixels, folder)


def _plain(value):
    """Numbers of numpy as JSON has them."""
    if isinstance(value, dict):
        return {key: _plain(inner) for key, inner in value.items()}
    if isinstance(value, (list, tuple)):
        return [_plain(inner) for inner in value]
    if isinstance(value, Input):  # a file that a parameter names
        return value.place
    if isinstance(value, np.bool_):
        return bool(value)
    if isinstance(value, np.integer):
        return int(value)
    if isinstance(value, np.floating):
        value = float(value)
    if isinstance(value, float) and not np.isfinite(value):
        raise ValueError("An expected number is not finite: list the metric under `undefined`.")
    return value


class Operation:
    """The cases of one operation."""

    def __init__(self, kind, key, oracle, convention):
        self.kind = kind
        self.key = key
        self.record = {"oracle": oracle, "convention": convention, "versions": versions(), "cases": []}

    def _case(self, name, images, params, mask, labels, white, scale, bands, references):
        if any(case["name"] == name for case in self.record["cases"]):
            raise ValueError(f"{self.key}: the case {name} is there twice")
        case = {"name": name, "images": {place: _as_input(image, "picture").place for place, image in images.items()},
                "params": _plain(params or {})}
        if mask is not None:
            case["mask"] = _as_input(mask, "mask").place
        if labels is not None:  # whole numbers, 0 = no region, k = the region ROI_k
            if not isinstance(labels, Input):
                labels = labels.astype(np.uint16)
            case["labels"] = _as_input(labels, "labels").place
        if white is not None:  # measurement to declared white level
            case["white"] = _plain(white)
        if scale is not None:  # millimetres a pixel
            case["scale"] = scale
        if bands is not None:  # image to [centre, width] in nanometres
            case["bands"] = _plain(bands)
        if references is not None:  # MEASUREMENT.IMAGE to {"white", "dark", "reflectance"}, pictures or numbers
            case["references"] = _plain(references)
        self.record["cases"].append(case)
        return case

    def mask_case(self, name, images, expected, params=None, mask=None, labels=None, white=None, scale=None, bands=None,
                  references=None, may_differ=0, why="", expected_labels=None, labels_may_differ=0):
        """`expected`: height x width of bool. Where `may_differ` pixels of it, or `labels_may_differ` pixels of the
        labels, may differ, `why` says from what."""
        if (may_differ or labels_may_differ) and not why:
            raise ValueError(f"{self.key}: {name}: a tolerance needs its reason")
        case = self._case(name, images, params, mask, labels, white, scale, bands, references)
        expected = np.asarray(expected, bool)
        case["expected_area"] = int(expected.sum())
        if any(place.startswith("data:") for place in case["images"].values()):
            case["expected_sha256"] = hashlib.sha256((expected.astype(np.uint8) * 255).tobytes()).hexdigest()
        else:
            case["expected_mask"] = _as_input(expected, "mask", "expected").place
        if expected_labels is not None:
            case["expected_labels"] = _as_input(expected_labels.astype(np.uint16), "labels", "expected").place
        if may_differ:
            case["may_differ"] = int(may_differ)
        if labels_may_differ:
            case["labels_may_differ"] = int(labels_may_differ)
        if may_differ or labels_may_differ:
            case["why"] = why

    def result_case(self, name, images, metrics, params=None, mask=None, labels=None, white=None, scale=None,
                    bands=None, references=None, regions=None, undefined=(), tables=None, looser=None):
        """`metrics`: of the whole mask; `regions`: region name to metrics; `undefined`: metrics that must have a reason
        instead; `tables`: name to {"columns", "rows"}. Whole numbers must be equal, others within 1e-9 of the larger
        of the number and 1; `looser` maps patterns of metric names to {"relative" or "absolute", "why"}."""
        for entry in (looser or {}).values():
            if not entry.get("why"):
                raise ValueError(f"{self.key}: {name}: a tolerance needs its reason")
        case = self._case(name, images, params, mask, labels, white, scale, bands, references)
        case["metrics"] = _plain(metrics)
        if regions is not None:
            case["regions"] = _plain(regions)
        if undefined:
            case["undefined"] = list(undefined)
        if tables is not None:
            case["tables"] = _plain(tables)
        if looser is not None:
            case["looser"] = _plain(looser)

    def write(self):
        file = GOLDEN / self.kind / f"{self.key}.json"
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(json.dumps(self.record, indent=1) + "\n", encoding="utf-8")


def operation(kind, key, oracle, convention=""):
    """Marks a function that adds the cases of an operation of kind "mask" or "result". `oracle` names program and
    function, `convention` says where it follows another one and what was done about that."""

    def mark(function):
        OPERATIONS.append((Operation(kind, key, oracle, convention), function))
        return function

    return mark


# ---- Pictures that several families use ----

def blobs(seed=1, height=96, width=128, sigma=4.0):
    """Smooth bright and dark patches, float64 of [0, 1]."""
    noise = np.random.default_rng(seed).standard_normal((height, width))
    smooth = scipy.ndimage.gaussian_filter(noise, sigma)
    return (smooth - smooth.min()) / (smooth.max() - smooth.min())


def blobs_u8(seed=1, **size):
    return np.round(blobs(seed, **size) * 255).astype(np.uint8)


def blobs_u16(seed=2, highest=60000, **size):
    return np.round(blobs(seed, **size) * highest).astype(np.uint16)


def blobs_f32(seed=3, **size):
    return blobs(seed, **size).astype(np.float32)


def blobs_rgb(seed=4, **size):
    return np.stack([blobs_u8(seed + k, **size) for k in range(3)], axis=2)


def disc(radius, height=None, width=None):
    """dx^2 + dy^2 <= r^2 about the middle pixel."""
    height = height or 2 * int(radius) + 5
    width = width or height
    y, x = np.mgrid[:height, :width]
    return (x - width // 2) ** 2 + (y - height // 2) ** 2 <= radius ** 2


def grid_labels(mask, rows, columns):
    """The mask cut into a grid of cells as equal as they can be; labels in order of rows."""
    height, width = mask.shape
    y, x = np.mgrid[:height, :width]
    return np.where(mask, y * rows // height * columns + x * columns // width + 1, 0)
