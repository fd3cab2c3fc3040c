"""Regions of interest and the shape of masks: roi_*, morphology, filters of regions, hulls, smoothing, splitting."""

from fractions import Fraction

import numpy as np
import scipy.ndimage as ndi
import skimage.draw
import skimage.feature
import skimage.measure
import skimage.morphology
import skimage.segmentation
from scipy.spatial import ConvexHull

from cases import blobs, blobs_f32, blobs_rgb, blobs_u8, blobs_u16, grid_labels, operation, picture, real

EIGHT = np.ones((3, 3), int)


def grey(height, width):
    return {"GRY.GRY": np.zeros((height, width), np.uint8)}


def blank(mask):
    return grey(*mask.shape)


def specks(seed, height=96, width=128, share=0.45):
    """Parts and holes of all sizes, many at the border."""
    noise = blobs(seed, height, width, sigma=1.5)
    return noise > np.quantile(noise, 1 - share)


def coins():
    """A real picture and its bright pixels, with dirt and holes."""
    found = real("images/coins.png")
    return {"GRY.GRY": found}, found.pixels > 107


def masks():
    """Name to mask: an ordinary one, one of specks, nearly everything, nothing, one pixel in a corner, a thin line."""
    line = np.zeros((48, 64), bool)
    line[20, 3:60] = True
    corner = np.zeros((40, 56), bool)
    corner[0, 0] = True
    return {"blobs": blobs(1) > 0.5, "specks": specks(2), "dense": specks(3, share=0.9),
            "nothing": np.zeros((30, 40), bool), "corner": corner, "line": line}


# ---- Regions of interest ----

