#pragma once

#include <optional>
#include <vector>

#include "orvexa/model/mask.h"
#include "orvexa/model/measures/bands.h"
#include "orvexa/model/pick_geometry.h"
#include "orvexa/model/run_context.h"

namespace orvexa::model {

/// A place in the image in pixels, where (0, 0) is the middle of the first pixel.
struct Place {
  double x = 0;
  double y = 0;
};
/// The place of a picked point: x * width - 0.5, y * height - 0.5.
[[nodiscard]] Place place_of(const PickPoint& point, Shape shape);

/// Values of bands along a line or around a point: counts, or reflectance, as `Band::read_row` gives them.
struct Profile {
  std::vector<double> distances;            ///< in pixels, evenly spaced
  std::vector<std::int64_t> pixels;         ///< of a radial profile: pixels of the mask in each ring; empty for a line
  std::vector<std::vector<double>> values;  ///< for each band; NaN where nothing valid was met
};

/// Samples along a line from one place to another, both included. Each is the mean over `width` values one pixel apart
/// across the line, each of these interpolated bilinearly between four pixels; one of which is outside the image, not
/// in the mask or not a finite number (and has a weight) leaves that value out.
/// @param samples  absent = one a pixel: ceil(length) + 1.
[[nodiscard]] Profile line_profile(const std::vector<Band>& bands, const Mask& mask, Place from, Place to, int width,
                                   std::optional<int> samples, const RunContext& context);

/// Means over rings of the mask's pixels around a centre, of equal width from 0 to the pixel farthest away; a distance
/// is the middle of its ring.
/// @param rings  absent = one pixel wide: floor(farthest) + 1.
[[nodiscard]] Profile radial_profile(const std::vector<Band>& bands, const Mask& mask, Place centre,
                                     std::optional<int> rings, const RunContext& context);

/// The middle of the mask's pixels; absent when there is none.
[[nodiscard]] std::optional<Place> centroid_of(const Mask& mask, const RunContext& context);

}  // namespace orvexa::model
