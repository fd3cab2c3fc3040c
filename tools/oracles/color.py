"""Colours in HSV and CIELAB and the differences between them."""

import numpy as np
from scipy.ndimage import binary_dilation
from scipy.stats import circmean
from skimage.color import deltaE_cie76, deltaE_ciede2000, rgb2hsv, rgb2lab

from cases import blobs, blobs_rgb, disc, grid_labels, operation, picture, real

LEAST_SATURATION = 0.02
LAB = ("CIELAB in numpy from the chromaticities of IEC 61966-2-1; skimage.color.rgb2lab, which rounds its matrix, is "
       "checked to agree within 0.02")


def matrix():
    """Linear light to XYZ, from the chromaticities of the primaries and of D65."""
    x = np.array([0.64, 0.30, 0.15])
    y = np.array([0.33, 0.60, 0.06])
    primaries = np.stack([x / y, np.ones(3), (1 - x - y) / y])
    white = np.array([0.3127 / 0.3290, 1, (1 - 0.3127 - 0.3290) / 0.3290])
    return primaries * np.linalg.solve(primaries, white), white


def lab_of(shares):
    """CIELAB of encoded sRGB, height x width x 3 of [0, 1]."""
    light = np.where(shares <= 0.04045, shares / 12.92, ((shares + 0.055) / 1.055) ** 2.4)
    to_xyz, white = matrix()
    t = light @ to_xyz.T / white
    f = np.where(t > (6 / 29) ** 3, np.cbrt(t), t / (3 * (6 / 29) ** 2) + 4 / 29)
    lab = np.stack([116 * f[..., 1] - 16, 500 * (f[..., 0] - f[..., 1]), 200 * (f[..., 1] - f[..., 2])], axis=-1)
    assert np.abs(lab - rgb2lab(shares)).max() < 0.02
    return lab


def shares_of(pixels, white):
    return np.clip(pixels.astype(np.float64) / white, 0, 1)


def pictures():
    """Name, picture as the case holds it, its fractions of white, and the declared white level."""
    eight = blobs_rgb(4, height=60, width=80)
    sixteen = (blobs_rgb(14, height=48, width=64).astype(np.uint16) * 200 + 77)
    real_one = np.stack([blobs(24 + k, height=48, width=64) for k in range(3)], axis=2)
    real_one = (real_one * 1.4 - 0.2).astype(np.float32)  # some below 0 and some above 1
    coffee = real("images/coffee.png")
    return [("eight_bit", picture("rgb_u8", eight), shares_of(eight, 255), None),
            ("sixteen_bit_with_white_level", picture("rgb_u16", sixteen), shares_of(sixteen, 40000), {"CLR": 40000}),
            ("float_beyond_white", picture("rgb_f32", real_one), shares_of(real_one, 1), None),
            ("real", coffee, shares_of(coffee.pixels, 255), None)]


def cie76(lab, reference):
    return deltaE_cie76(lab, np.broadcast_to(reference, lab.shape))


def ciede2000(lab, reference):
    return deltaE_ciede2000(lab, np.broadcast_to(reference, lab.shape))


def far_from(values, limit, width=1e-7):
    """No pixel may lie so near a limit that its last bits decide."""
    assert np.abs(values - limit).min() > width, limit


def area_of(shares):
    """A disc in the middle of the picture."""
    height, width = shares.shape[:2]
    return disc(min(height, width) * 0.4, height, width)


