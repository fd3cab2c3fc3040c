"""Parts of a picture found by clusters, from points or by a minimum cut."""

import heapq

import cv2
import numpy as np
from scipy.ndimage import gaussian_filter
from skimage.segmentation import flood

from cases import blobs, blobs_f32, blobs_rgb, blobs_u16, blobs_u8, disc, operation, real
from color import lab_of


def point_of(shape, x, y):
    return [(x + 0.5) / shape[1], (y + 0.5) / shape[0]]


# ---- cluster_kmeans ----

def clusters_of(features, k, brightness):
    """The number of each point's cluster, darkest first, as cv2.kmeans finds them with many attempts."""
    cv2.setRNGSeed(1)
    _, labels, _ = cv2.kmeans(features.astype(np.float32), k, None, (cv2.TERM_CRITERIA_MAX_ITER, 1000, 0), 30,
                              cv2.KMEANS_PP_CENTERS)
    labels = labels[:, 0]
    centres = np.stack([features[labels == j].mean(axis=0) for j in range(k)])
    # A centre in double precision may move a pixel that stands half way: Lloyd's steps to their end.
    while True:
        distances = ((features[:, None, :] - centres[None]) ** 2).sum(axis=2)
        nearest = distances.argmin(axis=1)
        if (nearest == labels).all():
            break
        labels = nearest
        centres = np.stack([features[labels == j].mean(axis=0) for j in range(k)])
    order = np.argsort(brightness(centres))
    return np.argsort(order)[labels], distances.min(axis=1).sum()


@operation("mask", "cluster_kmeans", oracle="cv2.kmeans with 30 attempts, its labels",
           convention="steps in 32-bit float are brought to their end in 64-bit float by numpy")
def cluster_kmeans(op):
    def add(name, images, features, inside, k, brightness, params, white=None, starts=30):
        labels, _ = clusters_of(features[inside], k, brightness)
        whole = np.full(inside.shape, -1)
        whole[inside] = labels
        mask = None if inside.all() else inside
        params = params | {"k": k, "starts": starts, "fit_pixels": 1000000}
        op.mask_case(f"{name}_brightest", images, whole == k - 1, params=params, mask=mask, white=white)
        largest = np.bincount(labels).argmax()
        op.mask_case(f"{name}_largest", images, whole == largest, params=params | {"keep": "largest"}, mask=mask,
                     white=white)
        at = [(x, y) for x, y in [(25, 30), (50, 15)]]
        wanted = sorted({int(whole[y, x]) for x, y in at} - {-1})
        assert all(whole[y, x] >= 0 for x, y in at)
        op.mask_case(f"{name}_picked", images, np.isin(whole, wanted), mask=mask, white=white,
                     params=params | {"keep": "points", "points": [point_of(inside.shape, x, y) for x, y in at]})

    def parts(seed, count, shape=(60, 80)):
        """Numbered patches: between their values lies a gap, so that only one partition is the best."""
        smooth = blobs(seed, height=shape[0], width=shape[1])
        return np.digitize(smooth, np.quantile(smooth, np.linspace(0, 1, count + 1)[1:-1]))

    rng = np.random.default_rng(30)
    mean = lambda centres: centres.mean(axis=1)  # noqa: E731
    noise = rng.normal(0, 9, (60, 80)).clip(-27, 27)
    eight = np.round(np.array([40, 120, 200])[parts(31, 3)] + noise).astype(np.uint8)
    everything = np.ones(eight.shape, bool)
    add("one_band", {"GRY.GRY": eight}, eight[..., None] / 255, everything, 3, mean, {})
    levels = np.array([[900, 4000, 7000], [1500, 900, 5000], [6000, 7500, 1200], [3500, 3600, 8600]])
    noise = rng.normal(0, 250, (60, 80, 3)).clip(-700, 700)
    bands = np.round(levels[parts(33, 4)] + noise).astype(np.uint16)
    add("three_bands", {f"MSP.{name}": bands[..., band] for band, name in enumerate(("RED", "GRN", "NIR"))},
        bands / 10000, disc(28, 60, 80), 4, mean, {}, white={"MSP": 10000})
    rgb = blobs_rgb(60, height=60, width=80)
    add("colours", {"CLR.RGB": rgb}, lab_of(rgb / 255), everything, 5, lambda centres: centres[:, 0], {"space": "lab"})
    coffee = real("images/coffee.png")
    add("real_colours", {"CLR.RGB": coffee}, lab_of(coffee.pixels / 255), np.ones((400, 600), bool), 3,
        lambda centres: centres[:, 0], {"space": "lab"}, starts=2)


