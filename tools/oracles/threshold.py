"""Thresholds on the values of one band, and the filters that may run before them."""

import itertools
import pathlib
import re
import subprocess

import numpy as np
import scipy.ndimage as ndi
import skimage.filters
import skimage.measure

from cases import blobs, blobs_f32, blobs_rgb, blobs_u8, blobs_u16, disc, operation, picture, real

IMAGEJ = "/usr/share/java/ij.jar"


class InWords:
    """An operation whose cases are named in words."""

    def __init__(self, op):
        self._op = op

    def mask_case(self, name, *arguments, **more):
        self._op.mask_case(re.sub("[^0-9A-Za-z]+", "_", name), *arguments, **more)


def thresholds(key, oracle, convention=""):
    """Marks a function that adds the cases of a mask operation."""
    return lambda function: operation("mask", key, oracle, convention)(lambda op: function(InWords(op)))


def noisy(seed, highest, dtype, height=80, width=110, spread=0.06):
    """Patches with noise, so that filters have something to do."""
    noise = np.random.default_rng(seed).normal(0, spread, (height, width))
    values = np.clip(blobs(seed, height=height, width=width) * 0.8 + 0.1 + noise, 0, 1) * highest
    return values.astype(np.float32) if dtype == np.float32 else np.round(values).astype(dtype)


def with_gaps(values, seed):
    """A float picture with pixels that are no number."""
    values = values.copy()
    where = np.random.default_rng(seed).random(values.shape) < 0.03
    values[where] = np.nan
    return values


def half_mask(shape):
    """A disc that reaches over the border, with a hole."""
    height, width = shape
    y, x = np.mgrid[:height, :width]
    inside = (x - width * 0.6) ** 2 + (y - height * 0.4) ** 2 <= (width * 0.45) ** 2
    return inside & ~((x - width * 0.5) ** 2 + (y - height * 0.5) ** 2 <= 100)