@operation("mask", "threshold_hsv", oracle="skimage.color.rgb2hsv")
def threshold_hsv(op):
    # Limits that no quotient of counts lies on.
    ranges = [("greens", (70.123, 170.456), (0.2012345, 1), (0, 1)),
              ("reds", (330.789, 40.321), (0, 1), (0.2512345, 0.9012345)),
              ("pale", (0, 360), (0, 0.3512345), (0.4012345, 1))]
    for name, image, shares, white in pictures():
        hsv = rgb2hsv(shares)
        hue = hsv[..., 0] * 360
        for title, (start, end), (s_min, s_max), (v_min, v_max) in ranges:
            in_hue = (hue >= start) & (hue <= end) if start <= end else (hue >= start) | (hue <= end)
            if (start, end) != (0, 360):
                in_hue &= hsv[..., 1] >= LEAST_SATURATION
            expected = (in_hue & (hsv[..., 1] >= s_min) & (hsv[..., 1] <= s_max) & (hsv[..., 2] >= v_min)
                        & (hsv[..., 2] <= v_max))
            params = {"hue_from": start, "hue_to": end, "s_min": s_min, "s_max": s_max, "v_min": v_min, "v_max": v_max}
            mask = area_of(shares) if title == "reds" else None
            op.mask_case(f"{name}_{title}", {"CLR.RGB": image}, expected & (True if mask is None else mask),
                         params=params, mask=mask, white=white)


@operation("mask", "threshold_color_distance",
           oracle="skimage.color.deltaE_cie76, deltaE_ciede2000 over CIELAB in numpy", convention=LAB)
