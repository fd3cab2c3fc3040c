"""Measures of the shape of masks and regions."""

import itertools

import cv2
import numpy as np
import scipy.ndimage
import scipy.spatial
import skimage.measure
import skimage.morphology

from cases import blobs, blobs_f32, blobs_rgb, blobs_u8, disc, grid_labels, operation, real

EIGHT = np.ones((3, 3), int)


# ---- Shapes ----

def _place(mask, height=64, width=90, y=9, x=17):
    """A shape somewhere in a larger frame."""
    frame = np.zeros((height, width), bool)
    frame[y:y + mask.shape[0], x:x + mask.shape[1]] = mask
    return frame


def _bar(length, width, degrees, size=81):
    """Counter-clockwise from the x axis, as the picture is looked at."""
    y, x = np.mgrid[:size, :size] - (size - 1) / 2
    angle = np.deg2rad(degrees)
    along = x * np.cos(angle) - y * np.sin(angle)
    aside = x * np.sin(angle) + y * np.cos(angle)
    return (abs(along) <= length / 2) & (abs(aside) <= width / 2)


def shapes():
    """Name to mask."""
    ring = disc(20, 61, 61) & ~disc(9, 61, 61)
    found = {
        "one_pixel": _place(np.ones((1, 1), bool)),
        "two_pixels_on_a_diagonal": _place(np.eye(2, dtype=bool)),
        "line": _place(np.ones((1, 23), bool)),
        "rectangle": _place(np.ones((20, 31), bool)),
        "rectangle_in_a_corner": _place(np.ones((13, 30), bool), y=0, x=0),
        "disc": _place(disc(20), height=70),
        "ring": _place(ring, height=75),
        "bar_20_degrees": _bar(60, 14, 20),
        "bar_115_degrees": _bar(61, 9, 115),
        "blobs": blobs(1) > 0.55,
        "many_blobs": blobs(7, sigma=1.5) > 0.6,
        "noise": np.random.default_rng(5).random((48, 64)) < 0.3,
    }
    return found


REAL_MASKS = ("images/gt/horse_mask.png", "images/gt/scene_01_mask.png")


def grey(mask):
    return {"GRY.GRY": np.zeros(mask.shape, np.uint8)}


def each_shape(op, metrics_of, undefined_of=lambda mask: (), scale=None, params=None, looser=None, regions=True,
               real_masks=REAL_MASKS):
    """A case for every shape, cases with regions, and real masks. `looser` may be a function of the mask."""
    def looser_of(mask):
        return looser(mask) if callable(looser) else looser

    for name, mask in shapes().items():
        undefined = undefined_of(mask)
        metrics = {key: value for key, value in metrics_of(mask).items() if key not in undefined}
        op.result_case(name, grey(mask), metrics, mask=mask, scale=scale, params=params, looser=looser_of(mask),
                       undefined=undefined)
    if regions:
        mask = blobs(11) > 0.5
        labels = grid_labels(mask, 3, 4)
        _region_case(op, "grid_of_regions", mask, labels, metrics_of, undefined_of, params, looser_of(mask))
        mask = blobs(12, sigma=3) > 0.6
        labels = scipy.ndimage.label(mask, EIGHT)[0]
        _region_case(op, "objects", mask, labels, metrics_of, undefined_of, params, looser_of(mask))
    for place in real_masks:
        picture = real(place)
        mask = picture.pixels > 0
        op.result_case("real_" + place.split("/")[-1].split(".")[0], {"GRY.GRY": picture}, metrics_of(mask),
                       mask=picture, params=params, looser=looser_of(mask))


def _regions(labels, metrics_of, undefined_of):
    found = {}
    for k in range(1, labels.max() + 1):
        own = labels == k
        if not own.any():
            continue
        undefined = undefined_of(own)
        found[f"ROI_{k}"] = {key: value for key, value in metrics_of(own).items() if key not in undefined}
    return found


