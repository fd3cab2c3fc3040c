"""Which pixels count: area."""

import numpy as np

from cases import blobs, blobs_u8, disc, grid_labels, operation, picture


@operation("result", "area", oracle="numpy.sum")
def area(op):
    pixels = blobs_u8(1)
    mask = blobs(1) > 0.5
    labels = grid_labels(mask, 3, 4)
    images = {"GRY.GRY": picture("blobs_u8", pixels)}
    count = int(np.sum(mask))
    op.result_case("blobs_with_scale", images, {
        "area": count, "area_mm2": count * 0.25 * 0.25, "area_fraction": count / mask.size,
    }, mask=mask, labels=labels, scale=0.25,
        regions={f"ROI_{k}": {"area": int(np.sum(labels == k))} for k in range(1, 13)})
    round_one = disc(50)
    op.result_case("disc", {"GRY.GRY": np.zeros(round_one.shape, np.uint8)}, {"area": int(round_one.sum())},
                   mask=round_one)