def grey(rgb):
    """0.299 R + 0.587 G + 0.114 B, rounded half up."""
    sums = rgb.astype(np.int64) @ np.array([299, 587, 114])
    return ((sums + 500) // 1000).astype(rgb.dtype)


def pictures():
    """Name, pixels and white of a picture of each type."""
    return [("u8", picture("noisy_u8", noisy(11, 255, np.uint8)), 255.0),
            ("u16", picture("noisy_u16", noisy(12, 60000, np.uint16)), 65535.0),
            ("f32", picture("noisy_f32", noisy(13, 1.0, np.float32)), 1.0)]


def gap_near(values, wanted, least=2e-7):
    """A limit near the wanted one on which no value lies: the middle of the widest gap around it. Limits of rounded
    results then decide nothing by rounding."""
    values = np.unique(np.asarray(values, np.float64)[np.isfinite(values)])
    at = np.searchsorted(values, wanted)
    near = values[max(0, at - 40):at + 40]
    widest = np.argmax(np.diff(near))
    if near[widest + 1] - near[widest] < 2 * least:
        raise RuntimeError(f"there is no gap near {wanted}")
    return float((near[widest] + near[widest + 1]) / 2)


# ---- Filters before a threshold ----

def bilateral(values, radius, sigma_space, sigma_value):
    """The sum over the disc, in double; replicated border."""
    values = values.astype(np.float64)
    padded = np.pad(values, radius, mode="edge")
    sums = np.zeros_like(values)
    weights = np.zeros_like(values)
    height, width = values.shape
    for dy, dx in itertools.product(range(-radius, radius + 1), repeat=2):
        if dx * dx + dy * dy > radius * radius:
            continue
        other = padded[radius + dy:radius + dy + height, radius + dx:radius + dx + width]
        weight = np.exp(-0.5 * (dx * dx + dy * dy) / sigma_space ** 2 - 0.5 * ((other - values) / sigma_value) ** 2)
        sums += weight * other
        weights += weight
    return sums / weights


@thresholds("threshold_range",
           oracle="numpy comparison of raw values; scipy.ndimage.gaussian_filter, scipy.ndimage.median_filter and a sum "
                  "over the disc in numpy for the filters before it",
           convention="filters replicate the border (mode nearest); limits lie where no filtered value is")
def threshold_range(op):
    for name, image, white in pictures():
        counts = image.pixels.astype(np.float64)
        band = {"MSP.NIR": image}
        low, high = (np.round(0.3 * white), np.round(0.6 * white)) if name != "f32" else (np.float32(0.3), np.float32(0.6))
        inside = (counts >= low) & (counts <= high)
        params = {"low": float(low) / white, "high": float(high) / white}
        op.mask_case(f"{name} limits that are values", band, inside, params)
        op.mask_case(f"{name} inverted", band, ~inside, {**params, "invert": True})
        mask = half_mask(counts.shape)
        op.mask_case(f"{name} in a mask", band, inside & mask, params, mask=mask)
        for sigma in (0.6, 2.5):
            smooth = ndi.gaussian_filter(counts, sigma, truncate=4, mode="nearest") / white
            limits = (gap_near(smooth, 0.41), gap_near(smooth, 0.6))
            op.mask_case(f"{name} gaussian {sigma}", band, (smooth >= limits[0]) & (smooth <= limits[1]),
                         {"low": limits[0], "high": limits[1], "smooth": "gaussian", "smooth_sigma": sigma})
        for radius in (1, 2, 9):
            smooth = ndi.median_filter(image.pixels, 2 * radius + 1, mode="nearest").astype(np.float64)
            op.mask_case(f"{name} median {radius}", band, (smooth >= low) & (smooth <= high),
                         {**params, "smooth": "median", "smooth_radius": radius})
        smooth = bilateral(counts, 4, 2.0, 0.15 * white) / white
        limits = (gap_near(smooth, 0.41), gap_near(smooth, 0.6))
        op.mask_case(f"{name} bilateral", band, (smooth >= limits[0]) & (smooth <= limits[1]),
                     {"low": limits[0], "high": limits[1], "smooth": "bilateral", "smooth_sigma": 2.0,
                      "smooth_radius": 4, "smooth_range": 0.15})
    declared = picture("noisy_u16", noisy(12, 60000, np.uint16))
    op.mask_case("u16 declared white", {"MSP.NIR": declared},
                 (declared.pixels >= 15000) & (declared.pixels <= 45000), {"low": 0.25, "high": 0.75},
                 white={"MSP": 60000})
    color = blobs_rgb()
    op.mask_case("grey of a colour picture", {"CLR.RGB": picture("blobs_rgb", color)},
                 (grey(color) >= 100) & (grey(color) <= 160), {"low": 100 / 255, "high": 160 / 255})
    coins = real("images/coins.png")
    op.mask_case("coins", {"GRY.GRY": coins}, coins.pixels >= 120, {"low": 120 / 255, "high": 1.0})
    median = ndi.median_filter(coins.pixels, 11, mode="nearest")
    op.mask_case("coins median 5", {"GRY.GRY": coins}, median >= 120,
                 {"low": 120 / 255, "high": 1.0, "smooth": "median", "smooth_radius": 5})


# ---- Levels from the histogram ----

def filled_histogram(values):
    """Counts from the lowest to the highest value, and what the first bin is."""
    values = values.ravel()
    lowest, highest = int(values.min()), int(values.max())
    return np.bincount(values.astype(np.int64) - lowest, minlength=highest - lowest + 1), lowest


def yen_level(values):
    counts, first = filled_histogram(values)
    p = counts / counts.sum()
    low = np.cumsum(p)[:-1]
    squares = np.cumsum(p ** 2)[:-1]
    squares_above = np.cumsum(p[::-1] ** 2)[::-1][1:]
    merit = 2 * np.log(low * (1 - low)) - np.log(squares * squares_above)
    level = first + int(np.argmax(np.where(counts[:-1] > 0, merit, -np.inf)))
    if abs(level - skimage.filters.threshold_yen(values.astype(np.uint16))) > 1:
        raise RuntimeError("skimage finds another level by Yen's method")
    return level


def max_entropy_level(values):
    counts, first = filled_histogram(values)

    def entropy(part):
        p = part[part > 0] / part.sum()
        return -(p * np.log(p)).sum()

    merit = [entropy(counts[:t + 1]) + entropy(counts[t + 1:]) if counts[t] else -np.inf
             for t in range(len(counts) - 1)]
    return first + int(np.argmax(merit))


def imagej_levels(method, pictures_u8):
    """What ImageJ finds, in a virtual machine without a screen."""
    lines = []
    for values in pictures_u8:
        lines.append(method + " " + " ".join(str(n) for n in np.bincount(values.ravel(), minlength=256)))
    source = pathlib.Path(__file__).resolve().parent / "LevelOfHistogram.java"
    run = subprocess.run(["java", "-Djava.awt.headless=true", "-cp", IMAGEJ, str(source)], input="\n".join(lines),
                         capture_output=True, text=True, check=True)
    return [int(line) for line in run.stdout.split()]


def minimum_level(values):
    """As skimage.filters.threshold_minimum, but each mean is the sum of three numbers over 3: scipy's running sum leaves
    rounding behind in empty bins, which then look like peaks."""
    counts, first = filled_histogram(values)
    smooth = counts.astype(np.float64)
    for _ in range(10000):
        padded = np.pad(smooth, 1, mode="symmetric")
        smooth = (padded[:-2] + padded[1:-1] + padded[2:]) / 3
        steps = np.sign(np.diff(smooth))
        peaks, rises = [], True
        for i, step in enumerate(steps):
            if rises and step < 0:
                rises = False
                peaks.append(i)
            elif not rises and step > 0:
                rises = True
        if len(peaks) < 3:
            break
    if len(peaks) != 2:
        return None
    return first + peaks[0] + int(np.argmin(smooth[peaks[0]:peaks[1] + 1]))


def level_of(method, values):
    """Last level of the background among whole numbers."""
    whole = values.astype(np.uint16)
    if method == "mean":
        return int(np.floor(values.mean()))
    if method == "li":
        return int(np.floor(skimage.filters.threshold_li(whole, tolerance=1e-9)))
    if method == "isodata":
        return int(skimage.filters.threshold_isodata(whole))
    if method == "otsu":
        return int(skimage.filters.threshold_otsu(whole))
    if method == "triangle":
        return int(skimage.filters.threshold_triangle(whole, nbins=65536))
    return {"yen": yen_level, "max_entropy": max_entropy_level, "minimum": minimum_level}[method](values)


METHODS = ("otsu", "li", "yen", "triangle", "isodata", "minimum", "mean", "max_entropy")


def two_humps(seed, dtype, scale):
    """Two separate humps of levels, the brighter one a disc."""
    random = np.random.default_rng(seed)
    inside = disc(28, 80, 110)
    values = np.where(inside, random.normal(170, 14, inside.shape), random.normal(70, 18, inside.shape))
    return np.round(np.clip(values, 0, 255) * scale).astype(dtype)


def float_bins(values):
    """The 4096 bins (left, right] between lowest and highest value, and the right edge of each."""
    lowest, highest = float(values.min()), float(values.max())
    edges = lowest + (highest / 4096 - lowest / 4096) * np.arange(1, 4097)
    return np.minimum(np.searchsorted(edges, values.astype(np.float64), side="left"), 4095), edges


@thresholds("threshold_auto",
           oracle="skimage.filters.threshold_otsu, _li, _isodata, _triangle; ij.process.AutoThresholder MaxEntropy (8 "
                  "bit); the published criteria in numpy for yen (within a level of skimage's, which sums in 32 bit), "
                  "minimum and max_entropy",
           convention="levels are whole counts, foreground is above them; float pictures are put into 4096 bins first")
def threshold_auto(op):
    humps8 = picture("humps_u8", two_humps(21, np.uint8, 1))
    humps16 = picture("humps_u16", two_humps(22, np.uint16, 12))
    noisy8 = picture("noisy_u8", noisy(11, 255, np.uint8))
    coins = real("images/coins.png")
    entropy = dict(zip(("humps8", "noisy8", "coins"),
                       imagej_levels("MaxEntropy", [image.pixels for image in (humps8, noisy8, coins)])))
    for name, image in (("humps8", humps8), ("humps16", humps16), ("noisy8", noisy8), ("coins", coins)):
        values = image.pixels
        place = {"GRY.GRY": image} if name == "coins" else {"MSP.NIR": image}
        for method in METHODS:
            level = entropy[name] if method == "max_entropy" and name in entropy else level_of(method, values)
            expected = np.zeros(values.shape, bool) if level is None else values > level
            op.mask_case(f"{name} {method}", place, expected, {"method": method})
        mask = half_mask(values.shape)
        for method in METHODS:
            level = level_of(method, values[mask])
            expected = np.zeros(values.shape, bool) if level is None else (values <= level) & mask
            op.mask_case(f"{name} {method} dark in a mask", place, expected, {"method": method, "polarity": "dark"},
                         mask=mask)
    values = humps8.pixels
    level = level_of("otsu", values)
    op.mask_case("humps8 factor", {"MSP.NIR": humps8}, values > level * 1.25, {"factor": 1.25})
    op.mask_case("humps8 raised", {"MSP.NIR": humps8}, values > 0.7 * 255, {"min": 0.7})
    op.mask_case("humps8 lowered", {"MSP.NIR": humps8}, values > 0.3 * 255, {"max": 0.3})
    median = ndi.median_filter(noisy8.pixels, 7, mode="nearest")
    mask = half_mask(median.shape)
    op.mask_case("noisy8 median in a mask", {"MSP.NIR": noisy8}, (median > level_of("otsu", median[mask])) & mask,
                 {"smooth": "median", "smooth_radius": 3}, mask=mask)
    f32 = picture("noisy_f32", noisy(13, 1.0, np.float32))
    bins, edges = float_bins(f32.pixels)
    for method in ("otsu", "yen", "isodata", "minimum", "max_entropy"):
        level = level_of(method, bins)
        expected = np.zeros(bins.shape, bool) if level is None else f32.pixels.astype(np.float64) > edges[level]
        op.mask_case(f"f32 {method}", {"MSP.NIR": f32}, expected, {"method": method})


# ---- Percentiles, hysteresis, classes ----

@thresholds("threshold_percentile", oracle="numpy.percentile (linear, type 7) of the pixels in the mask")
def threshold_percentile(op):
    images = [(name, {"MSP.NIR": image}, image.pixels) for name, image, _ in pictures()]
    gaps = picture("gaps_f32", with_gaps(noisy(14, 1.0, np.float32), 1))
    images.append(("gaps", {"MSP.NIR": gaps}, gaps.pixels))
    coins = real("images/coins.png")
    images.append(("coins", {"GRY.GRY": coins}, coins.pixels))
    for name, place, values in images:
        valid = np.isfinite(values)
        for mask in (None, half_mask(values.shape)):
            seen = valid if mask is None else valid & mask
            for low, high in ((5, 100), (12.5, 87.25), (99, 99.9)):
                at_low, at_high = np.percentile(values[seen].astype(np.float64), [low, high])
                expected = seen & (values >= at_low) & (values <= at_high)
                op.mask_case(f"{name} {low} to {high}{'' if mask is None else ' in a mask'}", place, expected,
                             {"low": low, "high": high}, mask=mask)
    inverted = np.percentile(images[0][2], [10, 90])
    values = images[0][2]
    op.mask_case("u8 inverted", images[0][1], (values < inverted[0]) | (values > inverted[1]),
                 {"low": 10, "high": 90, "invert": True})


@thresholds("threshold_hysteresis",
           oracle="scipy.ndimage.label with 8 neighbours; skimage.filters.apply_hysteresis_threshold for 4",
           convention="skimage joins sides only: it is the oracle of connectivity 4")
def threshold_hysteresis(op):
    def kept(values, low, high, connectivity):
        labels, _ = ndi.label(values > low, np.ones((3, 3)) if connectivity == 8 else None)
        numbers = np.unique(labels[values > high])
        return np.isin(labels, numbers[numbers > 0])

    images = [(name, {"MSP.NIR": image}, image.pixels.astype(np.float64) / white) for name, image, white in pictures()]
    coins = real("images/coins.png")
    images.append(("coins", {"GRY.GRY": coins}, coins.pixels / 255))
    for name, place, values in images:
        low, high = gap_near(values, 0.55), gap_near(values, 0.74)
        params = {"low": low, "high": high}
        op.mask_case(f"{name}", place, kept(values, low, high, 8), params)
        four = skimage.filters.apply_hysteresis_threshold(values, low, high)
        op.mask_case(f"{name} sides only", place, four, {**params, "connectivity": "4"})
        mask = half_mask(values.shape)
        inside = np.where(mask, values, -1)
        op.mask_case(f"{name} in a mask", place, kept(inside, low, high, 8), params, mask=mask)
    u8 = picture("noisy_u8", noisy(11, 255, np.uint8))
    op.mask_case("u8 levels that are counts", {"MSP.NIR": u8}, kept(u8.pixels, 140, 190, 8),
                 {"low": 140 / 255, "high": 190 / 255})


def best_levels(values, classes):
    """All ways to part the filled levels, the first of the best."""
    levels, counts = np.unique(values, return_counts=True)
    n = np.concatenate([[0], np.cumsum(counts)]).astype(np.float64)
    s = np.concatenate([[0], np.cumsum(counts * (levels.astype(np.float64) - levels[0]))])
    merit = lambda a, b: (s[b] - s[a]) ** 2 / (n[b] - n[a])
    best, greatest = None, -1.0
    for cuts in itertools.combinations(range(1, len(levels)), classes - 1):
        edges = (0, *cuts, len(levels))
        found = sum(merit(a, b) for a, b in zip(edges, edges[1:]))
        if found > greatest * (1 + 1e-13):
            best, greatest = cuts, found
    return [levels[cut - 1] for cut in best]


@thresholds("threshold_multiotsu",
           oracle="skimage.filters.threshold_multiotsu with one bin a level (8 bit, 3 classes); every way to part few "
                  "levels in numpy (4 and 5 classes, 16 bit)",
           convention="a level is the last one of its class, as in skimage's sums")
def threshold_multiotsu(op):
    def classes_of(values, levels):
        return np.searchsorted(np.asarray(levels, np.float64), values, side="left") + 1

    noisy8 = picture("noisy_u8", noisy(11, 255, np.uint8))
    coins = real("images/coins.png")
    for name, place, values in (("noisy8", {"MSP.NIR": noisy8}, noisy8.pixels),
                                ("coins", {"GRY.GRY": coins}, coins.pixels)):
        levels = skimage.filters.threshold_multiotsu(values, 3)
        for keep in (["1"], ["2"], ["3"], ["1", "3"]):
            expected = np.isin(classes_of(values, levels), [int(k) for k in keep])
            op.mask_case(f"{name} {' '.join(keep)}", place, expected, {"keep": keep})
        mask = half_mask(values.shape)
        levels = skimage.filters.threshold_multiotsu(values[mask][:, None], 3)
        op.mask_case(f"{name} in a mask", place, (classes_of(values, levels) == 3) & mask, mask=mask)
    random = np.random.default_rng(31)
    few = random.choice(random.integers(0, 65536, 26), (60, 70)).astype(np.uint16)
    rough = np.round(few / 2000 + random.normal(0, 1, few.shape)).clip(0, 30).astype(np.uint8)
    for name, values in (("few16", few), ("rough8", rough)):
        place = {"MSP.NIR": picture(name, values)}
        for classes in (3, 4, 5):
            levels = best_levels(values, classes)
            for keep in range(1, classes + 1):
                op.mask_case(f"{name} {classes} classes {keep}", place, classes_of(values, levels) == keep,
                             {"classes": classes, "keep": [str(keep)]})
    flat = np.full((20, 30), 77, np.uint8)
    op.mask_case("flat", {"MSP.NIR": picture("flat_77", flat)}, np.zeros(flat.shape, bool))


# ---- Local levels ----

def window_sums(values, seen, radius):
    """Number, sum and sum of squares over square windows; whole numbers stay exact in Python's integers or doubles."""
    size = 2 * radius + 1
    kernel = np.ones(size)

    def total(array):
        along = ndi.convolve1d(array, kernel, axis=0, mode="constant")
        return ndi.convolve1d(along, kernel, axis=1, mode="constant")

    values = np.where(seen, values, 0).astype(np.float64)
    return total(seen.astype(np.float64)), total(values), total(values ** 2)


def local_moments(values, seen, radius, white):
    """Mean and sd in fractions of white of what is seen; a middle near the values keeps rounding small."""
    middle = np.round(np.mean(values[seen]) if values.dtype != np.float32 else 0.0)
    values = values.astype(np.float64) - middle
    n, s, squares = window_sums(values, seen, radius)
    with np.errstate(invalid="ignore", divide="ignore"):
        mean = s / n
        variance = np.maximum(0, squares / n - mean ** 2)
    return (mean + middle) / white, np.sqrt(variance) / white


def local_images():
    images = [(name, {"MSP.NIR": image}, image.pixels, white) for name, image, white in pictures()]
    gaps = picture("gaps_f32", with_gaps(noisy(14, 1.0, np.float32), 1))
    images.append(("gaps", {"MSP.NIR": gaps}, gaps.pixels, 1.0))
    coins = real("images/coins.png")
    images.append(("coins", {"GRY.GRY": coins}, coins.pixels, 255.0))
    return images


def seen_of(values, mask):
    valid = np.isfinite(values) if values.dtype == np.float32 else np.ones(values.shape, bool)
    return valid if mask is None else valid & mask


def compare(op, name, place, params, values, seen, level, mask, white):
    """The case `v > level` inside what is seen; values on their level would be decided by rounding."""
    with np.errstate(invalid="ignore"):
        margin = values.astype(np.float64) / white - level
        on_level = seen & (np.abs(margin) < 1e-10)
        if on_level.any():
            raise RuntimeError(f"{name}: {on_level.sum()} values lie on their level")
        expected = seen & (margin > 0)
    op.mask_case(name, place, expected, params, mask=mask)
    return expected


def same_inside(ours, other, radius):
    """Away from the border, where conventions do not differ, skimage says the same."""
    inside = (slice(radius, -radius), slice(radius, -radius))
    if not np.array_equal(ours[inside], other[inside]):
        raise RuntimeError("skimage says something else away from the border")


@thresholds("threshold_adaptive",
           oracle="scipy.ndimage sums of values over sums of weights; skimage.filters.threshold_local away from the "
                  "border (checked where the file is made)",
           convention="pixels outside image and mask are not seen; skimage reflects the image at its border")
def threshold_adaptive(op):
    for name, place, values, white in local_images():
        for mask in (None, half_mask(values.shape)):
            seen = seen_of(values, mask)
            where = "" if mask is None else " in a mask"
            for window, offset in ((3, 0.00123), (41, -0.01017)):
                radius = window // 2
                mean, _ = local_moments(values, seen, radius, white)
                params = {"window": window, "offset": offset}
                found = compare(op, f"{name} mean {window}{where}", place, params, values, seen, mean - offset, mask,
                                white)
                if mask is None and name in ("u8", "u16", "f32"):
                    level = skimage.filters.threshold_local(values.astype(np.float64) / white, window, "mean",
                                                            offset=offset)
                    same_inside(found, values / white > level, radius)
                sigma = (window - 1) / 6
                filtered = [ndi.gaussian_filter(array, sigma, truncate=4, mode="constant")
                            for array in (np.where(seen, values, 0).astype(np.float64) / white, seen.astype(np.float64))]
                with np.errstate(invalid="ignore", divide="ignore"):
                    mean = filtered[0] / filtered[1]
                found = compare(op, f"{name} gaussian {window}{where}", place, {**params, "method": "gaussian"}, values,
                                seen, mean - offset, mask, white)
                reach = int(4 * sigma + 0.5)
                if mask is None and name in ("u8", "u16", "f32") and 2 * reach < min(values.shape):
                    level = skimage.filters.threshold_local(values.astype(np.float64) / white, window, "gaussian",
                                                            offset=offset)
                    same_inside(found, values / white > level, reach)
        op_dark = seen_of(values, None)
        mean, _ = local_moments(values, op_dark, 10, white)
        op.mask_case(f"{name} dark", place, op_dark & (values / white <= mean - 0.02013),
                     {"window": 21, "offset": 0.02013, "polarity": "dark"})


@thresholds("threshold_sauvola",
           oracle="numpy on scipy.ndimage sums; skimage.filters.threshold_sauvola and threshold_niblack away from the "
                  "border (checked where the file is made)",
           convention="pixels outside image and mask are not seen; skimage mirrors the image at its border")
def threshold_sauvola(op):
    for name, place, values, white in local_images():
        for mask in (None, half_mask(values.shape)):
            seen = seen_of(values, mask)
            where = "" if mask is None else " in a mask"
            for window, k, r in ((3, 0.2, 0.5), (25, 0.077, 0.13)):
                mean, sd = local_moments(values, seen, window // 2, white)
                plain = mask is None and name in ("u8", "u16", "f32")
                found = compare(op, f"{name} sauvola {window}{where}", place, {"window": window, "k": k, "r": r}, values,
                                seen, mean * (1 + k * (sd / r - 1)), mask, white)
                if plain:
                    level = skimage.filters.threshold_sauvola(values.astype(np.float64) / white, window, k, r)
                    same_inside(found, values / white > level, window // 2)
                if window == 3:  # a pixel may well lie on the level of its few neighbours
                    continue
                found = compare(op, f"{name} niblack {window}{where}", place,
                                {"window": window, "k": k, "variant": "niblack"}, values, seen, mean - k * sd, mask,
                                white)
                if plain:
                    level = skimage.filters.threshold_niblack(values.astype(np.float64) / white, window, k)
                    same_inside(found, values / white > level, window // 2)
        seen = seen_of(values, None)
        mean, sd = local_moments(values, seen, 12, white)
        level = mean * (1 + 0.1 * (sd / 0.5 - 1))
        op.mask_case(f"{name} dark", place, seen & (values / white <= level), {"k": 0.1, "polarity": "dark"})


@thresholds("texture_threshold",
           oracle="scipy.ndimage sums (sd), scipy.ndimage.maximum_filter and minimum_filter (range), "
                  "skimage.filters.rank.entropy with its mask (entropy)",
           convention="pixels outside image and mask are not seen; 16 bit and float are rounded to 256 levels for entropy")
def texture_threshold(op):
    for name, place, values, white in local_images():
        for mask in (None, half_mask(values.shape)):
            seen = seen_of(values, mask)
            where = "" if mask is None else " in a mask"
            for radius in (1, 9):
                size = 2 * radius + 1
                footprint = np.ones((size, size), np.uint8)
                _, sd = local_moments(values, seen, radius, white)
                counts = values.astype(np.float64)
                highest = ndi.maximum_filter(np.where(seen, counts, -np.inf), size, mode="constant", cval=-np.inf)
                lowest = ndi.minimum_filter(np.where(seen, counts, np.inf), size, mode="constant", cval=np.inf)
                levels = np.clip(np.floor(np.where(seen, counts, 0) / white * 255 + 0.5), 0, 255).astype(np.uint8)
                entropy = skimage.filters.rank.entropy(levels, footprint, mask=seen.astype(np.uint8))
                for measure, found in (("sd", sd), ("range", (highest - lowest) / white), ("entropy", entropy)):
                    low, high = (gap_near(found[seen], limit, 2e-9) for limit in np.quantile(found[seen], [0.3, 0.8]))
                    op.mask_case(f"{name} {measure} {radius}{where}", place, seen & (found >= low) & (found <= high),
                                 {"measure": measure, "radius": radius, "low": low, "high": high}, mask=mask)


# ---- A region of interest around what is found ----

@thresholds("auto_roi",
           oracle="skimage.filters.threshold_otsu, skimage.measure.label and regionprops; numpy.median for the border",
           convention="the box is widened by whole pixels, rounded half up")
def auto_roi(op):
    def box_mask(shape, boxes, padding):
        expected = np.zeros(shape, bool)
        if len(boxes) == 0:
            return expected
        boxes = np.asarray(boxes)
        height, width = shape
        dy, dx = int(np.floor(padding * height + 0.5)), int(np.floor(padding * width + 0.5))
        y0, x0 = boxes[:, 0].min() - dy, boxes[:, 1].min() - dx
        y1, x1 = boxes[:, 2].max() + dy, boxes[:, 3].max() + dx
        expected[max(0, y0):y1, max(0, x0):x1] = True
        return expected

    def parts(objects, n, min_fraction):
        found = skimage.measure.regionprops(skimage.measure.label(objects, connectivity=2))
        return [part for part in found if part.area >= min_fraction * n]

    coins = real("images/coins.png")
    places = [("humps8", {"MSP.NIR": picture("humps_u8", two_humps(21, np.uint8, 1))}, None),
              ("humps16", {"MSP.NIR": picture("humps_u16", two_humps(22, np.uint16, 12))}, None),
              ("blobs16", {"MSP.NIR": picture("blobs_u16", blobs_u16())}, None),
              ("blobs32", {"MSP.NIR": picture("blobs_f32", blobs_f32())}, None), ("coins", {"GRY.GRY": coins}, None)]
    for name, place, _ in places:
        values = next(iter(place.values())).pixels
        for mask in (None, half_mask(values.shape)):
            seen = np.ones(values.shape, bool) if mask is None else mask
            where = "" if mask is None else " in a mask"
            n = seen.sum()
            if values.dtype == np.float32:
                bins, edges = float_bins(values[seen])
                above = seen & (values.astype(np.float64) > edges[level_of("otsu", bins)])
            else:
                above = seen & (values > level_of("otsu", values[seen]))
            for padding, least in ((0.02, 0.001), (0.11, 0.01)):
                params = {"padding": padding, "min_fraction": least}
                found = parts(above, n, least)
                largest = [max(found, key=lambda part: (part.area, -part.label)).bbox] if found else []
                op.mask_case(f"{name} largest {padding}{where}", place, box_mask(values.shape, largest, padding) & seen,
                             params, mask=mask)
                op.mask_case(f"{name} union {padding}{where}", place,
                             box_mask(values.shape, [part.bbox for part in found], padding) & seen,
                             {**params, "method": "union"}, mask=mask)
            width = max(1, int(np.floor(0.05 * min(values.shape) + 0.5)))
            ring = np.ones(values.shape, bool)
            ring[width:-width, width:-width] = False
            background = values[ring & seen].astype(np.float64)
            median = np.median(background)
            reach = 4.0 * np.median(np.abs(background - median))
            differs = seen & (np.abs(values.astype(np.float64) - median) > reach)
            boxes = [part.bbox for part in parts(differs, n, 0.002)]
            op.mask_case(f"{name} border{where}", place, box_mask(values.shape, boxes, 0.01) & seen,
                         {"method": "border_background", "border": 0.05, "k": 4.0, "min_fraction": 0.002,
                          "padding": 0.01}, mask=mask)