def _region_case(op, name, mask, labels, metrics_of, undefined_of, params, looser):
    undefined = undefined_of(mask)
    op.result_case(name, grey(mask), {k: v for k, v in metrics_of(mask).items() if k not in undefined}, mask=mask,
                   labels=labels, params=params, looser=looser, regions=_regions(labels, metrics_of, undefined_of))


# ---- What several operations need ----

def props(mask):
    return skimage.measure.regionprops(mask.astype(np.uint8))[0]


def corners(mask):
    """(x, y) of the corners of the set pixels: the pixel in column x covers x to x + 1."""
    y, x = np.nonzero(mask)
    return np.unique(np.concatenate([np.stack([x + dx, y + dy], 1) for dx in (0, 1) for dy in (0, 1)]), axis=0)


def hull_points(mask):
    points = corners(mask)
    return points[scipy.spatial.ConvexHull(points).vertices].astype(float)


def degrees(dx, dy):
    """Counter-clockwise from the x axis, y down; 0 to below 180."""
    angle = np.degrees(np.arctan2(-dy, dx)) % 180
    return 0.0 if 180 - angle < 1e-9 else float(angle)


def extent_along(points, direction):
    along = points @ direction
    return along.max() - along.min()


def first_of(candidates, keys):
    """The first by several numbers, equal where they differ by rounding only."""
    left = list(candidates)
    for key in keys:
        least = min(one[key] for one in left)
        left = [one for one in left if one[key] <= least + 1e-9]
    return left[0]


def greatest_diameter(points):
    longest = max(np.hypot(*(a - b)) for a, b in itertools.combinations(points, 2))
    found = []
    for a, b in itertools.combinations(points, 2):
        d = b - a
        if np.hypot(*d) < longest - 1e-9:
            continue
        across = extent_along(points, np.array([-d[1], d[0]]) / longest)
        found.append({"length": longest, "across": across, "angle": degrees(*d)})
    return first_of(found, ("across", "angle"))


def edges(points):
    for a, b in zip(points, np.roll(points, -1, axis=0)):
        yield (b - a) / np.hypot(*(b - a))


def least_diameter(points):
    found = []
    for along in edges(points):
        normal = np.array([-along[1], along[0]])
        found.append({"length": extent_along(points, normal), "across": extent_along(points, along),
                      "angle": degrees(*normal)})
    return first_of(found, ("length", "across", "angle"))


# ---- Operations ----

@operation("result", "bounding_box", oracle="skimage.measure.regionprops: bbox, extent")
def bounding_box(op):
    def metrics(mask):
        found = props(mask)
        y0, x0, y1, x1 = found.bbox
        height, width = mask.shape
        return {"bbox_x": x0, "bbox_y": y0, "bbox_width": x1 - x0, "bbox_height": y1 - y0,
                "bbox_x_norm": x0 / width, "bbox_y_norm": y0 / height, "bbox_width_norm": (x1 - x0) / width,
                "bbox_height_norm": (y1 - y0) / height, "extent": float(found.extent)}

    each_shape(op, metrics)


