"""Operations that read a file beside the capture, and captures with white and dark references."""

import numpy as np

from cases import blobs, blobs_rgb, blobs_u16, blobs_u8, operation, picture
from color import LAB, lab_of


@operation("mask", "mask_from_file", oracle="numpy, on the values of the file")
def mask_from_file(op):
    images = {"GRY.GRY": picture("blobs_u8", blobs_u8(1))}
    marks = blobs_u8(21) // 64  # 0 to 3
    file = picture("marks", marks)
    incoming = blobs(22) > 0.4
    op.mask_case("above_zero", images, marks > 0, params={"file": file})
    op.mask_case("one_value", images, marks == 2, params={"file": file, "value": 2})
    op.mask_case("inverted_in_a_mask", images, (marks == 0) & incoming, params={"file": file, "invert": True},
                 mask=incoming)
    op.mask_case("values_as_regions", images, marks > 0, params={"file": file, "regions": True},
                 expected_labels=marks)


def scene(background, seed):
    """A background with noise and a darker square on it."""
    noise = np.random.default_rng(seed).normal(0, 200, background.shape)
    pixels = background + noise
    pixels[30:60, 40:80] -= 9000
    return np.clip(np.round(pixels), 0, 65535).astype(np.uint16)


def robust_sigma(differences):
    return 1.4826 * np.median(np.abs(differences - np.median(differences)))


@operation("mask", "background_difference", oracle="numpy, medians", convention=LAB)
def background_difference(op):
    empty = blobs_u16(31, highest=30000) + np.uint16(20000)
    full = scene(empty.astype(float), 32)
    images = {"MSP.NIR": picture("scene_full", full)}
    file = picture("scene_empty", empty)
    difference = full.astype(float) - empty
    op.mask_case("abs", images, np.abs(difference) > 3 * robust_sigma(difference),
                 params={"reference": file, "band": "MSP.NIR"})
    incoming = blobs(33) > 0.35
    inside = difference[incoming]
    op.mask_case("abs_in_a_mask", images, (np.abs(difference) > 5 * robust_sigma(inside)) & incoming,
                 params={"reference": file, "band": "MSP.NIR", "k": 5}, mask=incoming)
    before = blobs_rgb(34)
    after = np.clip(before + np.random.default_rng(35).integers(-3, 4, before.shape), 0, 255).astype(np.uint8)
    after[20:50, 30:70] = 255 - after[20:50, 30:70]
    distance = np.sqrt(((lab_of(after / 255) - lab_of(before / 255)) ** 2).sum(axis=2))
    op.mask_case("delta_e_76", {"CLR.RGB": picture("colour_after", after)}, distance > 3 * robust_sigma(distance),
                 params={"reference": picture("colour_before", before), "metric": "delta_e_76"})
