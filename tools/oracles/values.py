"""Values of images: band_statistics, histogram, index_statistics, custom_index, psii, image_quality, band_correlation."""

import cv2
import numpy as np
import scipy.ndimage
import scipy.stats
import skimage.filters
import skimage.measure

from cases import blobs, blobs_f32, blobs_rgb, blobs_u8, blobs_u16, grid_labels, operation, picture, real


def _with_holes(pixels, seed):
    """A float picture with pixels that are no number or infinite."""
    out = pixels.copy()
    random = np.random.default_rng(seed)
    flat = out.reshape(-1)
    flat[random.choice(flat.size, flat.size // 50, replace=False)] = np.nan
    flat[random.choice(flat.size, 5, replace=False)] = np.inf
    return out


def _each_region(labels, measure):
    return {f"ROI_{k}": measure(labels == k) for k in range(1, labels.max() + 1)}


# ---- band_statistics, index_statistics, custom_index, psii: the same statistics of a list of numbers ----

def statistics(values, prefix):
    """Of the pixels of a region; NaN and infinite ones are invalid."""
    values = np.asarray(values, float).reshape(-1)
    valid = values[np.isfinite(values)]
    median = np.median(valid)
    found = {"n": valid.size, "n_invalid": values.size - valid.size, "mean": valid.mean(), "sd": valid.std(),
             "cv": valid.std() / valid.mean(), "min": valid.min(), "max": valid.max(), "median": median,
             "mad": np.median(np.abs(valid - median)), "skew": scipy.stats.skew(valid),
             "kurtosis": scipy.stats.kurtosis(valid), "sum": valid.sum()}
    for percent in (5, 25, 75, 95):
        found[f"p{percent}"] = np.percentile(valid, percent)
    whole_numbers = ("n", "n_invalid")
    return {f"{prefix}.{name}": int(v) if name in whole_numbers else float(v) for name, v in found.items()}


def _add_reflectance_cases(op):
    """Reflectance is (I - D) / (W - D) times the panel's own, in 32-bit float as it is kept."""
    counts = blobs_u16(41, highest=40000)
    white = blobs_u16(42, highest=15000) + np.uint16(35000)
    dark = (blobs_u16(43, highest=900) + np.uint16(100)).astype(np.uint16)
    dark[5, 7] = 60000  # white is not above dark: no reflectance
    w, d = white.astype(float), dark.astype(float)
    with np.errstate(divide="ignore", invalid="ignore"):
        reflectance = np.where(w > d, 0.98 * (counts - d) / (w - d), np.nan)
    why = "reflectance is kept in 32-bit float, whose steps are 6e-8 near 1"
    rounding = {"*": {"absolute": 2e-7, "relative": 1e-6, "why": why}}
    images = {"MSP.NIR": picture("reference_counts", counts)}
    op.result_case("reflectance_from_pictures", images,
                   statistics(reflectance, "MSP.NIR"),
                   params={"unit": "fraction", "bands": ["MSP.NIR"]}, looser=rounding,
                   references={"MSP.NIR": {"white": picture("reference_white", white),
                                           "dark": picture("reference_dark", dark), "reflectance": 0.98}})
    constant = (counts - 500.0) / (45000.0 - 500.0)
    op.result_case("reflectance_from_constants", images,
                   statistics(constant, "MSP.NIR"),
                   params={"unit": "fraction", "bands": ["MSP.NIR"]}, looser=rounding,
                   references={"MSP.NIR": {"white": 45000, "dark": 500}})
    op.result_case("counts_stay_raw", images, statistics(counts, "MSP.NIR"),
                   params={"unit": "counts", "bands": ["MSP.NIR"]}, references={"MSP.NIR": {"white": 45000, "dark": 500}})


@operation("result", "band_statistics", oracle="numpy, scipy.stats.skew and kurtosis")
def band_statistics(op):
    _add_reflectance_cases(op)
    mask = blobs(11) > 0.4
    labels = grid_labels(mask, 3, 4)
    planes = {"eight_bit": blobs_u8(1), "sixteen_bit": blobs_u16(2), "float": _with_holes(blobs_f32(3), 5)}
    for name, pixels in planes.items():
        def measure(where, pixels=pixels):
            return statistics(pixels[where], "GRY.GRY")
        image = {"GRY.GRY": picture(f"values_{name}", pixels)}
        op.result_case(name, image, measure(np.ones(pixels.shape, bool)))
        op.result_case(f"{name}_in_regions", image, measure(mask), mask=mask, labels=labels,
                       regions=_each_region(labels, measure))
    rgb = blobs_rgb(4)
    op.result_case("colour_in_fractions", {"CLR.RGB": picture("blobs_rgb", rgb)},
                   {name: value for k, channel in enumerate("RGB")
                    for name, value in statistics(rgb[:, :, k][mask] / 200.0, f"CLR.RGB.{channel}").items()},
                   params={"unit": "fraction"}, mask=mask, white={"CLR": 200})
    coins = real("images/coins.png")
    op.result_case("coins", {"GRY.GRY": coins}, statistics(coins.pixels, "GRY.GRY"))


@operation("result", "histogram", oracle="numpy.histogram")
def histogram(op):
    mask = blobs(11) > 0.4
    labels = grid_labels(mask, 2, 3)

    def counts(pixels, where, white, bins):
        values = pixels[where].astype(float)
        valid = values[np.isfinite(values)]
        found, _ = np.histogram(valid, bins=bins, range=(0, white))
        prefix = "GRY.GRY.histogram."
        return {prefix + "n": valid.size, prefix + "n_invalid": values.size - valid.size,
                prefix + "underflow": int((valid < 0).sum()), prefix + "overflow": int((valid > white).sum()),
                prefix + "bins": found.tolist()}

    for name, pixels, white, bins in (("eight_bit", blobs_u8(1), 255, 256), ("sixteen_bit", blobs_u16(2), 65535, 100),
                                      ("float", _with_holes(blobs_f32(3) * 1.4 - np.float32(0.2), 6), 1, 64)):
        def measure(where, pixels=pixels, white=white, bins=bins):
            return counts(pixels, where, white, bins)
        op.result_case(name, {"GRY.GRY": picture(f"histogram_{name}", pixels)}, measure(mask), params={"bins": bins},
                       mask=mask, labels=labels, regions=_each_region(labels, measure))
    twelve = blobs_u16(7, highest=5000)
    op.result_case("declared_white_level", {"GRY.GRY": picture("histogram_twelve_bit", twelve)},
                   counts(twelve, np.ones(twelve.shape, bool), 4095, 91), params={"bins": 91}, white={"GRY": 4095})
    coins = real("images/coins.png")
    op.result_case("coins", {"GRY.GRY": coins}, counts(coins.pixels, np.ones(coins.pixels.shape, bool), 255, 17),
                   params={"bins": 17})


# ---- Spectral indices ----

WHITE = 10000
FORMULAS = {
    "ndvi": lambda b: (b["N"] - b["R"]) / (b["N"] + b["R"]),
    "gndvi": lambda b: (b["N"] - b["G"]) / (b["N"] + b["G"]),
    "ndre": lambda b: (b["N"] - b["RE"]) / (b["N"] + b["RE"]),
    "savi": lambda b: 1.5 * (b["N"] - b["R"]) / (b["N"] + b["R"] + 0.5),
    "osavi": lambda b: (b["N"] - b["R"]) / (b["N"] + b["R"] + 0.16),
    "msavi2": lambda b: (2 * b["N"] + 1 - np.sqrt((2 * b["N"] + 1) ** 2 - 8 * (b["N"] - b["R"]))) / 2,
    "evi": lambda b: 2.5 * (b["N"] - b["R"]) / (b["N"] + 6 * b["R"] - 7.5 * b["B"] + 1),
    "evi2": lambda b: 2.5 * (b["N"] - b["R"]) / (b["N"] + 2.4 * b["R"] + 1),
    "gari": lambda b: (b["N"] - (b["G"] - (b["B"] - b["R"]))) / (b["N"] + (b["G"] - (b["B"] - b["R"]))),
    "vari": lambda b: (b["G"] - b["R"]) / (b["G"] + b["R"] - b["B"]),
    "exg": lambda b: (2 * b["G"] - b["R"] - b["B"]) / (b["R"] + b["G"] + b["B"]),
    "exr": lambda b: 1.3 * b["R"] - b["G"],
    "exgr": lambda b: 2 * b["G"] - b["R"] - b["B"] - (1.3 * b["R"] - b["G"]),
    "gli": lambda b: (2 * b["G"] - b["R"] - b["B"]) / (2 * b["G"] + b["R"] + b["B"]),
    "ngrdi": lambda b: (b["G"] - b["R"]) / (b["G"] + b["R"]),
    "tgi": lambda b: -0.5 * (190 * (b["R"] - b["G"]) - 120 * (b["R"] - b["B"])),
    "gcc": lambda b: b["G"] / (b["R"] + b["G"] + b["B"]),
    "ci_green": lambda b: b["N"] / b["G"] - 1,
    "ci_rededge": lambda b: b["N"] / b["RE"] - 1,
    "mcari": lambda b: ((b["RE"] - b["R"]) - 0.2 * (b["RE"] - b["G"])) * b["RE"] / b["R"],
    "ari": lambda b: 1 / b["G"] - 1 / b["RE"],
    "psri": lambda b: (b["R"] - b["B"]) / b["RE2"],
    "ndwi": lambda b: (b["G"] - b["N"]) / (b["G"] + b["N"]),
    "pri": lambda b: (b["R531"] - b["R570"]) / (b["R531"] + b["R570"]),
}
IMAGES = {"B": "BLU", "G": "GRN", "R": "RED", "RE": "EDG", "N": "NIR"}
CENTRES = {"B": 475, "G": 555, "R": 668, "RE": 705, "RE2": 750, "N": 840, "R531": 531, "R570": 570}
LIMIT = 0.1


def _reflectances():
    """Counts of a band for each role, none near 0, so that no formula divides by almost nothing."""
    bands = {}
    for k, (role, low, high) in enumerate((("B", 200, 900), ("G", 1000, 2500), ("R", 1000, 2000), ("RE", 1500, 3000),
                                           ("RE2", 2500, 4000), ("N", 3000, 6000), ("R531", 900, 1500),
                                           ("R570", 700, 1400))):
        bands[role] = np.round(low + (high - low) * blobs(40 + k, height=48, width=64)).astype(np.uint16)
    return bands


def _msp(bands):
    return ({f"MSP.W_{role}": picture(f"reflectance_{role}", pixels) for role, pixels in bands.items()},
            {f"W_{role}": [CENTRES[role], 10] for role in bands})


def _share_over_limit(values, limit=LIMIT):
    values = values[np.isfinite(values)]
    return float((values > limit).sum() / values.size)


def _real_bands(capture, roles):
    """The images of a real capture and their counts by role."""
    found = {role: real(f"captures/{capture}/{capture}_{IMAGES[role]}.tif") for role in roles}
    return {f"MSP.{IMAGES[role]}": band for role, band in found.items()}, {r: b.pixels for r, b in found.items()}


REAL_LIMIT = 0.4142135623  # no quotient of counts


def _index_metrics(maps, where, prefix=""):
    found = {}
    for key, values in maps.items():
        found |= statistics(values[where], prefix + key)
        found[f"{prefix}{key}.share_over_limit"] = _share_over_limit(values[where], REAL_LIMIT)
    return found


def _add_real_index_cases(op):
    images, counts = _real_bands("field_20150711", IMAGES)
    fractions = {role: pixels / WHITE for role, pixels in counts.items()}
    g, r, b, n = (counts[role].astype(int) for role in "GRBN")
    # What is zero in counts is not in rounded fractions.
    assert (g + r != b).all() and (n + g + r != b).all()
    maps = {key: formula(fractions) for key, formula in FORMULAS.items() if key not in ("psri", "pri")}
    height, width = counts["N"].shape
    mask = blobs_u8(seed=5, height=height, width=width) > 100  # drawn: nothing of the picture is kept
    labels = grid_labels(mask, 2, 2)
    op.result_case("real_field", images, _index_metrics(maps, mask), white={"MSP": WHITE}, mask=mask, labels=labels,
                   params={"indices": list(maps), "limit": REAL_LIMIT},
                   regions=_each_region(labels, lambda where: _index_metrics(maps, where)))
    # Eight bits, no declared white level, and gaps between scan lines: 0 in every band.
    images, counts = _real_bands("bale_20170316", ("B", "G", "R", "N"))
    assert (counts["N"].astype(int) + counts["R"] == 0).any()
    fractions = {role: pixels / 255 for role, pixels in counts.items()}
    keys = ("ndvi", "gndvi", "exg", "gli", "ngrdi", "gcc", "ci_green", "ndwi")
    with np.errstate(invalid="ignore", divide="ignore"):
        maps = {key: FORMULAS[key](fractions) for key in keys}
    everywhere = np.ones(counts["N"].shape, bool)
    op.result_case("real_scan_line_gaps", images, _index_metrics(maps, everywhere),
                   params={"indices": list(keys), "limit": REAL_LIMIT})


@operation("result", "index_statistics", oracle="numpy",
           convention="Formulas as published; fractions of the declared white level in float64.")
def index_statistics(op):
    bands = _reflectances()
    fractions = {role: pixels / WHITE for role, pixels in bands.items()}
    images, centres = _msp(bands)
    mask = blobs(50, height=48, width=64) > 0.35
    labels = grid_labels(mask, 2, 2)
    for key, formula in FORMULAS.items():
        values = formula(fractions)

        def measure(where, values=values, key=key):
            return {**statistics(values[where], key), f"{key}.share_over_limit": _share_over_limit(values[where])}
        op.result_case(key, images, measure(mask), params={"indices": [key], "limit": LIMIT}, mask=mask, labels=labels,
                       white={"MSP": WHITE}, bands=centres, regions=_each_region(labels, measure))
    _add_real_index_cases(op)


def _add_real_expression_cases(op):
    images, counts = _real_bands("field_20150711", IMAGES)
    f = {role: pixels / WHITE for role, pixels in counts.items()}
    maps = {"evi": 2.5 * (f["N"] - f["R"]) / (f["N"] + 6 * f["R"] - 7.5 * f["B"] + 1),
            "spread": np.maximum(np.maximum(f["R"], f["G"]), f["RE"]) - np.minimum(np.minimum(f["R"], f["G"]), f["RE"]),
            "root": np.sqrt(np.abs(f["N"] ** 2 - f["RE"] ** 2))}
    text = ("evi = 2.5 * (N - R) / (N + 6 * R - 7.5 * B + 1); spread = max(R, G, RE) - min(R, G, RE); "
            "root = sqrt(abs(N ^ 2 - RE ^ 2))")
    everywhere = np.ones(counts["N"].shape, bool)
    op.result_case("real_field", images, _index_metrics(maps, everywhere, "custom_index."), white={"MSP": WHITE},
                   params={"expressions": text, "limit": REAL_LIMIT})
    coffee = real("images/coffee.png")
    red, green, blue = (coffee.pixels[:, :, k] / 255 for k in range(3))
    with np.errstate(invalid="ignore", divide="ignore"):
        maps = {"warm": (red - blue) / (red + green + blue), "ratio": np.minimum(red, green) / blue}
    labels = grid_labels(np.ones(red.shape, bool), 2, 3)
    text = "warm = (R - B) / (R + G + B); ratio = min(CLR.RGB.R, CLR.RGB.G) / CLR.RGB.B"
    op.result_case("real_photograph", {"CLR.RGB": coffee},
                   _index_metrics(maps, np.ones(red.shape, bool), "custom_index."), labels=labels,
                   params={"expressions": text, "limit": REAL_LIMIT},
                   regions=_each_region(labels, lambda where: _index_metrics(maps, where, "custom_index.")))


@operation("result", "custom_index", oracle="numpy")
def custom_index(op):
    bands = _reflectances()
    b = {role: pixels / WHITE for role, pixels in bands.items()}
    images, centres = _msp(bands)
    mask = blobs(50, height=48, width=64) > 0.35
    labels = grid_labels(mask, 2, 2)
    with np.errstate(invalid="ignore", divide="ignore"):
        expressions = {
            "(N - RE) / (N + RE - 2 * B)": (b["N"] - b["RE"]) / (b["N"] + b["RE"] - 2 * b["B"]),
            "-N ^ 2 / sqrt(MSP.W_R * G) + 1.5e-1": -b["N"] ** 2 / np.sqrt(b["R"] * b["G"]) + 0.15,
            "min(R, G, RE) / max(R, G) - abs(R - G) ^ 0.5":
                np.minimum(np.minimum(b["R"], b["G"]), b["RE"]) / np.maximum(b["R"], b["G"])
                - np.abs(b["R"] - b["G"]) ** 0.5,
            "sqrt(R - G) * 2 ^ 3 ^ 0.5 + B": np.sqrt(b["R"] - b["G"]) * 2 ** 3 ** 0.5 + b["B"],
        }
    for k, (text, values) in enumerate(expressions.items()):
        def measure(where, values=values):
            return {**statistics(values[where], "custom_index.x"),
                    "custom_index.x.share_over_limit": _share_over_limit(values[where])}
        op.result_case(f"expression_{k}", images, measure(mask),
                       params={"expressions": f"x = {text}", "limit": LIMIT}, mask=mask, labels=labels,
                       white={"MSP": WHITE}, bands=centres, regions=_each_region(labels, measure))
    _add_real_expression_cases(op)


# ---- psii ----

def _ratio(above, below):
    with np.errstate(invalid="ignore", divide="ignore"):
        return np.where(below > 0, above / below, np.nan)


def _photochemistry(f, min_fm):
    """The maps of the formulas, from fractions of white."""
    maps = {"fv_fm": _ratio(f["FM"] - f["F0"], f["FM"]), "phi_psii": _ratio(f["FMP"] - f["FS"], f["FMP"]),
            "npq": _ratio(f["FM"] - f["FMP"], f["FMP"]), "qp": _ratio(f["FMP"] - f["FS"], f["FMP"] - f["F0P"]),
            "ql": _ratio(f["FMP"] - f["FS"], f["FMP"] - f["F0P"]) * _ratio(f["F0P"], f["FS"])}
    return {key: np.where(f["FM"] >= min_fm, values, np.nan) for key, values in maps.items()}


def _photochemistry_metrics(maps, where):
    return {name: value for key, values in maps.items() for name, value in statistics(values[where], key).items()}


def _add_stand_in_case(op):
    """There is no real pair of F0 and FM: reflectance of a field stands in, so that real numbers meet the formulas."""
    stand_ins = {"F0": "BLU", "FM": "NIR", "FS": "RED", "FMP": "EDG", "F0P": "GRN"}
    found = {name: real(f"captures/field_20150711/field_20150711_{band}.tif") for name, band in stand_ins.items()}
    min_fm = 0.35
    maps = _photochemistry({name: plane.pixels / WHITE for name, plane in found.items()}, min_fm)
    labels = grid_labels(np.ones(found["FM"].pixels.shape, bool), 2, 2)
    everywhere = labels > 0
    assert 0 < np.isfinite(maps["qp"]).sum() < maps["qp"].size
    op.result_case("field_bands_as_stand_ins", {f"FLU.{name}": plane for name, plane in found.items()},
                   _photochemistry_metrics(maps, everywhere), params={"min_fm": min_fm}, white={"FLU": WHITE},
                   labels=labels, regions=_each_region(labels, lambda where: _photochemistry_metrics(maps, where)))


@operation("result", "psii", oracle="numpy")
def psii(op):
    size = {"height": 48, "width": 64}
    f0 = (0.05 + 0.1 * blobs(60, **size))
    fm = f0 + 0.5 * blobs(61, **size) - 0.06
    fs = f0 * 1.2
    fmp = fs + 0.25 * blobs(62, **size)
    f0p = f0 * (0.8 + 0.3 * blobs(63, **size))
    planes = {name: np.round(plane.clip(0, 1) * 65535).astype(np.uint16)
              for name, plane in (("F0", f0), ("FM", fm), ("FS", fs), ("FMP", fmp), ("F0P", f0p))}
    f = {name: plane / 65535.0 for name, plane in planes.items()}
    min_fm = 0.1

    maps = _photochemistry(f, min_fm)
    mask = blobs(64, **size) > 0.3
    labels = grid_labels(mask, 2, 3)

    def measure(where):
        return _photochemistry_metrics(maps, where)
    op.result_case("leaf", {f"FLU.{name}": picture(f"psii_{name}", plane) for name, plane in planes.items()},
                   measure(mask), params={"min_fm": min_fm}, mask=mask, labels=labels,
                   regions=_each_region(labels, measure))
    _add_stand_in_case(op)


# ---- image_quality ----

def _sharpness(pixels):
    """Maps of the Laplacian and of the differences of the blur effect, as skimage.measure.blur_effect makes them."""
    values = pixels.astype(float)
    laplacian = cv2.Laplacian(values, cv2.CV_64F, ksize=1)
    edges, lost = [], []
    for axis in (0, 1):
        sharp = np.abs(skimage.filters.sobel(values, axis=axis))
        blurred = scipy.ndimage.uniform_filter1d(values, 11, axis=axis)
        edges.append(sharp)
        lost.append(np.maximum(0, sharp - np.abs(skimage.filters.sobel(blurred, axis=axis))))
    return laplacian, edges, lost


def quality(pixels, where, white, maps):
    values = pixels[where].astype(float)
    laplacian, edges, lost = maps
    inner = np.zeros(pixels.shape, bool)
    inner[1:-1, 1:-1] = True
    inner &= where
    blur = max((e[inner].sum() - l[inner].sum()) / e[inner].sum() for e, l in zip(edges, lost))
    found = {"n": values.size, "n_invalid": 0, "saturated_share": float((values >= white).mean()),
             "zero_share": float((values <= 0).mean()), "snr": values.mean() / values.std(),
             "snr_db": 20 * np.log10(values.mean() / values.std()),
             "entropy": skimage.measure.shannon_entropy(pixels[where]), "sharpness_n": int(inner.sum()),
             "laplacian_variance": laplacian[inner].var() / white ** 2, "blur_effect": blur}
    return {f"GRY.GRY.quality.{name}": value for name, value in found.items()}


@operation("result", "image_quality", oracle="cv2.Laplacian, skimage.filters.sobel, scipy.ndimage.uniform_filter1d, "
                                             "skimage.measure.shannon_entropy",
           convention="The blur effect is summed over the region's pixels that are not at the image's border; "
                      "skimage.measure.blur_effect leaves out two rows above and one below.")
def image_quality(op):
    noise = np.random.default_rng(70)
    eight = np.clip(blobs(71) * 300 - 20 + noise.normal(0, 6, (96, 128)), 0, 255).astype(np.uint8)
    sixteen = np.clip(blobs(72) * 5000 + noise.normal(0, 90, (96, 128)), 0, 4095).astype(np.uint16)
    mask = blobs(73) > 0.4
    labels = grid_labels(mask, 3, 3)
    for name, pixels, white in (("eight_bit", eight, 255), ("sixteen_bit", sixteen, 4095)):
        maps = _sharpness(pixels)

        def measure(where, pixels=pixels, white=white, maps=maps):
            return quality(pixels, where, white, maps)
        images = {"GRY.GRY": picture(f"quality_{name}", pixels)}
        op.result_case(name, images, measure(np.ones(pixels.shape, bool)), white={"GRY": white})
        op.result_case(f"{name}_in_regions", images, measure(mask), mask=mask, labels=labels, white={"GRY": white},
                       regions=_each_region(labels, measure))
    coins = real("images/coins.png")
    everywhere = np.ones(coins.pixels.shape, bool)
    op.result_case("coins", {"GRY.GRY": coins}, quality(coins.pixels, everywhere, 255, _sharpness(coins.pixels)))
    ours = quality(coins.pixels, everywhere, 255, _sharpness(coins.pixels))["GRY.GRY.quality.blur_effect"]
    theirs = float(skimage.measure.blur_effect(coins.pixels))
    assert abs(ours - theirs) < 0.005, (ours, theirs)
    op.result_case("coins_blur_effect", {"GRY.GRY": coins}, {"GRY.GRY.quality.blur_effect": theirs},
                   looser={"*": {"absolute": 0.005, "why": "skimage leaves out one row and one column more"}})


# ---- band_correlation ----

def correlation(planes, names, where):
    found = {}
    for i, first in enumerate(names):
        for second in names[i + 1:]:
            a, b = planes[first][where].astype(float), planes[second][where].astype(float)
            valid = np.isfinite(a) & np.isfinite(b)
            prefix = f"correlation.{first}.{second}."
            found |= {prefix + "n": int(valid.sum()), prefix + "n_invalid": int((~valid).sum()),
                      prefix + "pearson": scipy.stats.pearsonr(a[valid], b[valid])[0],
                      prefix + "spearman": scipy.stats.spearmanr(a[valid], b[valid])[0]}
    return found


@operation("result", "band_correlation", oracle="scipy.stats.pearsonr and spearmanr, skimage.measure.profile_line")
def band_correlation(op):
    planes = {"MSP.A": blobs_u8(80), "MSP.B": blobs_u16(81, highest=300), "MSP.C": _with_holes(blobs_f32(82) - np.float32(0.5), 8),
              "MSP.D": (blobs_u8(80) // 8 + blobs_u8(83) // 16).astype(np.uint8)}
    names = list(planes)
    mask = blobs(84) > 0.4
    labels = grid_labels(mask, 2, 3)

    def measure(where):
        return correlation(planes, names, where)
    images = {name: picture(f"correlation_{name[-1]}", pixels) for name, pixels in planes.items()}
    op.result_case("four_planes", images, measure(np.ones(mask.shape, bool)))
    op.result_case("in_regions", images, measure(mask), mask=mask, labels=labels, regions=_each_region(labels, measure))

    height, width = mask.shape
    two = {name: images[name] for name in ("MSP.A", "MSP.B")}

    def fraction(row, column):
        return [(column + 0.5) / width, (row + 0.5) / height]
    for name, src, dst, line_width in (("line", (10, 12), (70, 92), 1), ("wide_line", (60, 20), (30, 100), 5),
                                       ("straight_line", (40, 5), (40, 120), 3)):
        lines = [skimage.measure.profile_line(planes[plane].astype(float), src, dst, linewidth=line_width, order=1,
                                              reduce_func=np.mean) for plane in two]
        length = float(np.hypot(dst[0] - src[0], dst[1] - src[1]))
        distances = np.linspace(0, length, len(lines[0]))
        # profile_line goes on to the first whole pixel behind the end; a whole length needs no stretching.
        assert len(lines[0]) == int(np.ceil(length + 1))
        rows = [[float(d), float(a), float(b)] for d, a, b in zip(distances, *lines)]
        op.result_case(name, two, {}, params={"profile": "line", "points": [fraction(*src), fraction(*dst)],
                                              "line_width": line_width},
                       tables={"profile": {"columns": ["distance_px", "MSP.A", "MSP.B"], "rows": rows}})

    y, x = np.nonzero(mask)
    distance = np.hypot(x - x.mean(), y - y.mean())
    rings = np.minimum((distance / (distance.max() / 12)).astype(int), 11)
    rows = [[float((k + 0.5) * distance.max() / 12), int((rings == k).sum()),
             *(float(planes[plane][mask][rings == k].mean()) for plane in two)] for k in range(12)]
    op.result_case("radial", two, {}, mask=mask, params={"profile": "radial", "samples": 12},
                   tables={"profile": {"columns": ["distance_px", "pixels", "MSP.A", "MSP.B"], "rows": rows}})


@operation("mask", "threshold_index", oracle="numpy; skimage.filters.threshold_otsu over 4096 bins")
def threshold_index(op):
    near = blobs_u16(51, highest=9000) + np.uint16(500)
    red = blobs_u16(52, highest=6000) + np.uint16(300)
    images = {"MSP.NIR": picture("index_nir", near), "MSP.RED": picture("index_red", red)}
    n, r = near / 10000, red / 10000
    ndvi = (n - r) / (n + r)
    incoming = blobs(53) > 0.4
    white = {"MSP": 10000}
    op.mask_case("between_limits", images, (ndvi >= 0.1) & (ndvi <= 0.6), white=white,
                 params={"index": "ndvi", "low": 0.1, "high": 0.6})
    op.mask_case("above_a_limit_in_a_mask", images, (ndvi >= 0.25) & incoming, white=white, mask=incoming,
                 params={"index": "ndvi", "low": 0.25})
    savi = 1.5 * (n - r) / (n + r + 0.5)
    op.mask_case("savi_below_a_limit", images, savi <= 0.05, white=white, params={"index": "savi", "high": 0.05})
    op.mask_case("expression", images, n / r - 1 >= 0.75, white=white,
                 params={"index": "custom", "expression": "N / R - 1", "low": 0.75})
    # The level is the right edge of its bin, where skimage gives the middle.
    inside = ndvi[incoming]
    half_a_bin = (inside.max() - inside.min()) / 4096 / 2
    level = skimage.filters.threshold_otsu(inside, nbins=4096) + half_a_bin
    op.mask_case("otsu_in_a_mask", images, (ndvi > level) & incoming, white=white, mask=incoming,
                 params={"index": "ndvi", "method": "otsu"})