@operation("result", "centroid", oracle="skimage.measure.regionprops: centroid; centroid_weighted; numpy with invalid pixels")
def centroid(op):
    def metrics(mask):
        y, x = props(mask).centroid
        return {"centroid_x": x, "centroid_y": y, "centroid_x_norm": (x + 0.5) / mask.shape[1],
                "centroid_y_norm": (y + 0.5) / mask.shape[0]}

    each_shape(op, metrics)

    mask = blobs(11) > 0.5
    labels = grid_labels(mask, 3, 4)
    weights = blobs_u8(3)

    def weighted(own, values=weights, name="GRY.GRY"):
        found = skimage.measure.regionprops(own.astype(np.uint8), intensity_image=values.astype(float))[0]
        wy, wx = found.centroid_weighted
        y, x = found.centroid
        return {f"{name}.centroid_x": wx, f"{name}.centroid_y": wy,
                f"{name}.centroid_displacement": float(np.hypot(wx - x, wy - y)),
                f"{name}.centroid_displacement_mm": 0.25 * float(np.hypot(wx - x, wy - y)),
                f"{name}.centroid_n": int(own.sum())}

    op.result_case("weighted", {"GRY.GRY": weights}, weighted(mask), mask=mask, labels=labels, scale=0.25,
                   params={"band": "GRY"},
                   regions={f"ROI_{k}": weighted(labels == k) for k in range(1, 13) if (labels == k).any()})
    colour = blobs_rgb(4)
    op.result_case("weighted_by_a_channel", {"CLR.RGB": colour}, weighted(mask, colour[:, :, 1], "CLR.RGB.G"),
                   mask=mask, scale=0.25, params={"band": "CLR.RGB.G"})
    values = blobs_f32(3)
    values[10:30, 20:50] = np.nan
    values[40:50, 60:90] = -1
    valid = mask & np.isfinite(values) & (values >= 0)
    w = np.where(valid, values, 0).astype(float)
    y, x = np.mgrid[:mask.shape[0], :mask.shape[1]]
    op.result_case("weighted_with_invalid_pixels", {"FLU.F0": values}, {
        "FLU.F0.centroid_x": float((w * x).sum() / w.sum()), "FLU.F0.centroid_y": float((w * y).sum() / w.sum()),
        "FLU.F0.centroid_n": int(valid.sum()), "FLU.F0.centroid_n_invalid": int((mask & ~valid).sum())},
        mask=mask, params={"band": "F0"})


@operation("result", "perimeter", oracle="skimage.measure.perimeter_crofton(directions=4), perimeter")
def perimeter(op):
    def metrics(mask):
        # Without a border of background skimage does not count the lines that enter at the border of the picture.
        padded = np.pad(mask, 2)
        return {"perimeter": skimage.measure.perimeter_crofton(padded, directions=4),
                "perimeter_chain": skimage.measure.perimeter(padded)}

    each_shape(op, metrics, params={"chain": True})


@operation("result", "shape_factors",
           oracle="skimage.measure.perimeter_crofton(directions=4), scipy.spatial.ConvexHull of the pixels' corners")
def shape_factors(op):
    def metrics(mask):
        area = int(mask.sum())
        length = skimage.measure.perimeter_crofton(np.pad(mask, 2), directions=4)
        points = hull_points(mask)
        greatest = greatest_diameter(points)["length"]
        least = least_diameter(points)["length"]
        hull_length = scipy.spatial.ConvexHull(corners(mask)).area
        return {"circularity": 4 * np.pi * area / length ** 2, "compactness": length ** 2 / (4 * np.pi * area),
                "roundness": 4 * area / (np.pi * greatest ** 2), "aspect": least / greatest,
                "convexity": hull_length / length, "small": area < 30}

    each_shape(op, metrics)


@operation("result", "convex_hull", oracle="scipy.spatial.ConvexHull of the pixels' corners")
def convex_hull(op):
    def metrics(mask):
        area = scipy.spatial.ConvexHull(corners(mask)).volume
        return {"hull_area": area, "solidity": mask.sum() / area}

    each_shape(op, metrics)


@operation("result", "ellipse_fit", oracle="skimage.measure.regionprops: axis_major_length, axis_minor_length, "
           "eccentricity, orientation",
           convention="skimage counts its orientation from the axis of rows; converted to degrees counter-clockwise "
           "from the x axis. Where both variances are equal skimage 0.19 takes the sign of the covariance the wrong way "
           "round; there it is taken from numpy.cov. Where the axes are equal skimage gives 45 degrees, ours has no angle.")