# ---- region_grow ----

def running_mean(values, allowed, seeds, tolerance):
    """Regions that grow side by side; see the operation's description."""
    height, width = values.shape
    region = np.zeros(values.shape, int)
    sums, counts, queue, waiting = [0.0], [0], [], set()
    serial = 0

    def around(y, x):
        for v in range(max(0, y - 1), min(height, y + 2)):
            for u in range(max(0, x - 1), min(width, x + 2)):
                if (v, u) != (y, x):
                    yield v, u

    def join(y, x, k):
        region[y, x] = k
        sums[k] += values[y, x]
        counts[k] += 1

    def meet(y, x):
        nonlocal serial
        mean = sums[region[y, x]] / counts[region[y, x]]
        for v, u in around(y, x):
            difference = abs(values[v, u] - mean)
            if (v, u) in waiting or region[v, u] or not allowed[v, u] or difference > tolerance:
                continue
            heapq.heappush(queue, (int(difference / tolerance * 255), serial, v, u))
            waiting.add((v, u))
            serial += 1

    for y, x in seeds:
        sums.append(0.0)
        counts.append(0)
        join(y, x, len(sums) - 1)
    for y, x in seeds:
        meet(y, x)
    while queue:
        _, _, y, x = heapq.heappop(queue)
        waiting.remove((y, x))
        beside = sorted({region[v, u] for v, u in around(y, x)} - {0})
        nearest = min(beside, key=lambda k: abs(values[y, x] - sums[k] / counts[k]))
        if abs(values[y, x] - sums[nearest] / counts[nearest]) <= tolerance:
            join(y, x, nearest)
            meet(y, x)
    return region > 0


@operation("mask", "region_grow", oracle="skimage.segmentation.flood (seed value)",
           convention="the running mean has no such program: its rule is followed step by step in Python")
def region_grow(op):
    sixteen = blobs_u16(72, height=60, width=80)
    inputs = [("eight_bit", blobs_u8(71, height=60, width=80), 255, None),
              ("sixteen_bit", sixteen, 50000, {"GRY": 50000}), ("float", blobs_f32(73, height=60, width=80), 1, None)]
    for name, pixels, white, declared in inputs:
        values = pixels.astype(np.float64)
        at = [(40, 30), (12, 50), (70, 8)]
        points = [point_of(pixels.shape, x, y) for x, y in at]
        tolerance = 0.1003
        mask = blobs(74, height=60, width=80, sigma=2) > 0.4
        mask[[y for _, y in at], [x for x, _ in at]] = True
        for title, allowed in (("", np.ones(mask.shape, bool)), ("_masked", mask)):
            walled = np.where(allowed, values, np.inf)
            grown = [flood(walled, (y, x), connectivity=2, tolerance=tolerance * white) for x, y in at]
            images = {"GRY.GRY": pixels}
            incoming = None if allowed.all() else allowed
            op.mask_case(f"{name}{title}_one_seed", images, grown[0], params={"points": points[:1],
                         "tolerance": tolerance}, mask=incoming, white=declared)
            op.mask_case(f"{name}{title}_three_seeds", images, np.any(grown, axis=0),
                         params={"points": points, "tolerance": tolerance}, mask=incoming, white=declared)
            if name != "float":
                followed = running_mean(values, allowed, [(y, x) for x, y in at], 0.06 * white + 1e-6 * white)
                op.mask_case(f"{name}{title}_running_mean", images, followed,
                             params={"points": points, "tolerance": 0.06, "mode": "running_mean"}, mask=incoming,
                             white=declared)
    noisy = np.clip(sixteen + np.random.default_rng(75).normal(0, 2500, sixteen.shape), 0, 65535).astype(np.uint16)
    filtered = gaussian_filter(noisy.astype(np.float64), 2.0, truncate=4, mode="nearest")
    tolerance = 0.1203 * 50000
    assert np.abs(np.abs(filtered - filtered[30, 40]) - tolerance).min() > 0.1
    op.mask_case("behind_a_filter", {"GRY.GRY": noisy}, flood(filtered, (30, 40), connectivity=2, tolerance=tolerance),
                 params={"points": [point_of(noisy.shape, 40, 30)], "tolerance": 0.1203, "smooth": "gaussian",
                         "smooth_sigma": 2.0}, white={"GRY": 50000})
    coins = real("images/coins.png")
    grown = flood(coins.pixels.astype(float), (150, 200), connectivity=2, tolerance=40)
    op.mask_case("real", {"GRY.GRY": coins}, grown,
                 params={"points": [point_of(coins.pixels.shape, 200, 150)], "tolerance": 40 / 255})