def covered(centre, size, extent):
    """First column and end of the rule for rectangles, in exact fractions."""
    allowance = Fraction(1, 10**6)
    begin = (Fraction(centre) - Fraction(size) / 2) * extent + allowance
    end = (Fraction(centre) + Fraction(size) / 2) * extent - allowance
    first = begin.numerator // begin.denominator
    last = -((-end.numerator) // end.denominator)
    return min(max(first, 0), extent), min(max(last, 0), extent)


def rect_mask(rect, height, width):
    mask = np.zeros((height, width), bool)
    x0, x1 = covered(rect[0], rect[2], width)
    y0, y1 = covered(rect[1], rect[3], height)
    mask[y0:y1, x0:x1] = True
    return mask


def random_rects(seed, count):
    numbers = np.random.default_rng(seed)
    return [[*numbers.uniform(-0.1, 1.1, 2).tolist(), *numbers.uniform(0.05, 0.8, 2).tolist()] for _ in range(count)]


@operation("mask", "roi_rect", oracle="numpy slices, fractions.Fraction")
def roi_rect(op):
    for k, rect in enumerate(random_rects(1, 4)):
        op.mask_case(f"random_{k}", grey(61, 83), rect_mask(rect, 61, 83), params={"rect": rect})
    for name, rect in {"left_third": [1 / 6, 0.5, 1 / 3, 1], "whole_pixels": [0.45, 0.55, 0.3, 0.1],
                       "outside": [2, 2, 0.5, 0.5]}.items():
        op.mask_case(name, {"CLR.RGB": blobs_rgb()}, rect_mask(rect, 96, 128), params={"rect": rect})
    before = blobs(1) > 0.5
    rect = [0.4, 0.6, 0.5, 0.3]
    op.mask_case("narrowed", {"GRY.GRY": blobs_u16()}, before & rect_mask(rect, 96, 128), params={"rect": rect},
                 mask=before)
    images, _ = coins()
    op.mask_case("coins", images, rect_mask(rect, *images["GRY.GRY"].pixels.shape), params={"rect": rect})


@operation("mask", "roi_rects", oracle="numpy slices, fractions.Fraction")
def roi_rects(op):
    for count in (1, 5, 12):
        rects = random_rects(10 + count, count)
        labels = np.zeros((61, 83), int)
        for k, rect in enumerate(rects):
            labels[rect_mask(rect, 61, 83)] = k + 1
        op.mask_case(f"overlapping_{count}", {"MSP.NIR": blobs_f32(height=61, width=83)}, labels > 0,
                     params={"rects": rects}, expected_labels=labels)
        before = specks(4, 61, 83)
        op.mask_case(f"narrowed_{count}", grey(61, 83), (labels > 0) & before, params={"rects": rects}, mask=before,
                     expected_labels=labels * before)


def polygon_mask(points, height, width):
    """Pixel centres are whole numbers there and half numbers here."""
    corners = np.array(points) * [width, height] - 0.5
    mask = np.zeros((height, width), bool)
    mask[skimage.draw.polygon(corners[:, 1], corners[:, 0], (height, width))] = True
    return mask


def ellipse_mask(rect, height, width):
    mask = np.zeros((height, width), bool)
    mask[skimage.draw.ellipse(rect[1] * height - 0.5, rect[0] * width - 0.5, rect[3] * height / 2, rect[2] * width / 2,
                              (height, width))] = True
    return mask


def polygons():
    """Name to corners at places where no pixel centre lies exactly on a side."""
    numbers = np.random.default_rng(5)
    star = [[0.5 + 0.45 * np.sin(4 * np.pi * k / 5 + 0.1), 0.5 - 0.45 * np.cos(4 * np.pi * k / 5 + 0.1)]
            for k in range(5)]
    return {"triangle": numbers.uniform(0, 1, (3, 2)).tolist(), "beyond": numbers.uniform(-0.6, 1.6, (6, 2)).tolist(),
            "tangle": numbers.uniform(0, 1, (25, 2)).tolist(), "star": star,
            "sliver": [[0.1031, 0.2017], [0.9033, 0.2511], [0.9041, 0.2713]]}


@operation("mask", "roi_polygon", oracle="skimage.draw.polygon",
           convention="corners moved by half a pixel; no centre lies on a side, where the rules differ")
def roi_polygon(op):
    for name, points in polygons().items():
        op.mask_case(name, grey(61, 83), polygon_mask(points, 61, 83), params={"points": points})
    before = blobs(1) > 0.5
    for name in ("tangle", "beyond"):
        points = polygons()[name]
        op.mask_case(f"narrowed_{name}", {"CLR.RGB": blobs_rgb()}, before & polygon_mask(points, 96, 128),
                     params={"points": points}, mask=before)
    images, _ = coins()
    points = polygons()["tangle"]
    op.mask_case("coins", images, polygon_mask(points, *images["GRY.GRY"].pixels.shape), params={"points": points})


ELLIPSES = {"inside": [0.47, 0.52, 0.61, 0.73], "beyond": [0.9, 0.1, 0.83, 0.57], "thin": [0.5, 0.5, 0.97, 0.031],
            "all_around": [0.51, 0.49, 3.1, 2.9]}


@operation("mask", "roi_ellipse", oracle="skimage.draw.ellipse",
           convention="centre moved by half a pixel; no centre lies on the ellipse, where the rules differ")
def roi_ellipse(op):
    for name, rect in ELLIPSES.items():
        op.mask_case(name, {"MSP.NIR": blobs_u16(height=61, width=83)}, ellipse_mask(rect, 61, 83),
                     params={"rect": rect})
    before = specks(6)
    op.mask_case("narrowed", grey(96, 128), before & ellipse_mask(ELLIPSES["inside"], 96, 128),
                 params={"rect": ELLIPSES["inside"]}, mask=before)
    images, _ = coins()
    op.mask_case("coins", images, ellipse_mask(ELLIPSES["inside"], *images["GRY.GRY"].pixels.shape),
                 params={"rect": ELLIPSES["inside"]})


@operation("mask", "roi_exclude", oracle="numpy slices, skimage.draw.polygon, skimage.draw.ellipse",
           convention="as for roi_polygon and roi_ellipse")
def roi_exclude(op):
    before = specks(7)
    for k, rect in enumerate(random_rects(3, 3)):
        op.mask_case(f"rect_{k}", grey(61, 83), ~rect_mask(rect, 61, 83), params={"rect": rect})
    for name, rect in ELLIPSES.items():
        op.mask_case(f"ellipse_{name}", grey(96, 128), before & ~ellipse_mask(rect, 96, 128),
                     params={"shape": "ellipse", "rect": rect}, mask=before)
    for name, points in polygons().items():
        op.mask_case(f"polygon_{name}", {"MSP.NIR": blobs_f32(height=61, width=83)}, ~polygon_mask(points, 61, 83),
                     params={"shape": "polygon", "points": points})
    images, _ = coins()
    op.mask_case("coins", images, ~rect_mask([0.3, 0.4, 0.2, 0.3], *images["GRY.GRY"].pixels.shape),
                 params={"rect": [0.3, 0.4, 0.2, 0.3]})


def cells_along(extent, cells, margin):
    """Number of the cell of each pixel from 1, 0 in the margins: exact fractions of its centre."""
    numbers = np.zeros(extent, int)
    for x in range(extent):
        place = Fraction(2 * x + 1, 2) * cells / extent
        cell = place.numerator // place.denominator
        if margin <= place - cell < 1 - margin:
            numbers[x] = cell + 1
    return numbers


@operation("mask", "roi_grid", oracle="index arithmetic, fractions.Fraction")
def roi_grid(op):
    before = blobs(1) > 0.4
    for rows, cols, margin, order in ((1, 1, "0.05", "row"), (3, 4, "0", "row"), (3, 4, "0.1", "column"),
                                      (7, 11, "0.21", "row"), (64, 64, "0.4", "column"), (5, 1, "0.3", "column")):
        row = cells_along(96, rows, Fraction(margin))[:, None]
        column = cells_along(128, cols, Fraction(margin))[None, :]
        number = (row - 1) * cols + column if order == "row" else (column - 1) * rows + row
        labels = np.where((row > 0) & (column > 0), number, 0)
        params = {"rows": rows, "cols": cols, "margin": float(margin), "order": order}
        name = f"{rows}_by_{cols}_{order}"
        op.mask_case(name, {"GRY.GRY": blobs_u8(1)}, labels > 0, params=params, expected_labels=labels)
        op.mask_case(f"{name}_narrowed", {"CLR.RGB": blobs_rgb()}, (labels > 0) & before, params=params, mask=before,
                     expected_labels=labels * before)


# ---- Morphology ----

def element(radius, shape):
    if shape == "disc":
        return skimage.morphology.disk(radius)
    return np.ones((2 * radius + 1, 2 * radius + 1), np.uint8)


def add_morphology(op, steps):
    programs = {"erode": skimage.morphology.binary_erosion, "dilate": skimage.morphology.binary_dilation}

    def expected(mask, radius, shape, iterations):
        for step in steps:
            for _ in range(iterations):
                mask = programs[step](mask, element(radius, shape))
        return mask

    for name, mask in masks().items():
        for radius, shape, iterations in ((1, "disc", 1), (4, "disc", 2), (2, "square", 1), (1, "square", 3),
                                          (17, "disc", 1)):
            op.mask_case(f"{name}_{shape}_{radius}_{iterations}", blank(mask), expected(mask, radius, shape, iterations),
                         mask=mask, params={"radius": radius, "shape": shape, "iterations": iterations})
    mask = masks()["blobs"]
    op.mask_case("millimetres", {"MSP.NIR": blobs_f32()}, expected(mask, 3, "disc", 1), mask=mask, scale=0.2,
                 params={"radius": 0.6, "unit": "mm"})
    images, mask = coins()
    op.mask_case("coins", images, expected(mask, 3, "disc", 1), mask=mask, params={"radius": 3})


@operation("mask", "erode", oracle="skimage.morphology.binary_erosion")
def erode(op):
    add_morphology(op, ["erode"])


@operation("mask", "dilate", oracle="skimage.morphology.binary_dilation")
def dilate(op):
    add_morphology(op, ["dilate"])


@operation("mask", "open", oracle="skimage.morphology.binary_erosion, then binary_dilation")
def opening(op):
    add_morphology(op, ["erode", "dilate"])


@operation("mask", "close", oracle="skimage.morphology.binary_dilation, then binary_erosion")
def closing(op):
    add_morphology(op, ["dilate", "erode"])


# ---- Parts and holes ----

def filled(mask, max_area):
    """Holes of at most that area; skimage's remove_small_holes also fills what touches the border."""
    holes, count = ndi.label(ndi.binary_fill_holes(mask) & ~mask)
    areas = np.bincount(holes.ravel(), minlength=count + 1)
    return mask | ((holes > 0) & (areas[holes] <= max_area))


@operation("mask", "fill_holes", oracle="scipy.ndimage.binary_fill_holes, label")
def fill_holes(op):
    for name, mask in masks().items():
        op.mask_case(f"{name}_all", blank(mask), ndi.binary_fill_holes(mask), mask=mask)
        for area in (1, 6, 40):
            op.mask_case(f"{name}_{area}", blank(mask), filled(mask, area), mask=mask, params={"max_area": area})
    mask = masks()["dense"]
    op.mask_case("square_millimetres", {"CLR.RGB": blobs_rgb()}, filled(mask, 8), mask=mask, scale=0.5,
                 params={"max_area": 2, "unit": "mm2"})
    images, mask = coins()
    op.mask_case("coins", images, ndi.binary_fill_holes(mask), mask=mask)


@operation("mask", "remove_small", oracle="skimage.morphology.remove_small_objects")
def remove_small(op):
    for name, mask in masks().items():
        for area, connectivity in ((2, 8), (64, 8), (12, 4), (100000, 4)):
            expected = skimage.morphology.remove_small_objects(mask, area, connectivity=2 if connectivity == 8 else 1)
            op.mask_case(f"{name}_{area}_{connectivity}", blank(mask), expected, mask=mask,
                         params={"min_area": area, "connectivity": str(connectivity)})
    mask = masks()["specks"]
    op.mask_case("square_millimetres", {"MSP.NIR": blobs_u16()}, skimage.morphology.remove_small_objects(mask, 16, 2),
                 mask=mask, scale=0.25, params={"min_area": 1, "unit": "mm2"})
    images, mask = coins()
    op.mask_case("coins", images, skimage.morphology.remove_small_objects(mask, 100, 2), mask=mask,
                 params={"min_area": 100})


def corners_of(mask):
    y, x = np.nonzero(mask)
    return np.concatenate([np.stack([x + dx, y + dy], 1) for dx in (0, 1) for dy in (0, 1)])


def measure_of(region, by, point, shape):
    if by == "area":
        return region.area
    if by == "solidity":
        return region.area / ConvexHull(corners_of(region.image)).volume
    if by == "circularity":
        perimeter = skimage.measure.perimeter_crofton(np.pad(region.image, 2), directions=4)
        return 4 * np.pi * region.area / perimeter ** 2
    if by == "eccentricity":
        return region.eccentricity
    if by == "distance_to_point":
        y, x = region.centroid
        return np.hypot(x - (point[0] * shape[1] - 0.5), y - (point[1] * shape[0] - 0.5))
    return region.mean_intensity


def region_measures(mask, by, band=None, point=(0.3, 0.6)):
    """Labels in raster order and the measure of each region."""
    labels, _ = ndi.label(mask, EIGHT)
    regions = skimage.measure.regionprops(labels, intensity_image=band)
    return labels, np.array([measure_of(region, by, point, mask.shape) for region in regions])


def distinct(mask, by, **more):
    """Without regions that have nearly the same measure as another, so that rounding decides no rank."""
    labels, values = region_measures(mask, by, **more)
    alone = [k + 1 for k, value in enumerate(values) if (abs(values - value) < 1e-7).sum() == 1]
    return np.isin(labels, alone)


def add_keep_regions(op, name, images, mask, by, band=None):
    labels, values = region_measures(mask, by, band)
    ranks = np.unique(values)
    # Limits between measures, so that rounding decides nothing.
    low = float(ranks[len(ranks) // 3] + ranks[len(ranks) // 3 + 1]) / 2
    high = float(ranks[-2] + ranks[-1]) / 2
    numbers = np.arange(1, len(values) + 1)

    def add(case, kept, params):
        at = {"point": [0.3, 0.6]} if by == "distance_to_point" else {}
        op.mask_case(f"{name}_{by}_{case}", images, np.isin(labels, kept), mask=mask,
                     params={"by": by, **at, **params})

    add("from", numbers[values >= low], {"min": low})
    add("between", numbers[(values >= low) & (values <= high)], {"min": low, "max": high})
    add("largest", numbers[np.argsort(-values, kind="stable")[:3]], {"n": 3})
    add("smallest", numbers[np.argsort(values, kind="stable")[:4]], {"n": 4, "order": "smallest"})


@operation("mask", "keep_regions", oracle="skimage.measure.regionprops, perimeter_crofton; scipy.spatial.ConvexHull")
def keep_regions(op):
    specked = specks(2)
    add_keep_regions(op, "specks", blank(specked), specked, "area")
    for by in ("solidity", "circularity", "eccentricity", "distance_to_point"):
        mask = distinct(specked, by)
        add_keep_regions(op, "specks", blank(mask), mask, by)
    eight = np.round(blobs(9) * 255).astype(np.uint8)
    mask = distinct(specked, "band_mean", band=eight / 255)
    add_keep_regions(op, "eight_bit", {"GRY.GRY": picture("blobs_u8_9", eight)}, mask, "band_mean", band=eight / 255)
    images, mask = coins()
    labels, values = region_measures(mask, "area")
    kept = np.sort(np.argsort(-values, kind="stable")[:20] + 1)
    expected = np.isin(labels, kept)
    op.mask_case("coins", images, expected, mask=mask, params={"n": 20})
    op.mask_case("coins_as_regions", images, expected, mask=mask, params={"n": 20, "make_regions": True},
                 expected_labels=np.where(expected, np.searchsorted(kept, labels) + 1, 0))


@operation("mask", "clear_border", oracle="skimage.segmentation.clear_border")
def clear_border(op):
    for name, mask in dict(masks(), inner=specks(8, share=0.2)).items():
        labels = skimage.measure.label(mask, connectivity=2)
        for buffer in (0, 1, 7, 14):
            op.mask_case(f"{name}_{buffer}", blank(mask), skimage.segmentation.clear_border(labels, buffer) > 0,
                         mask=mask, params={"buffer": buffer})
    images, mask = coins()
    labels = skimage.measure.label(mask, connectivity=2)
    op.mask_case("coins", images, skimage.segmentation.clear_border(labels, 5) > 0, mask=mask, params={"buffer": 5})


# ---- Hull, smoothing, splitting, drawing ----

def hull_mask(mask):
    """Pixels whose centre is inside the hull of the corners; twice the coordinates are whole numbers."""
    if not mask.any():
        return mask
    corners = corners_of(mask)
    hull = corners[ConvexHull(corners).vertices].astype(int) * 2
    y, x = np.mgrid[:mask.shape[0], :mask.shape[1]] * 2 + 1
    inside = np.ones(mask.shape, bool)
    for a, b in zip(hull, np.roll(hull, -1, axis=0)):
        inside &= (b[0] - a[0]) * (y - a[1]) - (b[1] - a[1]) * (x - a[0]) > 0
    # skimage takes the hull of the middles of the pixels' sides, which lies inside that of the corners.
    inner = mask | (skimage.morphology.convex_hull_image(mask) if mask.sum() > 3 else mask)
    if (inner & ~inside).any() or (inside & ~ndi.binary_dilation(inner, EIGHT)).any():
        raise RuntimeError("The two hulls differ by more than the rim.")
    return inside


def hulls(labels):
    result = labels > 0
    for k in range(1, labels.max() + 1):
        result = result | hull_mask(labels == k)
    return result


@operation("mask", "convex_hull", oracle="scipy.spatial.ConvexHull of the pixels' corners",
           convention="skimage.morphology.convex_hull_image takes the middles of the pixels' sides for corners: its "
                      "hull lies inside this one and lacks a rim of one pixel at most, which was checked")
def convex_hull(op):
    few = np.random.default_rng(3).random((50, 70)) < 0.01
    for name, mask in dict(masks(), few=few).items():
        op.mask_case(f"{name}_each", blank(mask), hulls(ndi.label(mask, EIGHT)[0]), mask=mask)
        op.mask_case(f"{name}_whole", blank(mask), hull_mask(mask), mask=mask, params={"per_region": False})
    mask = blobs(1) > 0.62
    labels = grid_labels(mask, 2, 3)
    op.mask_case("regions", {"CLR.RGB": blobs_rgb()}, hulls(labels), mask=mask, labels=labels)
    images, mask = coins()
    mask = skimage.morphology.remove_small_objects(mask, 200, connectivity=2)
    op.mask_case("coins", images, hulls(ndi.label(mask, EIGHT)[0]), mask=mask)


def majority(mask, radius):
    footprint = skimage.morphology.disk(radius).astype(int)
    set_pixels = ndi.convolve(mask.astype(int), footprint, mode="constant")
    all_pixels = ndi.convolve(np.ones(mask.shape, int), footprint, mode="constant")
    result = np.where(2 * set_pixels == all_pixels, mask, 2 * set_pixels > all_pixels)
    # Away from the border that is the rank filter of rank one half.
    inner = (slice(radius, mask.shape[0] - radius), slice(radius, mask.shape[1] - radius))
    ranked = ndi.median_filter(mask.astype(np.uint8), footprint=footprint) > 0
    if (ranked[inner] != result[inner]).any():
        raise RuntimeError("The majority is not the median.")
    return result


@operation("mask", "smooth_mask", oracle="scipy.ndimage.convolve, median_filter",
           convention="at the border scipy repeats pixels; here only those of the image are counted")
def smooth_mask(op):
    for name, mask in masks().items():
        for radius in (1, 2, 5, 13):
            op.mask_case(f"{name}_{radius}", blank(mask), majority(mask, radius), mask=mask, params={"radius": radius})
    images, mask = coins()
    op.mask_case("coins", images, majority(mask, 4), mask=mask, params={"radius": 4})


def discs(height, width, places):
    y, x = np.mgrid[:height, :width]
    return np.any([(x - cx) ** 2 + (y - cy) ** 2 <= r * r for cx, cy, r in places], axis=0)


def split(mask, min_distance, sigma):
    """The usual chain of scipy and skimage; numbers in raster order of the first pixel."""
    parts = skimage.measure.label(mask, connectivity=2)
    distance = ndi.distance_transform_edt(mask)
    if sigma:
        distance = ndi.gaussian_filter(distance, sigma, mode="nearest")
    peaks = skimage.feature.peak_local_max(distance, min_distance=min_distance, labels=parts, exclude_border=False)
    seeds = np.zeros(mask.shape, int)
    seeds[tuple(peaks.T)] = np.arange(1, len(peaks) + 1)
    labels = skimage.segmentation.watershed(-distance, seeds, mask=mask, connectivity=2)
    order = labels[labels > 0]
    _, first = np.unique(order, return_index=True)
    ranks = np.zeros(len(peaks) + 1, int)
    ranks[order[np.sort(first)]] = np.arange(1, len(first) + 1)
    return ranks[labels]


@operation("mask", "split_touching",
           oracle="scipy.ndimage.distance_transform_edt, gaussian_filter; skimage peak_local_max, watershed",
           convention="a pixel that two seeds reach at the same height may go to either; the mask, the number of "
                      "regions and the labels of at least 998 in 1000 pixels are equal")
def split_touching(op):
    pictures = {"pair": discs(60, 100, [(33, 30, 18), (63, 30, 18)]),
                "chain": discs(90, 180, [(20 + 22 * k, 40 + k % 2 * 9, 13) for k in range(7)]),
                "sizes": discs(110, 140, [(30, 30, 20), (62, 38, 14), (60, 75, 26), (100, 60, 17), (115, 90, 15)]),
                "cut_off": discs(70, 90, [(0, 20, 16), (24, 24, 14), (60, 69, 18), (60, 36, 17)]),
                "apart": discs(60, 90, [(15, 15, 9), (45, 30, 12), (75, 45, 10)])}
    for name, mask in pictures.items():
        for distance, sigma in ((10, 1.0), (7, 2.0)):
            # Parts that touch no other are regions as they are: there is no line to share out.
            on_lines = 0 if name == "apart" else int(0.002 * mask.sum())
            op.mask_case(f"{name}_{distance}", blank(mask), mask, mask=mask,
                         expected_labels=split(mask, distance, sigma),
                         params={"min_distance": distance, "sigma": sigma}, labels_may_differ=on_lines,
                         why="pixels on the line between two regions that both seeds reach at the same height"
                             if on_lines else "")
    mask = pictures["apart"]
    op.mask_case("apart_60", {"MSP.NIR": blobs_u16(height=60, width=90)}, mask, mask=mask,
                 expected_labels=ndi.label(mask, EIGHT)[0], params={"min_distance": 60, "sigma": 0})


@operation("mask", "mask_edit", oracle="skimage.draw.polygon", convention="as for roi_polygon")
def mask_edit(op):
    before = blobs(1) > 0.5
    shapes = polygons()
    added = [shapes["triangle"], shapes["star"]]
    removed = [shapes["sliver"], shapes["beyond"]]

    def union(list_of_points, shape=(96, 128)):
        return np.any([polygon_mask(points, *shape) for points in list_of_points], axis=0)

    images = {"CLR.RGB": blobs_rgb()}
    op.mask_case("add", images, before | union(added), mask=before, params={"add": added})
    op.mask_case("remove", images, before & ~union(removed), mask=before, params={"remove": removed})
    op.mask_case("both", images, (before | union(added)) & ~union(removed), mask=before,
                 params={"add": added, "remove": removed})
    op.mask_case("without_mask", images, ~union(removed), params={"add": added, "remove": removed})
    images, mask = coins()
    op.mask_case("coins", images, (mask | union(added, mask.shape)) & ~union(removed, mask.shape), mask=mask,
                 params={"add": added, "remove": removed})