def ellipse_fit(op):
    def metrics(mask):
        found = props(mask)
        angle = degrees(np.sin(found.orientation), np.cos(found.orientation))
        y, x = np.nonzero(mask)
        covariance = np.cov(x, y, bias=True) if mask.sum() > 1 else np.zeros((2, 2))
        if abs(covariance[0, 0] - covariance[1, 1]) < 1e-12:  # y points down
            angle = 135.0 if covariance[0, 1] > 0 else 45.0
        return {"major_axis": float(found.axis_major_length), "minor_axis": float(found.axis_minor_length),
                "eccentricity": float(found.eccentricity), "ellipse_angle": angle}

    def undefined(mask):
        found = props(mask)
        left_out = []
        if mask.sum() == 1:
            left_out.append("eccentricity")
        if found.axis_major_length - found.axis_minor_length < 1e-9:
            left_out.append("ellipse_angle")
        return left_out

    def looser(mask):
        """For lines and for shapes that are as long as wide."""
        near_zero = {"absolute": 1e-6, "why": "a square root of what is 0 but for rounding: 1e-16 becomes 1e-8"}
        found = props(mask)
        if mask.sum() == 1:
            return None
        if found.axis_minor_length < 1e-3:
            return {"minor_axis": near_zero}
        return {"eccentricity": near_zero} if found.axis_major_length - found.axis_minor_length < 1e-9 else None

    each_shape(op, metrics, undefined, looser=looser)


@operation("result", "feret", oracle="numpy over scipy.spatial.ConvexHull of the pixels' corners")
def feret(op):
    def metrics(mask):
        points = hull_points(mask)
        found = {}
        for name, own in (("feret_max", greatest_diameter(points)), ("feret_min", least_diameter(points))):
            found |= {name: own["length"], f"{name}_angle": own["angle"], f"{name}_across": own["across"]}
        return found

    each_shape(op, metrics)


def _circle(points):
    """The smallest circle by looking at every pair and triple."""
    best = None

    def consider(centre, radius):
        nonlocal best
        if (best is None or radius < best[1]) and np.all(np.hypot(*(points - centre).T) <= radius + 1e-9):
            best = (centre, radius)

    for a, b in itertools.combinations(points, 2):
        consider((a + b) / 2, np.hypot(*(a - b)) / 2)
    for a, b, c in itertools.combinations(points, 3):
        matrix = 2 * np.array([b - a, c - a])
        if abs(np.linalg.det(matrix)) < 1e-9:
            continue
        centre = np.linalg.solve(matrix, [b @ b - a @ a, c @ c - a @ a])
        consider(centre, np.hypot(*(a - centre)))
    return best


@operation("result", "enclosing", oracle="numpy over scipy.spatial.ConvexHull of the pixels' corners; cv2.minAreaRect, "
           "cv2.minEnclosingCircle in the cases of real masks")
def enclosing(op):
    def metrics(mask):
        points = hull_points(mask)
        found = []
        for along in edges(points):
            normal = np.array([-along[1], along[0]])
            a, b = extent_along(points, along), extent_along(points, normal)
            middle = sum(axis * ((points @ axis).max() + (points @ axis).min()) / 2 for axis in (along, normal))
            angle, other = degrees(*along), degrees(*normal)
            if abs(a - b) < 1e-9:
                angle = min(angle, other)
            elif a < b:
                angle = other
            found.append({"area": a * b, "length": max(a, b), "width": min(a, b), "angle": angle, "middle": middle})
        rectangle = first_of(found, ("area", "length", "angle"))
        centre, radius = _circle(points)
        return {"min_rectangle_length": rectangle["length"], "min_rectangle_width": rectangle["width"],
                "min_rectangle_angle": rectangle["angle"], "min_rectangle_area": rectangle["area"],
                "rectangularity": mask.sum() / rectangle["area"],
                "min_rectangle_x": rectangle["middle"][0] - 0.5, "min_rectangle_y": rectangle["middle"][1] - 0.5,
                "min_circle_diameter": 2 * radius, "min_circle_x": centre[0] - 0.5, "min_circle_y": centre[1] - 0.5}

    # Every triple of corners takes too long for the real masks, which are compared with cv2 below.
    each_shape(op, metrics, regions=False, real_masks=())
    mask = blobs(12, sigma=3) > 0.6
    _region_case(op, "objects", mask, scipy.ndimage.label(mask, EIGHT)[0], metrics, lambda own: (), None, None)
    single = "cv2 computes in 32-bit floats"
    for place in REAL_MASKS:
        picture = real(place)
        points = hull_points(picture.pixels > 0).astype(np.float32)
        (x, y), radius = cv2.minEnclosingCircle(points)
        sides = cv2.minAreaRect(points)[1]
        op.result_case("real_" + place.split("/")[-1].split(".")[0], {"GRY.GRY": picture}, {
            "min_rectangle_length": max(sides), "min_rectangle_width": min(sides), "min_circle_diameter": 2 * radius,
            "min_circle_x": x - 0.5, "min_circle_y": y - 0.5}, mask=picture,
            looser={"min_*": {"absolute": 1e-2, "relative": 1e-5, "why": single}})