# ---- grabcut ----

@operation("mask", "grabcut", oracle="cv2.grabCut",
           convention="without an incoming mask; cv2 knows no pixels that do not count")
def grabcut(op):
    def cut(pixels, rect, iterations, seed):
        height, width = pixels.shape[:2]
        labels = np.full((height, width), cv2.GC_BGD, np.uint8)
        x, y, w, h = rect
        labels[y:y + h, x:x + w] = cv2.GC_PR_FGD
        cv2.setNumThreads(1)
        cv2.setRNGSeed(seed)
        cv2.grabCut(np.ascontiguousarray(pixels), labels, None, np.zeros((1, 65)), np.zeros((1, 65)), iterations,
                    cv2.GC_INIT_WITH_MASK)
        return labels == cv2.GC_PR_FGD

    def share_of(rect, shape):
        x, y, w, h = rect
        return [(x + w / 2) / shape[1], (y + h / 2) / shape[0], w / shape[1], h / shape[0]]

    def add(name, images, pixels, rect, iterations, seed, working_side=1000):
        expected = cut(pixels, rect, iterations, seed)
        op.mask_case(name, images, expected, may_differ=int(0.02 * expected.sum()),
                     why="the mixtures are handed from iteration to iteration, which rounds them; the overlap stays "
                         "above 0.98",
                     params={"rect": share_of(rect, pixels.shape), "iterations": iterations, "seed": seed,
                             "working_side": working_side})

    rng = np.random.default_rng(80)
    shape = gaussian_filter(rng.standard_normal((90, 120)), 9)
    inside = (shape > np.quantile(shape, 0.6)) & disc(40, 90, 120)
    drawn = np.where(inside[..., None], (170, 80, 60), (70, 120, 90)) + rng.normal(0, 25, (90, 120, 3))
    drawn = np.clip(drawn, 0, 255).astype(np.uint8)
    add("drawn", {"CLR.RGB": drawn}, drawn, (15, 5, 90, 80), 5, 0)
    add("drawn_other_seed", {"CLR.RGB": drawn}, drawn, (15, 5, 90, 80), 2, 77)
    noisy = np.where(inside[..., None], (190, 90, 60), (90, 110, 150)) + rng.normal(0, 34, (90, 120, 3))
    noisy = np.clip(noisy, 0, 255).astype(np.uint8)
    add("noisy", {"CLR.RGB": noisy}, noisy, (15, 5, 90, 80), 3, 5)
    chelsea = real("images/chelsea.png")
    add("real", {"CLR.RGB": chelsea}, chelsea.pixels, (100, 20, 250, 250), 3, 0)