def threshold_color_distance(op):
    for name, image, shares, white in pictures():
        lab = lab_of(shares)
        height, width = shares.shape[:2]
        middle = lab[height // 2, width // 2]
        point = {"points": [[(width // 2 + 0.5) / width, (height // 2 + 0.5) / height]]}

        difference = ciede2000(lab, middle)
        far_from(difference, 12.3)
        op.mask_case(f"{name}_picked", {"CLR.RGB": image}, difference <= 12.3,
                     params=point | {"max_delta_e": 12.3}, white=white)

        around = binary_dilation(np.pad([[True]], ((height // 2, height - height // 2 - 1),
                                                   (width // 2, width - width // 2 - 1))), disc(4))
        mean = lab[around].mean(axis=0)
        difference = cie76(lab, mean)
        far_from(difference, 30)
        mask = area_of(shares)
        op.mask_case(f"{name}_patch_1976", {"CLR.RGB": image}, (difference <= 30) & mask, mask=mask,
                     params=point | {"radius": 4, "metric": "76", "max_delta_e": 30}, white=white)

        given = {"dark": [25, 10, -20], "blue": [45, 15, -55], "leaf": [55.5, -30, 35]}
        difference = np.min([ciede2000(lab, np.array(color, float)) for color in given.values()], axis=0)
        far_from(difference, 18)
        op.mask_case(f"{name}_by_hand", {"CLR.RGB": image}, difference <= 18, white=white,
                     params={"reference": "lab", "max_delta_e": 18,
                             "colors": [{"name": key, "lab": color} for key, color in given.items()]})


def statistics(prefix, values):
    p5, p25, median, p75, p95 = np.percentile(values, [5, 25, 50, 75, 95])
    return {f"{prefix}.n": values.size, f"{prefix}.mean": values.mean(), f"{prefix}.sd": values.std(),
            f"{prefix}.min": values.min(), f"{prefix}.max": values.max(), f"{prefix}.median": median,
            f"{prefix}.p5": p5, f"{prefix}.p25": p25, f"{prefix}.p75": p75, f"{prefix}.p95": p95}


def measured_cases(op, metrics_of, params=None):
    """A case for each picture: whole, or inside a disc cut into six regions."""
    for name, image, shares, white in pictures():
        mask = area_of(shares)
        labels = grid_labels(mask, 2, 3)
        op.result_case(f"{name}_regions", {"CLR.RGB": image}, metrics_of(shares, mask), params=params, mask=mask,
                       labels=labels, white=white,
                       regions={f"ROI_{k}": metrics_of(shares, labels == k) for k in range(1, 7)})
        op.result_case(f"{name}_whole", {"CLR.RGB": image}, metrics_of(shares, np.ones_like(mask)), params=params,
                       white=white)


@operation("result", "color_statistics",
           oracle="skimage.color.rgb2hsv, scipy.stats.circmean, numpy; CIELAB in numpy", convention=LAB)
def color_statistics(op):
    def metrics(shares, mask):
        hsv = rgb2hsv(shares)
        lab = lab_of(shares)
        planes = {"red": shares[..., 0], "green": shares[..., 1], "blue": shares[..., 2], "saturation": hsv[..., 1],
                  "value": hsv[..., 2], "lab_l": lab[..., 0], "lab_a": lab[..., 1], "lab_b": lab[..., 2]}
        found = {"CLR.RGB.color.n": int(mask.sum()), "CLR.RGB.color.n_invalid": 0}
        for key, plane in planes.items():
            found[f"CLR.RGB.{key}.mean"] = plane[mask].mean()
            found[f"CLR.RGB.{key}.sd"] = plane[mask].std()
        coloured = mask & (hsv[..., 1] >= LEAST_SATURATION)
        hue = hsv[..., 0][coloured]
        found["CLR.RGB.hue.n"] = int(coloured.sum())
        found["CLR.RGB.hue.n_invalid"] = int((mask & ~coloured).sum())
        found["CLR.RGB.hue.mean"] = circmean(hue * 360, high=360, low=0)
        found["CLR.RGB.hue.resultant_length"] = np.abs(np.exp(2j * np.pi * hue).mean())
        return found

    measured_cases(op, metrics)


@operation("result", "color_difference",
           oracle="skimage.color.deltaE_cie76, deltaE_ciede2000 over CIELAB in numpy; numpy.percentile", convention=LAB)
def color_difference(op):
    reference = np.array([48.0, -22.5, 31.0])

    def metrics(shares, mask):
        lab = lab_of(shares)[mask]
        return (statistics("CLR.RGB.delta_e_76", cie76(lab, reference))
                | statistics("CLR.RGB.delta_e_2000", ciede2000(lab, reference)))

    measured_cases(op, metrics, {"reference": "lab", "lab_l": 48.0, "lab_a": -22.5, "lab_b": 31.0})
    for name, image, shares, white in pictures():
        height, width = shares.shape[:2]
        reference = lab_of(shares)[: 3 + 1, : 3 + 1]
        near = np.add.outer(np.arange(4) ** 2, np.arange(4) ** 2) <= 9
        reference = reference[near].mean(axis=0)
        op.result_case(f"{name}_patch_in_the_corner", {"CLR.RGB": image}, metrics(shares, area_of(shares)),
                       mask=area_of(shares), params={"point": [0.3 / width, 0.3 / height], "radius": 3}, white=white,
                       tables={"reference": {"columns": ["reference", "L", "a", "b"],
                                             "rows": [["point", *reference]]}})


@operation("result", "color_classes", oracle="skimage.color.deltaE_ciede2000 over CIELAB in numpy; numpy.argmin",
           convention=LAB)
def color_classes(op):
    palette = [{"name": name, "lab": lab} for name, lab in {
        "dark": [15.0, 5.0, -10.0], "leaf": [50.0, -35.0, 35.0], "sky": [55.0, -5.0, -40.0], "skin": [65.0, 20.0, 20.0],
        "violet": [40.0, 50.0, -50.0], "straw": [85.0, -5.0, 45.0]}.items()]

    def metrics(shares, mask):
        lab = lab_of(shares)[mask]
        differences = np.stack([ciede2000(lab, np.array(color["lab"])) for color in palette])
        two_least = np.sort(differences, axis=0)[:2]
        assert (two_least[1] - two_least[0]).min() > 1e-7
        nearest = differences.argmin(axis=0)
        found = {"CLR.RGB.classes.n": nearest.size, "CLR.RGB.classes.n_invalid": 0}
        for k, color in enumerate(palette):
            own = nearest == k
            prefix = f"CLR.RGB.class.{color['name']}"
            found[f"{prefix}.n"] = int(own.sum())
            found[f"{prefix}.share"] = own.sum() / nearest.size
            if own.any():
                found[f"{prefix}.delta_e.mean"] = differences[k][own].mean()
        return found

    measured_cases(op, metrics, {"palette": palette})