@operation("result", "moments_hu", oracle="skimage.measure.moments_hu of moments_normalized of moments_central; the "
           "sign as in cv2.HuMoments",
           convention="skimage takes rows for x, which mirrors the picture and changes the sign of the seventh: it gets "
           "the transposed picture.")
def moments_hu(op):
    def metrics(mask):
        central = skimage.measure.moments_central(mask.T.astype(float))
        hu = skimage.measure.moments_hu(skimage.measure.moments_normalized(central))
        other = cv2.HuMoments(cv2.moments(mask.astype(np.uint8), binaryImage=True)).ravel()
        assert np.allclose(hu, other, rtol=1e-6, atol=1e-12)
        return {f"hu_{k + 1}": float(value) for k, value in enumerate(hu)}

    small = "narrower than the rule: the numbers are far below 1; the differences of sums that cancel are rounded"
    each_shape(op, metrics, looser={"hu_*": {"relative": 1e-8, "absolute": 1e-15, "why": small}})


@operation("result", "holes", oracle="skimage.measure.euler_number(connectivity=2), scipy.ndimage.binary_fill_holes")
def holes(op):
    def metrics(mask):
        padded = np.pad(mask, 1)
        filled = scipy.ndimage.binary_fill_holes(padded)
        return {"euler_number": int(skimage.measure.euler_number(padded, connectivity=2)),
                "hole_area": int((filled & ~padded).sum()), "hole_count": int(scipy.ndimage.label(filled & ~padded)[1])}

    def at_the_border(mask):
        """A part of the background that reaches the border of the picture is no hole."""
        background, _ = scipy.ndimage.label(~mask)
        rim = np.unique(np.concatenate([background[0], background[-1], background[:, 0], background[:, -1]]))
        inside = (background > 0) & ~np.isin(background, rim)
        count = scipy.ndimage.label(inside)[1]
        parts = scipy.ndimage.label(mask, EIGHT)[1]
        return {"euler_number": int(parts - count), "hole_count": int(count), "hole_area": int(inside.sum())}

    for name, mask in shapes().items():
        both = metrics(mask), at_the_border(mask)
        if name not in ("blobs", "many_blobs", "noise"):
            assert both[0] == both[1], name
        op.result_case(name, grey(mask), both[1], mask=mask)
    mask = blobs(12, sigma=3) > 0.45
    labels = scipy.ndimage.label(mask, EIGHT)[0]
    _region_case(op, "objects", mask, labels, at_the_border, lambda own: (), None, None)
    picture = real(REAL_MASKS[1])
    op.result_case("real_scene_01_mask", {"GRY.GRY": picture}, at_the_border(picture.pixels > 0), mask=picture)


@operation("result", "thickness", oracle="scipy.ndimage.distance_transform_edt, numpy.median")
def thickness(op):
    def metrics(mask):
        distances = scipy.ndimage.distance_transform_edt(mask)[mask]
        return {"inscribed_radius_max": distances.max(), "inscribed_radius_mean": distances.mean(),
                "inscribed_radius_median": np.median(distances)}

    each_shape(op, metrics)


