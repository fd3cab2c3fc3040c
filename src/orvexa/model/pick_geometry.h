#pragma once

#include <utility>
#include <vector>

namespace orvexa::model {

/// Geometry picked on an image, in fractions of the image's width and height; not clamped, so a rectangle drawn partly
/// outside the image has fractions below 0 or above 1.
struct PickPoint {
  double x_norm = 0;
  double y_norm = 0;
  friend bool operator==(const PickPoint&, const PickPoint&) = default;
};

struct PickPoints {
  std::vector<std::pair<double, double>> points;  ///< (x_norm, y_norm) in drawing order
  friend bool operator==(const PickPoints&, const PickPoints&) = default;
};

/// Centre and size.
struct PickRect {
  double cx_norm = 0;
  double cy_norm = 0;
  double w_norm = 0;
  double h_norm = 0;
  friend bool operator==(const PickRect&, const PickRect&) = default;
};

struct PickRects {
  std::vector<PickRect> rects;  ///< in drawing order
  friend bool operator==(const PickRects&, const PickRects&) = default;
};

/// Columns x0..x1-1 and rows y0..y1-1 of an image.
struct PixelRect {
  int x0 = 0;
  int y0 = 0;
  int x1 = 0;
  int y1 = 0;
  [[nodiscard]] bool is_empty() const { return x1 <= x0 || y1 <= y0; }
  friend bool operator==(const PixelRect&, const PixelRect&) = default;
};

/// Column x and row y of a pixel.
struct PixelPoint {
  int x = 0;
  int y = 0;
  friend bool operator==(const PixelPoint&, const PixelPoint&) = default;
};

/// The pixel that a picked point lies in: column floor(x * width + e) with e = 1e-6 pixels, as for rectangles; row
/// likewise. A point on the right or lower border (1) lies in the last pixel.
/// @throws std::invalid_argument when the point lies outside the image or is not finite.
[[nodiscard]] PixelPoint pixel_of(const PickPoint& point, int height, int width);

/// The pixels that a picked rectangle covers, clipped to the image: columns floor(x * width + e) to
/// ceil((x + w) * width - e) - 1 with e = 1e-6 pixels, where x = cx - w / 2; rows likewise. The e keeps a rectangle
/// that was drawn on whole pixels from growing by one through rounding. Empty when it lies wholly outside.
/// @throws std::invalid_argument when a number is not finite or a size is negative.
[[nodiscard]] PixelRect pixels_of(const PickRect& rect, int height, int width);

}  // namespace orvexa::model
