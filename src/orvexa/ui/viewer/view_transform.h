#pragma once

#include <QPoint>
#include <QPointF>
#include <QRect>
#include <QSize>
#include <QSizeF>
#include <algorithm>
#include <cmath>

namespace orvexa::ui::viewer {

/// The pixel that a position in the image lies in. As where picked points become pixels, a millionth of a pixel is
/// added, because a position on an edge may have lost as much through rounding.
[[nodiscard]] inline QPoint pixel_at(QPointF in_image) {
  constexpr double lost = 1e-6;
  return {static_cast<int>(std::floor(in_image.x() + lost)), static_cast<int>(std::floor(in_image.y() + lost))};
}

/// Where the image lies in the view: the point (x, y) of the image, whose first pixel reaches from 0 to 1, lies at
/// origin + scale * (x, y).
struct ViewTransform {
  double scale = 1;         ///< pixels of the view for a pixel of the image
  QPointF origin = {0, 0};  ///< of the image, in the view

  [[nodiscard]] QPointF to_image(QPointF in_view) const { return (in_view - origin) / scale; }
  [[nodiscard]] QPointF to_view(QPointF in_image) const { return origin + in_image * scale; }

  /// The whole image in the middle of the view, as large as it can be.
  [[nodiscard]] static ViewTransform fitting(QSize image, QSize view) {
    ViewTransform made;
    made.scale = std::min(double(view.width()) / image.width(), double(view.height()) / image.height());
    made.scale = std::clamp(made.scale, smallest_scale, largest_scale);
    made.origin = {(view.width() - made.scale * image.width()) / 2, (view.height() - made.scale * image.height()) / 2};
    return made;
  }
  /// Another scale, with what lies at `anchor` staying there.
  [[nodiscard]] ViewTransform scaled(double to, QPointF anchor) const {
    ViewTransform made;
    made.scale = std::clamp(to, smallest_scale, largest_scale);
    made.origin = anchor - to_image(anchor) * made.scale;
    return made;
  }
  /// The same with the image moved so far that a part of it remains in the view.
  [[nodiscard]] ViewTransform kept_in_view(QSize image, QSize view) const {
    const double seen_px = 24;
    const auto kept = [seen_px](double start, double length, double room) {
      const double seen = std::min(seen_px, length);
      return std::clamp(start, seen - length, std::max(seen - length, room - seen));
    };
    return {scale,
            {kept(origin.x(), scale * image.width(), view.width()),
             kept(origin.y(), scale * image.height(), view.height())}};
  }

  /// A pixel is a square that one can aim at, and a panorama of 100,000 pixels is still visible as a whole.
  static constexpr double largest_scale = 64;
  static constexpr double smallest_scale = 1.0 / 512;

  friend bool operator==(const ViewTransform&, const ViewTransform&) = default;
};

}  // namespace orvexa::ui::viewer