def _thinned(picture):
    """The two half-steps of Zhang and Suen on whole pictures; a block of 2 x 2 that stands alone keeps its upper left."""
    picture = np.pad(picture, 2)
    while True:
        before = picture.copy()
        for step in (0, 1):
            around = [np.roll(picture, shift, (0, 1)) for shift in
                      ((1, 0), (1, -1), (0, -1), (-1, -1), (-1, 0), (-1, 1), (0, 1), (1, 1))]
            p2, _, p4, _, p6, _, p8, _ = around
            count = np.sum(around, axis=0)
            rises = np.sum([~around[k] & around[(k + 1) % 8] for k in range(8)], axis=0)
            if step == 0:
                allowed = ~(p2 & p4 & p6) & ~(p4 & p6 & p8)
            else:
                allowed = ~(p2 & p4 & p8) & ~(p2 & p6 & p8)
            alone = scipy.ndimage.binary_hit_or_miss(picture, np.pad(np.ones((2, 2), int), 1),
                                                     np.pad(np.zeros((2, 2), int), 1, constant_values=1),
                                                     origin1=-1, origin2=-1)
            picture = picture & ~((count >= 2) & (count <= 6) & (rises == 1) & allowed & ~alone)
        if (picture == before).all():
            return picture[2:-2, 2:-2]


@operation("result", "skeleton", oracle="numpy: the half-steps of Zhang & Suen on whole pictures; "
           "skimage.morphology.skeletonize in the case skimage_bar",
           convention="skimage.morphology.skeletonize has another table than the paper (its bar of 20 x 160 is 3 pixels "
           "longer), so the half-steps are computed as published.")
def skeleton(op):
    def metrics(mask):
        lines = _thinned(mask)
        ends, junctions, joins, length = _graph(lines)
        junction_set = set(junctions)
        parts = _count_groups([p for p in joins if p not in junction_set], joins)
        return {"skeleton_pixels": int(lines.sum()), "skeleton_length": length, "skeleton_ends": len(ends),
                "skeleton_junctions": _count_groups(junctions, joins), "skeleton_branches": parts}

    each_shape(op, metrics)
    bar = _place(np.ones((20, 160), bool), height=40, width=190)
    op.result_case("bar_20_by_160", grey(bar), metrics(bar), mask=bar)
    count = int(skimage.morphology.skeletonize(bar).sum())
    op.result_case("skimage_bar", grey(bar), {"skeleton_length": float(count - 1), "skeleton_ends": 2,
                                              "skeleton_branches": 1, "skeleton_junctions": 0}, mask=bar,
                   looser={"skeleton_length": {"absolute": 4, "why": "its table takes fewer pixels off the ends"}})


def _graph(lines):
    pixels = {(int(y), int(x)) for y, x in zip(*np.nonzero(lines))}
    joins = {}
    length = 0.0
    for y, x in pixels:
        own = []
        for dy, dx in itertools.product((-1, 0, 1), repeat=2):
            other = (y + dy, x + dx)
            if (dy, dx) == (0, 0) or other not in pixels:
                continue
            if dy and dx and ((y + dy, x) in pixels or (y, x + dx) in pixels):
                continue
            own.append(other)
            length += np.hypot(dy, dx) / 2
        joins[y, x] = own
    ends = [p for p, own in joins.items() if len(own) == 1]
    junctions = [p for p, own in joins.items() if len(own) >= 3]
    return ends, junctions, joins, length


def _count_groups(pixels, joins):
    left = set(pixels)
    groups = 0
    while left:
        groups += 1
        waiting = [left.pop()]
        while waiting:
            for other in joins[waiting.pop()]:
                if other in left:
                    left.remove(other)
                    waiting.append(other)
    return groups


