"""Texture of regions: texture_glcm, texture_lbp."""

import numpy as np
import scipy.ndimage
import scipy.stats
import skimage.feature

from cases import blobs, blobs_f32, blobs_u8, grid_labels, operation, picture, real

DIRECTIONS = (0, np.pi / 4, np.pi / 2, 3 * np.pi / 4)


def _matrix(levels, where, count, distance, angle):
    """Pairs of pixels of the region: what is outside has a level of its own, whose row and column are dropped."""
    with_outside = np.where(where, levels + 1, 0).astype(np.uint16)
    # Haralick's distance in the diagonals is along columns and rows; skimage rounds d cos and d sin.
    reach = distance * (np.sqrt(2) if angle in DIRECTIONS[1::2] else 1)
    matrix = skimage.feature.graycomatrix(with_outside, [reach], [angle], levels=count + 1, symmetric=True)
    return matrix[1:, 1:]


def glcm(pixels, where, white, count, distance, prefix="GRY.GRY"):
    levels = np.clip(np.floor(pixels / white * count), 0, count - 1).astype(int)
    features = {name: [] for name in ("contrast", "dissimilarity", "homogeneity", "asm", "energy", "entropy",
                                      "correlation")}
    pairs = 0
    for angle in DIRECTIONS:
        counts = _matrix(levels, where, count, distance, angle)
        pairs += int(counts.sum()) // 2
        matrix = counts / counts.sum()
        for name in features:
            if name == "entropy":
                features[name].append(scipy.stats.entropy(matrix.reshape(-1), base=2))
            else:
                features[name].append(skimage.feature.graycoprops(matrix, "ASM" if name == "asm" else name)[0, 0])
    found = {f"{prefix}.glcm.n": int(where.sum()), f"{prefix}.glcm.n_invalid": 0, f"{prefix}.glcm.pairs": pairs}
    for name, values in features.items():
        found[f"{prefix}.glcm.{name}.mean"] = float(np.mean(values))
        found[f"{prefix}.glcm.{name}.range"] = float(np.max(values) - np.min(values))
    return found


@operation("result", "texture_glcm", oracle="skimage.feature.graycomatrix and graycoprops, scipy.stats.entropy",
           convention="Pixels outside the region are an extra level that is dropped; in the diagonals the distance is "
                      "one along columns and along rows, as Haralick counts.")
def texture_glcm(op):
    mask = blobs(90, height=64, width=80) > 0.35
    labels = grid_labels(mask, 2, 3)
    eight = blobs_u8(91, height=64, width=80)
    for name, count, distance in (("usual", 32, 1), ("far", 16, 3), ("all_levels", 256, 1)):
        def measure(where, count=count, distance=distance):
            return glcm(eight, where, 255, count, distance)
        op.result_case(name, {"GRY.GRY": picture("texture_eight_bit", eight)}, measure(mask),
                       params={"levels": count, "distance": distance}, mask=mask, labels=labels,
                       regions={f"ROI_{k}": measure(labels == k) for k in range(1, 7)})
    decimals = blobs_f32(92, height=64, width=80)
    op.result_case("float", {"GRY.GRY": picture("texture_float", decimals)},
                   glcm(decimals.astype(float), mask, 1, 64, 2), params={"levels": 64, "distance": 2}, mask=mask)
    coins = real("images/coins.png")
    op.result_case("coins", {"GRY.GRY": coins}, glcm(coins.pixels, np.ones(coins.pixels.shape, bool), 255, 32, 1))


def lbp(codes, where, prefix="GRY.GRY"):
    inner = scipy.ndimage.binary_erosion(where, np.ones((3, 3)))
    counts = np.bincount(codes[inner].astype(int), minlength=10)
    n = int(inner.sum())
    found = {f"{prefix}.lbp.n": n, f"{prefix}.lbp.n_invalid": int(where.sum()) - n}
    for k in range(9):
        found[f"{prefix}.lbp.uniform_{k}"] = float(counts[k] / n)
    found[f"{prefix}.lbp.other"] = float(counts[9] / n)
    return found


@operation("result", "texture_lbp", oracle="skimage.feature.local_binary_pattern, method uniform",
           convention="Pictures without equal neighbours: skimage interpolates values and not differences, so that "
                      "rounding decides where an interpolated neighbour is exactly as bright as the pixel.")
def texture_lbp(op):
    mask = blobs(90, height=64, width=80) > 0.35
    labels = grid_labels(mask, 2, 3)
    random = np.random.default_rng(93)
    for name, pixels in (("noise", random.random((64, 80)).astype(np.float32)),
                         ("smooth", (blobs(94, height=64, width=80)
                                     + 0.02 * random.random((64, 80))).astype(np.float32))):
        codes = skimage.feature.local_binary_pattern(pixels.astype(float), 8, 1, "uniform")
        op.result_case(name, {"GRY.GRY": picture(f"patterns_{name}", pixels)}, lbp(codes, mask), mask=mask,
                       labels=labels, regions={f"ROI_{k}": lbp(codes, labels == k) for k in range(1, 7)})
