#!/usr/bin/python3
"""Runs the workflows beside this file on pictures with known answers and prints the comparison as Markdown.

usage: accuracy.py ORVEXA DATA_FOLDER ORACLES.json > docs/accuracy.md

ORACLES.json is what the model's tests write with --gtest_filter='Oracles/*' --gtest_output=json:ORACLES.json; DATA_FOLDER is the folder of public pictures with ground truth (masks, labels, counts; see its SOURCES.md). Needs
python3-opencv and python3-numpy, which the product itself does not.
"""

import json
import pathlib
import subprocess
import sys
import tempfile

import cv2
import numpy as np

HERE = pathlib.Path(__file__).resolve().parent

# Rows of picture, workflow and why the result differs from the truth (empty where it does not).
PICTURES = json.loads((HERE / "pictures.json").read_text(encoding="utf-8"))


def run(orvexa, workflow, capture, out):
    command = [orvexa, "run", str(workflow), str(capture), "-o", str(out), "--json"]
    done = subprocess.run(command, capture_output=True, text=True)
    if done.returncode != 0:
        sys.exit(f"{' '.join(command)}\n{done.stderr}")
    folder = pathlib.Path(json.loads(done.stdout)["results_folder"])
    return folder, json.loads((folder / "metrics.json").read_text(encoding="utf-8"))["results"]


def read_mask(path):
    mask = cv2.imread(str(path), cv2.IMREAD_GRAYSCALE)
    if mask is None:
        sys.exit(f"{path}: cannot be read")
    return mask > 0


def known_objects(data, stem):
    labels = data / "images" / "gt" / f"{stem}_labels.png"
    if labels.exists():
        found = np.unique(cv2.imread(str(labels), cv2.IMREAD_UNCHANGED))
        return int((found != 0).sum())
    count = data / "images" / "gt" / f"{stem}_count.csv"
    if count.exists():
        return int(count.read_text().split(",")[-1])
    reference = json.loads((data / "reference" / "masks.json").read_text(encoding="utf-8"))
    for mask, known in reference.items():
        if mask.endswith(f"/{stem}_mask.png"):
            return known["components_8"]
    boxes = data / "images" / "gt" / f"{stem}_boxes.csv"
    if boxes.exists():
        return len(boxes.read_text().split()) - 1
    return None


def percent(found, known):
    return f"{100 * (found - known) / known:+.1f} %" if known else ""


def pictures_table(orvexa, data, out):
    print("| picture | workflow | area found | area known | difference | overlap (IoU) | objects found | objects known "
          "| cause of a difference |")
    print("|---|---|---:|---:|---:|---:|---:|---:|---|")
    for row in PICTURES:
        stem = row["picture"].rsplit("/", 1)[-1].rsplit(".", 1)[0]
        folder, results = run(orvexa, HERE / "workflows" / row["workflow"], data / row["picture"], out / "pictures")
        area = results["area"]["metrics"]["area"]
        counts = results["region_count"]["metrics"]
        count = counts.get("labelled_count", counts["region_count"])
        mask_file = (data / row["picture"]).parent / "gt" / f"{stem}_mask.png"
        area_known = difference = overlap = ""
        if mask_file.exists():
            truth = read_mask(mask_file)
            found = read_mask(folder / "masks" / "final.png")
            area_known = int(truth.sum())
            difference = percent(area, area_known)
            overlap = f"{(found & truth).sum() / (found | truth).sum():.4f}"
        known = known_objects(data, stem)
        print(f"| {stem} | {row['workflow'].removesuffix('.yaml')} | {area} | {area_known} | {difference} | {overlap} "
              f"| {count} | {'' if known is None else known} | {row['cause']} |")


def captures_table(orvexa, data, out):
    reference = json.loads((data / "reference" / "captures.json").read_text(encoding="utf-8"))
    print("| capture | quantity | found | reference | difference |")
    print("|---|---|---:|---:|---:|")
    for name, known in reference.items():
        if "ndvi" not in known:
            continue
        header = data / known["header"]
        _, everywhere = run(orvexa, HERE / "workflows" / "ndvi_everywhere.yaml", header, out / "captures")
        _, inside = run(orvexa, HERE / "workflows" / "ndvi_in_nir_otsu.yaml", header, out / "captures")
        ndvi = known["ndvi"]
        whole = everywhere["index_statistics"]["metrics"]
        masked = inside["index_statistics"]["metrics"]
        rows = [
            ("mean NDVI", whole["ndvi.mean"], ndvi["mean_all"]),
            ("SD of NDVI", whole["ndvi.sd"], ndvi["std_all"]),
            ("pixels left out", whole["ndvi.n_invalid"], ndvi["pixels_left_out"]),
            ("mean GNDVI", whole["gndvi.mean"], known["gndvi_mean_all"]),
            ("area above Otsu of NIR", inside["area"]["metrics"]["area"], ndvi["mask_area_px"]),
            ("components above Otsu of NIR", inside["region_count"]["metrics"]["region_count"], ndvi["mask_components_8"]),
            ("mean NDVI above Otsu of NIR", masked["ndvi.mean"], ndvi["mean_in_mask"]),
            ("SD of NDVI above Otsu of NIR", masked["ndvi.sd"], ndvi["std_in_mask"]),
        ]
        for quantity, found, reference_value in rows:
            if isinstance(reference_value, int):
                difference = found - reference_value
                print(f"| {name} | {quantity} | {found} | {reference_value} | {difference:+d} |")
            else:
                difference = found - reference_value
                print(f"| {name} | {quantity} | {found:.6f} | {reference_value:.6f} | {difference:+.1e} |")


def main():
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    orvexa, data = sys.argv[1], pathlib.Path(sys.argv[2]).resolve()
    oracles = subprocess.run([sys.executable, HERE.parent / "oracles" / "table.py", sys.argv[3]], check=True,
                             capture_output=True, text=True).stdout
    with tempfile.TemporaryDirectory() as scratch:
        out = pathlib.Path(scratch)
        print((HERE / "introduction.md").read_text(encoding="utf-8"))
        print("## Pictures with known masks and counts\n")
        pictures_table(orvexa, data, out)
        print("\n## Captures against an independent computation\n")
        print((HERE / "captures.md").read_text(encoding="utf-8"))
        captures_table(orvexa, data, out)
    print("\n## Operations against independent programs\n")
    print((HERE / "oracles.md").read_text(encoding="utf-8"))
    print(oracles, end="")


if __name__ == "__main__":
    main()