@operation("result", "symmetry", oracle="numpy: the flipped picture, shifted to the centroid")
def symmetry(op):
    def agreement(mask):
        """About the vertical line at the multiple of half a pixel nearest to the centroid."""
        columns = np.nonzero(mask)[1]
        twice = int(np.floor(2 * columns.mean() + 0.5 + 1e-12))
        width = mask.shape[1]
        room = np.pad(mask, ((0, 0), (width, width)))
        flipped = np.roll(room[:, ::-1], twice - (width - 1), axis=1)
        return (room & flipped).sum() / (room | flipped).sum()

    each_shape(op, lambda mask: {"symmetry_left_right": agreement(mask), "symmetry_top_bottom": agreement(mask.T)})


@operation("result", "region_count", oracle="scipy.ndimage.label; cv2.connectedComponentsWithStats")
def region_count(op):
    def metrics(mask, min_area=1):
        count, _, stats, _ = cv2.connectedComponentsWithStats(mask.astype(np.uint8), connectivity=8)
        kept = int((stats[1:, cv2.CC_STAT_AREA] >= min_area).sum())
        if min_area == 1:
            assert kept == scipy.ndimage.label(mask, EIGHT)[1] == count - 1
        return {"region_count": kept}

    each_shape(op, metrics)
    mask = blobs(7, sigma=1.5) > 0.6
    labels, count = scipy.ndimage.label(mask, EIGHT)
    rows = []
    for k, (rows_of, columns) in enumerate(scipy.ndimage.find_objects(labels), 1):
        area = int((labels == k).sum())
        if area < 12:
            continue
        rows.append([len(rows) + 1, area, columns.start, rows_of.start, columns.stop - columns.start,
                     rows_of.stop - rows_of.start, area * 0.25])
    op.result_case("large_ones", grey(mask), metrics(mask, 12), mask=mask, params={"min_area": 12}, scale=0.5,
                   tables={"areas": {"columns": ["number", "area", "x", "y", "width", "height", "area_mm2"],
                                     "rows": rows}})


@operation("result", "neighbours", oracle="scipy.spatial.cKDTree on centroids and on pixels")
def neighbours(op):
    def add(name, mask, labels, radius, image=None):
        keys = [k for k in range(1, labels.max() + 1) if (labels == k).any()]
        pixels = {k: np.argwhere(labels == k) for k in keys}
        centroids = np.array([pixels[k].mean(axis=0) for k in keys])
        tree = scipy.spatial.cKDTree(centroids)
        nearest = tree.query(centroids, k=2)[0][:, 1]
        within = np.array([len(found) - 1 for found in tree.query_ball_point(centroids, radius)], float)
        edge = []
        for k in keys:
            others = np.concatenate([pixels[other] for other in keys if other != k])
            edge.append(scipy.spatial.cKDTree(others).query(pixels[k])[0].min())
        index = nearest.mean() / (0.5 / np.sqrt(len(keys) / mask.size))
        regions = {f"ROI_{k}": {"nearest_centroid_distance": nearest[i], "nearest_edge_distance": edge[i],
                                "neighbours_within_radius": within[i]} for i, k in enumerate(keys)}
        op.result_case(name, image or grey(mask), {
            "nearest_centroid_distance": nearest.mean(), "nearest_edge_distance": float(np.mean(edge)),
            "neighbours_within_radius": within.mean(), "clark_evans_index": index}, mask=mask, labels=labels,
            params={"radius": radius}, regions=regions)

    mask = blobs(12, sigma=3) > 0.6
    add("objects", mask, scipy.ndimage.label(mask, EIGHT)[0], 25.5)
    mask = blobs(7, sigma=1.5) > 0.6
    add("many_objects", mask, scipy.ndimage.label(mask, EIGHT)[0], 10.25)
    mask = blobs(11) > 0.5
    add("regions_that_touch", mask, grid_labels(mask, 3, 4), 40.0)
    scattered = np.random.default_rng(3).random((60, 80)) < 0.02
    add("scattered_pixels", scattered, scipy.ndimage.label(scattered)[0], 7.5)
    picture = real(REAL_MASKS[1])
    mask = picture.pixels > 0
    add("real_scene_01_mask", mask, scipy.ndimage.label(mask, EIGHT)[0], 60.5, {"GRY.GRY": picture})
